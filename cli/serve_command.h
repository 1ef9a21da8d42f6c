// `boxdim-cli serve`: the cameras measured by the precise engine and its
// tracker, every measured box stored in a history, and all of it served over
// HTTP (a JSON API, an event stream and a web page) until a stop signal.
#pragma once

#include <ostream>
#include <string>

#include "engine/engine_factory.h"

namespace boxdim {

// The shortest token serve takes.
inline constexpr std::size_t kMinTokenLength = 12;

struct ServeOptions {
  std::string host = "127.0.0.1";
  int port = 8080;  // 0: any free port (the line on standard output names it)
  std::string data_dir = "boxdim-data";
  std::string token;
  std::string engine = "precise";
  // The station's division (mm): a box whose size cannot be told within it
  // is uncertain.
  float division_mm = 5.0f;
  // The HTTP side's limits (see service::ApiOptions): connections served at
  // once, event-stream listeners, how long a request may stay silent (s),
  // ranges a request may ask for.
  int max_connections = 128;
  int max_listeners = 32;
  int request_timeout_s = 5;
  int max_ranges = 1;
};

// Exit status when the service cannot listen where it was asked to.
constexpr int kExitCannotListen = 4;

// Splits "ADDR:PORT" ("[::1]:PORT" for IPv6); throws std::invalid_argument
// saying what is wrong.
void parse_listen_address(const std::string& text, std::string& host, int& port);

// Whether `host` is reachable only from this machine.
bool is_loopback(const std::string& host);

// Writes "boxdim-cli serve: listening on http://HOST:PORT/" on `out` once it
// listens; messages on `err`, which closes with the counts. Exit status 0
// after SIGINT, SIGTERM or SIGHUP; kExitOutputFailed (2) when the data folder
// cannot be used; kExitCannotListen when the address cannot be listened on.
// A camera problem stops measuring but not serving: the history stays
// reachable and the status says why.
int run_serve(const ServeOptions& options, std::ostream& out, std::ostream& err);

}  // namespace boxdim
