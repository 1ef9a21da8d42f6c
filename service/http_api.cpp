#include "service/http_api.h"

#include <arpa/inet.h>
#include <httplib.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <opencv2/imgcodecs.hpp>
#include <sstream>

#include "service/api_json.h"
#include "service/event_hub.h"
#include "service/measurement_history.h"
#include "service/request_parameters.h"
#include "service/station_service.h"
#include "service/web_page.h"

namespace boxdim::service {
namespace {

constexpr const char* kJson = "application/json";
constexpr int kDefaultListLimit = 100;
constexpr int kMaxListLimit = 1000;
constexpr int kMaxExportRows = 1000000;

void send_error(httplib::Response& res, int status, const std::string& message) {
  res.status = status;
  res.set_content(error_json(message), kJson);
}

void send_json(httplib::Response& res, const nlohmann::json& body) {
  res.set_content(body.dump(), kJson);
}

// Whether a Host header names this machine's loopback: localhost, an
// address of 127/8 or ::1, with or without a port.
bool is_loopback_host(const std::string& host) {
  std::string name = host;
  if (!name.empty() && name.front() == '[') {
    const std::size_t end = name.find(']');
    if (end == std::string::npos) return false;
    name = name.substr(1, end - 1);
  } else if (const std::size_t colon = name.find(':'); colon != std::string::npos) {
    name = name.substr(0, colon);
  }
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (name == "localhost" || name == "::1") return true;
  in_addr address{};
  return ::inet_pton(AF_INET, name.c_str(), &address) == 1 && (ntohl(address.s_addr) >> 24) == 127;
}

// Requests with a wrong token, told on the log: the first at once, then how
// many came, at most once a minute, so that guessing shows without flooding.
class WrongTokenLog {
 public:
  explicit WrongTokenLog(std::ostream* log) : log_(log) {}
  void tell(const std::string& from) {
    if (!log_) return;
    const std::lock_guard<std::mutex> lock(mutex_);
    ++since_told_;
    const auto now = std::chrono::steady_clock::now();
    if (told_ && now - last_told_ < std::chrono::minutes(1)) return;
    *log_ << "boxdim-cli serve: " + std::to_string(since_told_) +
                 (since_told_ == 1 ? " request" : " requests") +
                 " with a wrong or missing token, the last from " + from + "\n"
          << std::flush;
    told_ = true;
    last_told_ = now;
    since_told_ = 0;
  }

