// The service's HTTP side on cpp-httplib: the JSON API under /api/v1/ (status,
// the measurement history, its CSV export, proof pictures, the cameras'
// latest pictures, the event stream) and the web page at /. Every request is
// checked here once: the bearer token, the parameters, the sizes; nothing a
// request says becomes a file path.
#pragma once

#include <cstddef>
#include <ostream>
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
  // Without one, only requests addressed to this machine's loopback names
  // (Host: localhost, 127.x.x.x, [::1]) are answered: a page of another site
  // whose name was made to point at 127.0.0.1 reads nothing.
  std::string token;
  // Largest request body accepted (the API takes none).
  std::size_t max_body_bytes = 16 * 1024;
  // Worker threads, so connections served at once: every event-stream
  // listener holds one while it listens.
  int threads = 128;
  // Event-stream listeners at once; more are answered 503, so that they
  // never take every thread from the rest of the API.
  int max_listeners = 32;
  // How long a connection may stay silent while its request is read, and
  // while a kept-alive one waits for its next request (s).
  int request_timeout_s = 5;
  // Ranges a request may ask for at once (Range: bytes=...); more are
  // answered 416: each is a copy of the answer.
  int max_ranges = 1;
  // How long an event stream stays silent before a keep-alive comment.
  int keep_alive_s = 15;
  // Where requests with a wrong token are told (the first, then a count at
  // most once a minute); none when null.
  std::ostream* log = nullptr;
};

// Sets the server's routes, limits and thread pool.
void install_api(httplib::Server& server, StationService& station, MeasurementHistory& history,
                 EventHub& hub, const ApiOptions& options);

}  // namespace boxdim::service
