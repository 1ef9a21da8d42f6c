// The service's HTTP side on cpp-httplib: the JSON API under /api/v1/ (status,
// the measurement history, its CSV export, proof pictures, the cameras'
// latest pictures, the event stream) and the web page at /. Every request is
// checked here once: the bearer token, the parameters, the sizes; nothing a
// request says becomes a file path.
#pragma once

#include <cstddef>
#include <string>

namespace httplib {
class Server;
}

namespace boxdim::service {

class EventHub;
class MeasurementHistory;
class StationService;

struct ApiOptions {
  // When set, every /api/ request must carry "Authorization: Bearer <token>".
  std::string token;
  // Largest request body accepted (the API takes none).
  std::size_t max_body_bytes = 16 * 1024;
  // Worker threads: every event-stream listener holds one while it listens.
  int threads = 128;
  // How long an event stream stays silent before a keep-alive comment.
  int keep_alive_s = 15;
};

// Sets the server's routes, limits and thread pool.
void install_api(httplib::Server& server, StationService& station, MeasurementHistory& history,
                 EventHub& hub, const ApiOptions& options);

}  // namespace boxdim::service
