#include "cli/serve_command.h"

#include <arpa/inet.h>
#include <httplib.h>

#include <chrono>
#include <stdexcept>
#include <thread>

#include "cli/output.h"
#include "runtime/stop_signals.h"
#include "service/event_hub.h"
#include "service/http_api.h"
#include "service/measurement_history.h"
#include "service/request_parameters.h"
#include "service/station_service.h"

namespace boxdim {

void parse_listen_address(const std::string& text, std::string& host, int& port) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0) {
    throw std::invalid_argument("'" + text + "' is not of the form ADDR:PORT");
  }
  host = text.substr(0, colon);
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  }
  const std::optional<long long> number = service::parse_id(text.substr(colon + 1));
  if (!number || *number > 65535) {
    throw std::invalid_argument("'" + text + "' needs a port from 0 to 65535");
  }
  port = static_cast<int>(*number);
}

bool is_loopback(const std::string& host) {
  if (host == "localhost" || host == "::1") return true;
  // An IPv4 address of 127/8, written as one: a name that merely starts with
  // "127." may resolve to any machine.
  in_addr address{};
  return ::inet_pton(AF_INET, host.c_str(), &address) == 1 && (ntohl(address.s_addr) >> 24) == 127;
}

int run_serve(const ServeOptions& options, std::ostream& out, std::ostream& err) {
  const StopSignals stop_signals;
  std::optional<service::MeasurementHistory> history;
  try {
    history.emplace(options.data_dir);
  } catch (const service::HistoryError& e) {
    err << "boxdim-cli serve: " << e.what() << '\n';
    return kExitOutputFailed;
  }
  // Event ids go on from run to run: each run's start above the last one's
  // ids, so that a listener from an earlier run learns it lost events.
  const auto started = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::system_clock::now().time_since_epoch());
  service::EventHub hub(1024, started.count());
  service::StationOptions station_options;
  station_options.engine = options.engine;
  station_options.division_mm = options.division_mm;
  service::StationService station(station_options, *history, hub, err);

  httplib::Server server;
  service::ApiOptions api_options;
  api_options.token = options.token;
  api_options.threads = options.max_connections;
  api_options.max_listeners = options.max_listeners;
  api_options.request_timeout_s = options.request_timeout_s;
  api_options.max_ranges = options.max_ranges;
  api_options.log = &err;
  service::install_api(server, station, *history, hub, api_options);
  const int port = options.port == 0
                       ? server.bind_to_any_port(options.host)
                       : (server.bind_to_port(options.host, options.port) ? options.port : -1);
  if (port <= 0) {
    err << "boxdim-cli serve: cannot listen on " << options.host << ':' << options.port
        << " (in use, or not an address of this machine)\n";
    return kExitCannotListen;
  }
  std::thread listener([&server] { server.listen_after_bind(); });
  const std::string shown_host =
      options.host.find(':') != std::string::npos ? "[" + options.host + "]" : options.host;
  int status = 0;
  try {
    write_line(
        out,
        "boxdim-cli serve: listening on http://" + shown_host + ":" + std::to_string(port) + "/",
        kStandardOutput);
  } catch (const OutputError& e) {
    err << "boxdim-cli serve: " << e.what() << '\n';
    status = kExitOutputFailed;
  }
  if (status == 0) {
    station.run([] { return StopSignals::requested() != 0; });
    // The cameras failed: the history and the status stay served until a stop.
    while (StopSignals::requested() == 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
  }
  hub.close();
  server.stop();
  listener.join();
  const service::ServiceStatus final_status = station.status();
  err << "boxdim-cli serve: " << final_status.frames_measured << " frames measured, "
      << final_status.measured_events << " boxes measured";
  if (const int signal = StopSignals::requested())
    err << ", stopped by " << StopSignals::name(signal);
  err << '\n';
  return status;
}

}  // namespace boxdim