 private:
  std::ostream* log_;
  std::mutex mutex_;
  bool told_ = false;
  std::chrono::steady_clock::time_point last_told_;
  long long since_told_ = 0;
};

// Compares in time independent of where the texts differ.
bool same_secret(const std::string& a, const std::string& b) {
  unsigned char diff = a.size() == b.size() ? 0 : 1;
  for (std::size_t i = 0; i < a.size(); ++i) {
    diff |= static_cast<unsigned char>(a[i] ^ b[i % std::max<std::size_t>(b.size(), 1)]);
  }
  return diff == 0;
}

std::string status_message(int status) {
  switch (status) {
    case 400:
      return "bad request";
    case 404:
      return "no such resource";
    case 405:
      return "method not allowed";
    case 413:
      return "request too large";
    case 414:
      return "request address too long";
    case 416:
      return "range not satisfiable";
    default:
      return "request failed";
  }
}

nlohmann::json status_json(const ServiceStatus& status, const MeasurementHistory& history,
                           const EventHub& hub) {
  nlohmann::json j;
  j["service"] = "boxdim";
  j["api_version"] = 1;
  j["engine"] = status.engine;
  j["uptime_s"] = std::round(status.uptime_s * 10.0) / 10.0;
  j["cameras"] = nlohmann::json::array();
  for (const CameraStatus& camera : status.cameras) {
    j["cameras"].push_back(
        {{"device_id", camera.device_id},
         {"frames", camera.frames},
         {"frames_per_second", std::round(camera.frames_per_second * 10.0) / 10.0},
         {"boxes_in_view", camera.boxes_in_view},
         {"frame", "/api/v1/cameras/" + std::to_string(camera.device_id) + "/frame.png"}});
  }
  j["frames_measured"] = status.frames_measured;
  j["measured_events"] = status.measured_events;
  // A history that cannot be read (damaged, replaced by another database)
  // leaves the status answering, and says why.
  std::string unreadable;
  try {
    j["measurements_stored"] = history.count();
  } catch (const HistoryError& e) {
    j["measurements_stored"] = nullptr;
    unreadable = e.what();
  }
  j["events_published"] = hub.published();
  j["last_event_id"] = hub.last_sequence();
  j["event_listeners"] = hub.listeners();
  j["history_schema_version"] = MeasurementHistory::kSchemaVersion;
  j["camera_problem"] = status.camera_problem.empty() ? nlohmann::json(nullptr)
                                                      : nlohmann::json(status.camera_problem);
  // A history file removed or replaced under the service is told before
  // the next box fails to be stored.
  const std::string history_problem = !status.history_problem.empty() ? status.history_problem
                                      : !unreadable.empty()           ? unreadable
                                                                      : history.file_problem();
  j["history_problem"] =
      history_problem.empty() ? nlohmann::json(nullptr) : nlohmann::json(history_problem);
  return j;
}

std::string csv_of(const std::vector<MeasurementRecord>& newest_first) {
  std::ostringstream csv;
  csv << "id,time,device_id,track_id,length_mm,width_mm,height_mm,uncertainty_mm,frames,proof\r\n";
  // Oldest first, as a spreadsheet reads a log.
  for (auto r = newest_first.rbegin(); r != newest_first.rend(); ++r) {
    const nlohmann::json j = measurement_json(*r);
    csv << r->id << ',' << j["time"].get<std::string>() << ',' << r->device_id << ',' << r->track_id
        << ',' << j["length_mm"].dump() << ',' << j["width_mm"].dump() << ','
        << j["height_mm"].dump() << ',' << j["uncertainty_mm"].dump() << ',' << r->frames << ','
        << (j["proof"].is_null() ? "" : j["proof"].get<std::string>()) << "\r\n";
  }
  return csv.str();
}

std::optional<std::vector<unsigned char>> read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(in)),
                                   std::istreambuf_iterator<char>());
  if (in.bad()) return std::nullopt;
  return bytes;
}

// One listener of the event stream: where it has read up to, and its place
// in the hub's count while it listens.
// Made once the hub has counted it in (try_add_listener).
struct Listener {
  Listener(EventHub& hub, std::int64_t after) : hub(hub), after(after) {}
  ~Listener() { hub.add_listener(-1); }
  EventHub& hub;
  std::int64_t after;
  bool greeted = false;
};

void serve_events(const httplib::Request& req, httplib::Response& res, EventHub& hub,
                  int keep_alive_s, int max_listeners) {
  if (!hub.try_add_listener(max_listeners)) {
    res.set_header("Retry-After", "5");
    return send_error(res, 503,
                      std::to_string(max_listeners) +
                          " event-stream listeners already, the most this service takes");
  }
  std::int64_t after = hub.last_sequence();
  // A listener that reconnects says what it saw last, and gets what followed
  // as long as the hub still holds it.
  if (req.has_header("Last-Event-ID")) {
    const std::optional<long long> seen = parse_id(req.get_header_value("Last-Event-ID"));
    if (seen && *seen <= after) after = *seen;
  }
  auto listener = std::make_shared<Listener>(hub, after);
  res.set_header("Cache-Control", "no-cache");
  res.set_header("X-Accel-Buffering", "no");
  res.set_chunked_content_provider(
      "text/event-stream", [listener, keep_alive_s](std::size_t, httplib::DataSink& sink) {
        if (!listener->greeted) {
          listener->greeted = true;
          const std::string hello = ": boxdim events\nretry: 1000\n\n";
          if (!sink.write(hello.data(), hello.size())) return false;
        }
        std::vector<HubEvent> events;
        switch (listener->hub.next(listener->after, std::chrono::seconds(keep_alive_s), events)) {
          case EventHub::Wait::kClosed:
            sink.done();
            return true;
          case EventHub::Wait::kTimeout: {
            const std::string comment = ": keep-alive\n\n";
            return sink.write(comment.data(), comment.size());
          }
          case EventHub::Wait::kLost: {
            // Too far behind: tell it so and end; it may reconnect.
            const std::string lost = "event: lost\ndata: {\"event\":\"lost\"}\n\n";
            sink.write(lost.data(), lost.size());
            sink.done();
            return true;
          }
          case EventHub::Wait::kEvents:
            break;
        }
        std::string text;
        for (const HubEvent& event : events) {
          text += "id: " + std::to_string(event.sequence) + "\nevent: " + event.name +
                  "\ndata: " + event.data + "\n\n";
          listener->after = event.sequence;
        }
        return sink.write(text.data(), text.size());
      });
}

}  // namespace

