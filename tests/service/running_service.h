// boxdim-cli serve started as a process of its own on a free loopback port,
// and what the service tests ask it with: JSON answers and the event stream.
#pragma once

#include <gtest/gtest.h>
#include <httplib.h>

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <vector>

#include "cli/temp_dir.h"
#include "support/child_process.h"

namespace boxdim::testing {

inline constexpr std::chrono::seconds kPatience(60);
// A box put down, measured, taken away, and again, every 3 s.
inline constexpr const char* kBoxAfterBox = "placed=0.3,removed=1.6,every=3,noise=1,seed=3";

// A running service: its process, its port, its data folder.
class Service {
 public:
  Service(const std::string& data_dir, std::vector<std::string> extra = {},
          const char* scene = kBoxAfterBox)
      : out_(dir_.file("out")), err_(dir_.file("err")) {
    std::vector<std::string> argv = {BOXDIM_CLI_PROGRAM, "serve", "--listen", "127.0.0.1:0",
                                     "--data", data_dir};
    argv.insert(argv.end(), extra.begin(), extra.end());
    process_ = std::make_unique<ChildProcess>(
        argv, EnvironmentChanges{{"BOXDIM_CAMERA", std::nullopt}, {"BOXDIM_SCENE", scene}},
        out_, err_);
    const std::regex listening("listening on http://127\\.0\\.0\\.1:([0-9]+)/");
    eventually(
        [&] {
          std::smatch match;
          const std::string text = read_text(out_);
          if (!std::regex_search(text, match, listening)) return false;
          port_ = std::stoi(match[1]);
          return true;
        },
        kPatience);
  }

  int port() const { return port_; }
  httplib::Client client() const {
    httplib::Client c("127.0.0.1", port_);
    c.set_read_timeout(20, 0);
    return c;
  }
  std::string errors() const { return read_text(err_); }
  ChildProcess& process() { return *process_; }

 private:
  TempDir dir_;
  std::string out_, err_;
  std::unique_ptr<ChildProcess> process_;
  int port_ = 0;
};

inline nlohmann::json get_json(httplib::Client& client, const std::string& path, int expected = 200) {
  const httplib::Result res = client.Get(path.c_str());
  if (!res) {
    ADD_FAILURE() << path << ": no answer";
    return {};
  }
  EXPECT_EQ(res->status, expected) << path << ": " << res->body;
  EXPECT_EQ(res->get_header_value("Content-Type"), "application/json") << path;
  return nlohmann::json::parse(res->body, nullptr, false);
}

// The event stream until `enough` says it has seen enough, as (name, data).
inline std::vector<std::pair<std::string, nlohmann::json>> read_events(
    httplib::Client& client,
    const std::function<bool(const std::vector<std::pair<std::string, nlohmann::json>>&)>& enough,
    const httplib::Headers& headers = {}) {
  std::vector<std::pair<std::string, nlohmann::json>> events;
  std::string buffer;
  client.Get("/api/v1/events", headers, [&](const char* data, std::size_t length) {
    buffer.append(data, length);
    std::size_t end;
    while ((end = buffer.find("\n\n")) != std::string::npos) {
      const std::string block = buffer.substr(0, end);
      buffer.erase(0, end + 2);
      std::smatch match;
      if (std::regex_search(block, match, std::regex("event: (\\w+)\ndata: (.*)"))) {
        events.emplace_back(match[1], nlohmann::json::parse(std::string(match[2])));
      }
    }
    return !enough(events);
  });
  return events;
}

}  // namespace boxdim::testing