void install_api(httplib::Server& server, StationService& station, MeasurementHistory& history,
                 EventHub& hub, const ApiOptions& options) {
  // Address reuse for a quick restart, but not port sharing: a second
  // service on a port already served must fail, not split the requests.
  server.set_socket_options([](socket_t sock) {
    int yes = 1;
    setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  const int threads = options.threads;
  server.new_task_queue = [threads] { return new httplib::ThreadPool(threads); };
  server.set_payload_max_length(options.max_body_bytes);
  server.set_read_timeout(options.request_timeout_s, 0);
  server.set_write_timeout(5, 0);
  server.set_keep_alive_max_count(1000);
  server.set_keep_alive_timeout(options.request_timeout_s);

  const std::string token = options.token;
  const int max_ranges = options.max_ranges;
  auto wrong_tokens = std::make_shared<WrongTokenLog>(options.log);
  server.set_pre_routing_handler([token, max_ranges, wrong_tokens](const httplib::Request& req,
                                                                   httplib::Response& res) {
    if (token.empty()) {
      const std::string host = req.get_header_value("Host");
      if (!host.empty() && !is_loopback_host(host)) {
        send_error(res, 403,
                   "this service answers to this machine's loopback names only (Host: " +
                       host.substr(0, 80) + "); give it a --token to serve other names");
        return httplib::Server::HandlerResponse::Handled;
      }
    }
    if (req.has_header("Range")) {
      const std::string range = req.get_header_value("Range");
      const long ranges = 1 + std::count(range.begin(), range.end(), ',');
      if (ranges > max_ranges) {
        res.status = 416;
        res.set_header("X-Boxdim-Error", std::to_string(ranges) + " ranges asked for, at most " +
                                             std::to_string(max_ranges) + " served");
        return httplib::Server::HandlerResponse::Handled;
      }
    }
    if (token.empty() || req.path.rfind("/api/", 0) != 0) {
      return httplib::Server::HandlerResponse::Unhandled;
    }
    // The header's whole value: one read as a C string would end at a NUL
    // byte and let what follows it pass.
    const auto header = req.headers.find("Authorization");
    const std::string given = header == req.headers.end() ? std::string() : header->second;
    const std::string prefix = "Bearer ";
    if (given.rfind(prefix, 0) == 0 && same_secret(given.substr(prefix.size()), token)) {
      return httplib::Server::HandlerResponse::Unhandled;
    }
    wrong_tokens->tell(req.remote_addr);
    res.set_header("WWW-Authenticate", "Bearer realm=\"boxdim\"");
    send_error(res, 401,
               given.empty() ? "this service needs a token: Authorization: Bearer <token>"
                             : "wrong token");
    return httplib::Server::HandlerResponse::Handled;
  });
  server.set_error_handler([](const httplib::Request&, httplib::Response& res) {
    // A refused range goes without a body: the server would cut the ranges
    // refused out of it all the same, a copy for each.
    if (res.body.empty() && res.status != 416) {
      send_error(res, res.status, status_message(res.status));
    }
  });
  server.set_exception_handler(
      [](const httplib::Request&, httplib::Response& res, std::exception_ptr error) {
        std::string message = "internal error";
        try {
          if (error) std::rethrow_exception(error);
        } catch (const HistoryError& e) {
          message = std::string("history: ") + e.what();
        } catch (const std::exception& e) {
          message += std::string(": ") + e.what();
        } catch (...) {
        }
        send_error(res, 500, message);
      });

  server.Get("/", [](const httplib::Request&, httplib::Response& res) {
    res.set_header("Cache-Control", "no-cache");
    res.set_header("Content-Security-Policy",
                   "default-src 'self'; img-src 'self' blob:; style-src 'self' 'unsafe-inline'; "
                   "script-src 'self' 'unsafe-inline'");
    res.set_content(web_page_html(), "text/html; charset=utf-8");
  });

  server.Get("/api/v1/status",
             [&station, &history, &hub](const httplib::Request& req, httplib::Response& res) {
               if (!req.params.empty()) return send_error(res, 400, "status takes no parameters");
               send_json(res, status_json(station.status(), history, hub));
             });

  server.Get("/api/v1/measurements", [&history](const httplib::Request& req,
                                                httplib::Response& res) {
    const ParsedQuery parsed = parse_history_query(req.params, kDefaultListLimit, kMaxListLimit);
    if (!parsed.problem.empty()) return send_error(res, 400, parsed.problem);
    nlohmann::json list = nlohmann::json::array();
    for (const MeasurementRecord& r : history.list(parsed.query))
      list.push_back(measurement_json(r));
    send_json(res, {{"measurements", list}});
  });

  server.Get(
      "/api/v1/measurements.csv", [&history](const httplib::Request& req, httplib::Response& res) {
        const ParsedQuery parsed = parse_history_query(req.params, kMaxExportRows, kMaxExportRows);
        if (!parsed.problem.empty()) return send_error(res, 400, parsed.problem);
        res.set_header("Content-Disposition", "attachment; filename=\"boxdim-measurements.csv\"");
        res.set_content(csv_of(history.list(parsed.query)), "text/csv; charset=utf-8");
      });

  server.Get(R"(/api/v1/measurements/([^/]+))", [&history](const httplib::Request& req,
                                                           httplib::Response& res) {
    const std::optional<long long> id = parse_id(req.matches[1]);
    const std::optional<MeasurementRecord> record = id ? history.find(*id) : std::nullopt;
    if (!record)
      return send_error(res, 404, "no measurement " + std::string(req.matches[1]).substr(0, 40));
    send_json(res, measurement_json(*record));
  });

  server.Get(R"(/api/v1/measurements/([^/]+)/proof\.png)", [&history](const httplib::Request& req,
                                                                      httplib::Response& res) {
    const std::optional<long long> id = parse_id(req.matches[1]);
    if (!id || !history.find(*id)) {
      return send_error(res, 404, "no measurement " + std::string(req.matches[1]).substr(0, 40));
    }
    const std::optional<std::string> path = history.proof_path(*id);
    const auto bytes = path ? read_file(*path) : std::nullopt;
    if (!bytes)
      return send_error(res, 404, "measurement " + std::to_string(*id) + " has no proof picture");
    res.set_content(reinterpret_cast<const char*>(bytes->data()), bytes->size(), "image/png");
  });

  server.Get(R"(/api/v1/cameras/([^/]+)/frame\.png)", [&station](const httplib::Request& req,
                                                                 httplib::Response& res) {
    const std::optional<long long> id = parse_id(req.matches[1]);
    const std::optional<cv::Mat> picture =
        id && *id <= INT32_MAX ? station.camera_picture(static_cast<int>(*id)) : std::nullopt;
    if (!picture) {
      return send_error(
          res, 404, "camera " + std::string(req.matches[1]).substr(0, 40) + " has sent no frame");
    }
    std::vector<unsigned char> png;
    cv::imencode(".png", *picture, png);
    res.set_header("Cache-Control", "no-store");
    res.set_content(reinterpret_cast<const char*>(png.data()), png.size(), "image/png");
  });

  const int keep_alive_s = options.keep_alive_s;
  const int max_listeners = options.max_listeners;
  server.Get("/api/v1/events", [&hub, keep_alive_s, max_listeners](const httplib::Request& req,
                                                                   httplib::Response& res) {
    if (!req.params.empty()) return send_error(res, 400, "events takes no parameters");
    serve_events(req, res, hub, keep_alive_s, max_listeners);
  });

  // Everything else under /api/ is named as what it is.
  server.Get(R"(/api/.*)", [](const httplib::Request& req, httplib::Response& res) {
    send_error(res, 404, "no such resource: " + req.path.substr(0, 80));
  });
  const auto not_allowed = [](const httplib::Request&, httplib::Response& res) {
    res.set_header("Allow", "GET");
    send_error(res, 405, "only GET is served");
  };
  server.Post(R"(/.*)", not_allowed);
  server.Put(R"(/.*)", not_allowed);
  server.Delete(R"(/.*)", not_allowed);
  server.Patch(R"(/.*)", not_allowed);
  server.Options(R"(/.*)", not_allowed);
}

}  // namespace boxdim::service
