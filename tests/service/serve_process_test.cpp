// boxdim-cli serve as a process of its own on a loopback port, asked with a
// real HTTP client: every endpoint, the ways to ask wrongly, the token, the
// event stream of a placement sequence, and a history that survives kill -9.
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <regex>
#include <thread>

#include "cli/temp_dir.h"
#include "service/running_service.h"
#include "support/child_process.h"

namespace boxdim {
namespace {

using testing::ChildProcess;
using testing::eventually;
using testing::get_json;
using testing::kBoxAfterBox;
using testing::kPatience;
using testing::read_events;
using testing::read_text;
using testing::Service;

class ServeTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    data_ = new testing::TempDir;
    service_ = new Service(data_->file("data"));
  }
  static void TearDownTestSuite() {
    delete service_;
    delete data_;
  }
  static testing::TempDir* data_;
  static Service* service_;
};
testing::TempDir* ServeTest::data_ = nullptr;
Service* ServeTest::service_ = nullptr;

TEST_F(ServeTest, EventStreamTellsABoxsStoryWithItsStoredMeasurement) {
  ASSERT_GT(service_->port(), 0) << service_->errors();
  httplib::Client client = service_->client();
  // From the next placed box on: placed, measured, removed, one track.
  const auto events = read_events(client, [](const auto& seen) {
    for (const auto& [name, data] : seen) {
      if (name == "removed" && seen.front().first == "placed" &&
          data["track_id"] == seen.front().second["track_id"]) {
        return true;
      }
    }
    return false;
  });
  std::vector<std::string> story;
  int track = -1;
  nlohmann::json measured;
  for (const auto& [name, data] : events) {
    if (story.empty() && name != "placed") continue;
    if (story.empty()) track = data["track_id"];
    if (data["track_id"] != track) continue;
    story.push_back(name);
    if (name == "measured") measured = data;
  }
  ASSERT_EQ(story, (std::vector<std::string>{"placed", "measured", "removed"}));
  EXPECT_NEAR(measured["length_mm"].get<double>(), 400.0, 5.0);
  EXPECT_NEAR(measured["width_mm"].get<double>(), 300.0, 5.0);
  EXPECT_NEAR(measured["height_mm"].get<double>(), 200.0, 5.0);
  EXPECT_EQ(measured["device_id"], 1);
  // What the stream reported is what the history holds.
  ASSERT_TRUE(measured["id"].is_number());
  const nlohmann::json stored = get_json(client, "/api/v1/measurements/" + measured["id"].dump());
  for (const char* key : {"id", "time", "track_id", "length_mm", "width_mm", "height_mm",
                          "uncertainty_mm", "frames", "proof"}) {
    EXPECT_EQ(stored[key], measured[key]) << key;
  }
}

// A listener that comes back with the last id of an earlier run (ids of
// every run start above those of the runs before) is told it lost events,
// rather than waiting for ids that never come.
TEST_F(ServeTest, AListenerWithAnIdOfAnEarlierRunIsToldItLostEvents) {
  httplib::Client client = service_->client();
  const auto events =
      read_events(client, [](const auto& seen) { return !seen.empty(); }, {{"Last-Event-ID", "5"}});
  ASSERT_FALSE(events.empty());
  EXPECT_EQ(events.front().first, "lost");
}

// A page of another site whose name was made to point at 127.0.0.1 (DNS
// rebinding) sends its own name as Host: a service without a token answers
// only to this machine's loopback names.
TEST_F(ServeTest, AnswersOnlyToLoopbackNamesWithoutAToken) {
  httplib::Client client = service_->client();
  const std::string port = std::to_string(service_->port());
  const std::pair<std::string, int> cases[] = {{"127.0.0.1:" + port, 200},
                                               {"localhost:" + port, 200},
                                               {"LOCALHOST", 200},
                                               {"[::1]:" + port, 200},
                                               {"rebound.example:" + port, 403},
                                               {"127.0.0.1.rebound.example", 403}};
  for (const auto& [host, status] : cases) {
    for (const char* path : {"/api/v1/status", "/api/v1/measurements", "/"}) {
      const httplib::Result res = client.Get(path, {{"Host", host}});
      ASSERT_TRUE(res) << host;
      EXPECT_EQ(res->status, status) << host << " " << path << " " << res->body;
    }
  }
}

// One range is served; many are each a copy of the answer, and are refused.
TEST_F(ServeTest, ServesOneRangeAndRefusesMany) {
  httplib::Client client = service_->client();
  const httplib::Result one = client.Get("/", {{"Range", "bytes=0-9"}});
  ASSERT_TRUE(one);
  EXPECT_EQ(one->status, 206);
  EXPECT_EQ(one->body.size(), 10u);
  std::string many = "bytes=0-";
  for (int i = 0; i < 2600; ++i) many += ",0-";
  for (const char* path : {"/", "/api/v1/status"}) {
    const httplib::Result res = client.Get(path, {{"Range", many}});
    ASSERT_TRUE(res) << path;
    EXPECT_EQ(res->status, 416) << path;
    EXPECT_EQ(res->body.size(), 0u) << path;
    EXPECT_EQ(res->get_header_value("X-Boxdim-Error"), "2601 ranges asked for, at most 1 served");
  }
}

TEST_F(ServeTest, EveryEndpointAnswersInItsOwnForm) {
  httplib::Client client = service_->client();
  ASSERT_TRUE(eventually(
      [&] { return get_json(client, "/api/v1/status")["measurements_stored"].get<int>() >= 1; },
      kPatience));
  const nlohmann::json status = get_json(client, "/api/v1/status");
  EXPECT_EQ(status["engine"], "precise");
  ASSERT_EQ(status["cameras"].size(), 1u);
  // How fast depends on how loaded the machine is; that frames are counted does not.
  EXPECT_GT(status["cameras"][0]["frames_per_second"].get<double>(), 0.0);
  EXPECT_TRUE(status["history_problem"].is_null());

  const nlohmann::json list = get_json(client, "/api/v1/measurements?limit=1");
  ASSERT_EQ(list["measurements"].size(), 1u);
  const nlohmann::json newest = list["measurements"][0];
  EXPECT_EQ(newest["proof"], "/api/v1/measurements/" + newest["id"].dump() + "/proof.png");
  EXPECT_TRUE(get_json(client, "/api/v1/measurements?since=" + newest["id"].dump())["measurements"]
                  .empty());
  EXPECT_EQ(get_json(client, "/api/v1/measurements?since=" +
                                 newest["time"].get<std::string>())["measurements"][0]["id"],
            newest["id"]);

  const auto png_size = [&](const std::string& path) {
    const httplib::Result res = client.Get(path.c_str());
    if (!res || res->status != 200) return cv::Size();
    EXPECT_EQ(res->get_header_value("Content-Type"), "image/png") << path;
    const std::vector<unsigned char> bytes(res->body.begin(), res->body.end());
    return cv::imdecode(bytes, cv::IMREAD_COLOR).size();
  };
  EXPECT_EQ(png_size(newest["proof"]), cv::Size(640, 480));
  EXPECT_EQ(png_size("/api/v1/cameras/1/frame.png"), cv::Size(640, 480));

  const httplib::Result csv = client.Get("/api/v1/measurements.csv");
  ASSERT_TRUE(csv);
  EXPECT_EQ(csv->get_header_value("Content-Type"), "text/csv; charset=utf-8");
  EXPECT_EQ(csv->body.rfind(
                "id,time,device_id,track_id,length_mm,width_mm,height_mm,uncertainty_mm,frames,"
                "proof\r\n1,",
                0),
            0u)
      << csv->body;

  const httplib::Result page = client.Get("/");
  ASSERT_TRUE(page);
  EXPECT_EQ(page->get_header_value("Content-Type"), "text/html; charset=utf-8");
  EXPECT_NE(page->body.find("id=\"current-dimensions\""), std::string::npos);
}

struct BadRequest {
  const char* name;
  std::string method;
  std::string path;
  std::string body;
  int status;
  std::string error;  // a part of the message
};

void PrintTo(const BadRequest& c, std::ostream* os) { *os << c.name; }

class ServeBadRequestTest : public ServeTest, public ::testing::WithParamInterface<BadRequest> {};

TEST_P(ServeBadRequestTest, AnswersWithAStatusAndAJsonMessage) {
  const BadRequest& c = GetParam();
  httplib::Client client = service_->client();
  const httplib::Result res = c.method == "GET" ? client.Get(c.path.c_str())
                              : c.method == "OPTIONS"
                                  ? client.Options(c.path.c_str())
                                  : client.Post(c.path.c_str(), c.body, "application/octet-stream");
  ASSERT_TRUE(res) << "no answer";
  EXPECT_EQ(res->status, c.status) << res->body;
  const nlohmann::json body = nlohmann::json::parse(res->body, nullptr, false);
  ASSERT_TRUE(body.contains("error")) << res->body;
  EXPECT_NE(body["error"].get<std::string>().find(c.error), std::string::npos) << res->body;
  EXPECT_TRUE(get_json(client, "/api/v1/status").contains("engine")) << "and serves on";
}

INSTANTIATE_TEST_SUITE_P(
    Requests, ServeBadRequestTest,
    ::testing::Values(
        BadRequest{"unknown_id", "GET", "/api/v1/measurements/999999", "", 404,
                   "no measurement 999999"},
        BadRequest{"id_not_a_number", "GET", "/api/v1/measurements/abc", "", 404,
                   "no measurement abc"},
        BadRequest{"path_out_of_the_folder", "GET", "/api/v1/measurements/..%2F..%2Fetc/proof.png",
                   "", 404, "no "},
        BadRequest{"proof_of_unknown_id", "GET", "/api/v1/measurements/424242/proof.png", "", 404,
                   "no measurement 424242"},
        BadRequest{"huge_id", "GET", "/api/v1/measurements/99999999999999999999999", "", 404,
                   "no measurement"},
        BadRequest{"limit_zero", "GET", "/api/v1/measurements?limit=0", "", 400, "limit: '0'"},
        BadRequest{"since_garbage", "GET", "/api/v1/measurements?since=yesterday", "", 400,
                   "since: 'yesterday'"},
        BadRequest{"unknown_parameter", "GET", "/api/v1/measurements.csv?order=asc", "", 400,
                   "unknown parameter 'order'"},
        BadRequest{"camera_unknown", "GET", "/api/v1/cameras/9/frame.png", "", 404,
                   "camera 9 has sent no frame"},
        BadRequest{"no_such_endpoint", "GET", "/api/v1/boxes", "", 404, "no such resource"},
        BadRequest{"post", "POST", "/api/v1/measurements", "{}", 405, "only GET"},
        BadRequest{"options", "OPTIONS", "/api/v1/status", "", 405, "only GET"},
        BadRequest{"oversized_body", "POST", "/api/v1/measurements", std::string(1 << 20, 'x'), 413,
                   "request too large"},
        BadRequest{"oversized_address", "GET",
                   "/api/v1/measurements?since=" + std::string(9000, '1'), "", 414,
                   "request address too long"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(ServeToken, EveryApiCallNeedsTheBearerTokenButThePageDoesNot) {
  testing::TempDir data;
  Service service(data.file("data"), {"--token", "s3cret-TOKEN-4"});
  ASSERT_GT(service.port(), 0) << service.errors();
  httplib::Client client = service.client();
  struct Case {
    httplib::Headers headers;
    int status;
  };
  // The token as it is, and only so: not without its scheme, nor with
  // something after a NUL byte (sent percent-encoded, which the server's
  // header parsing decodes).
  for (const Case& c : {Case{{}, 401}, Case{{{"Authorization", "Bearer wrong"}}, 401},
                        Case{{{"Authorization", "s3cret-TOKEN-4"}}, 401},
                        Case{{{"Authorization", "Bearer s3cret-TOKEN-4%00junk"}}, 401},
                        Case{{{"Authorization", "Bearer s3cret-TOKEN-4"}}, 200}}) {
    for (const char* path : {"/api/v1/status", "/api/v1/measurements", "/api/v1/nothing"}) {
      const httplib::Result res = client.Get(path, c.headers);
      ASSERT_TRUE(res);
      const int expected =
          c.status == 200 && std::string(path) == "/api/v1/nothing" ? 404 : c.status;
      EXPECT_EQ(res->status, expected) << path << " " << res->body;
    }
  }
  const httplib::Result page = client.Get("/");
  ASSERT_TRUE(page);
  EXPECT_EQ(page->status, 200);
  // Guessing shows on the log, without a line for every guess.
  const std::string errors = service.errors();
  EXPECT_NE(errors.find("1 request with a wrong or missing token, the last from 127.0.0.1"),
            std::string::npos)
      << errors;
  EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
}

// Connections that never send a request, and event-stream listeners that
// never read, hold a thread each: the first are let go after the request
// timeout, the second are held to their number, and the API goes on
// answering.
TEST(ServeLimits, IdleConnectionsAndListenersDoNotStopTheApi) {
  testing::TempDir data;
  Service service(data.file("data"),
                  {"--max-connections", "8", "--max-listeners", "2", "--request-timeout", "1"});
  ASSERT_GT(service.port(), 0) << service.errors();
  std::vector<int> idle;
  for (int i = 0; i < 24; ++i) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(service.port()));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    idle.push_back(fd);
  }
  std::atomic<bool> stop{false};
  std::vector<std::thread> listeners;
  for (int i = 0; i < 2; ++i) {
    listeners.emplace_back([&] {
      httplib::Client client = service.client();
      client.Get("/api/v1/events", [&](const char*, std::size_t) { return !stop.load(); });
    });
  }
  httplib::Client client = service.client();
  ASSERT_TRUE(eventually(
      [&] { return get_json(client, "/api/v1/status")["event_listeners"].get<int>() == 2; },
      kPatience));
  const httplib::Result third = client.Get("/api/v1/events");
  ASSERT_TRUE(third);
  EXPECT_EQ(third->status, 503) << third->body;
  const auto asked = std::chrono::steady_clock::now();
  EXPECT_EQ(get_json(client, "/api/v1/status")["engine"], "precise");
  EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(15));
  stop = true;
  for (std::thread& t : listeners) t.join();
  for (const int fd : idle) ::close(fd);
}

struct Refusal {
  const char* name;
  std::vector<std::string> args;
  int status;
  std::string message;
};

void PrintTo(const Refusal& c, std::ostream* os) { *os << c.name; }

class ServeRefusalTest : public ::testing::TestWithParam<Refusal> {};

TEST_P(ServeRefusalTest, StopsWithOneLineNamingTheInput) {
  testing::TempDir dir;
  std::ofstream(dir.file("a-file")) << "x";
  // A port that is taken: one this test listens on.
  httplib::Server taken;
  const int taken_port = taken.bind_to_any_port("127.0.0.1");
  std::vector<std::string> argv = {BOXDIM_CLI_PROGRAM, "serve"};
  for (std::string arg : GetParam().args) {
    arg = std::regex_replace(arg, std::regex("TAKEN"), std::to_string(taken_port));
    arg = std::regex_replace(arg, std::regex("DIR"), dir.path().string());
    argv.push_back(arg);
  }
  ChildProcess serve(argv, {{"BOXDIM_CAMERA", std::nullopt}}, dir.file("out"), dir.file("err"));
  EXPECT_EQ(serve.wait(kPatience), GetParam().status);
  std::string expected =
      std::regex_replace(GetParam().message, std::regex("TAKEN"), std::to_string(taken_port));
  expected = std::regex_replace(expected, std::regex("DIR"), dir.path().string());
  EXPECT_EQ(read_text(dir.file("err")), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, ServeRefusalTest,
    ::testing::Values(
        Refusal{"any_address_without_token",
                {"--listen", "0.0.0.0:0"},
                2,
                "boxdim-cli: --listen: '0.0.0.0:0' can be reached from other machines: give a "
                "--token\n"},
        Refusal{"no_port",
                {"--listen", "127.0.0.1"},
                2,
                "boxdim-cli: --listen: '127.0.0.1' is not of the form ADDR:PORT\n"},
        Refusal{"port_too_high",
                {"--listen", "127.0.0.1:70000"},
                2,
                "boxdim-cli: --listen: '127.0.0.1:70000' needs a port from 0 to 65535\n"},
        Refusal{"empty_token", {"--token", ""}, 2, "boxdim-cli: --token: must not be empty\n"},
        Refusal{"short_token",
                {"--listen", "0.0.0.0:0", "--token", "x"},
                2,
                "boxdim-cli: --token: needs at least 12 characters (a guessable one protects "
                "nothing)\n"},
        Refusal{"blank_token",
                {"--token", "            "},
                2,
                "boxdim-cli: --token: must not hold spaces or control characters\n"},
        Refusal{"a_name_that_starts_like_loopback",
                {"--listen", "127.evil.invalid:0"},
                2,
                "boxdim-cli: --listen: '127.evil.invalid:0' can be reached from other machines: "
                "give a --token\n"},
        Refusal{"station_engine",
                {"--engine", "station"},
                2,
                "boxdim-cli: --engine: serve records the precise engine's measured boxes; "
                "'station' gives none\n"},
        Refusal{"port_taken",
                {"--listen", "127.0.0.1:TAKEN", "--data", "DIR/data"},
                4,
                "boxdim-cli serve: cannot listen on 127.0.0.1:TAKEN (in use, or not an address of "
                "this machine)\n"},
        Refusal{"data_in_a_file",
                {"--listen", "127.0.0.1:0", "--data", "DIR/a-file/data"},
                2,
                "boxdim-cli serve: DIR/a-file/data: cannot be created (Not a directory)\n"}),
    [](const auto& info) { return std::string(info.param.name); });

// A history that cannot be read any more (its table dropped by another
// program) leaves the status answering, saying why.
TEST(ServeDataFolder, AnUnreadableHistoryLeavesTheStatusAnswering) {
  testing::TempDir data;
  Service service(data.file("data"), {}, "placed=100");
  ASSERT_GT(service.port(), 0) << service.errors();
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(data.file("data/history.sqlite3").c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db, "DROP TABLE measurements", nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_close(db);
  httplib::Client client = service.client();
  const nlohmann::json status = get_json(client, "/api/v1/status");
  EXPECT_TRUE(status["measurements_stored"].is_null());
  ASSERT_TRUE(status["history_problem"].is_string()) << status.dump();
  EXPECT_NE(status["history_problem"].get<std::string>().find("no such table"), std::string::npos)
      << status.dump();
}

// Two services on one data folder would store every box twice: the second
// stops, naming the folder and the process that holds it.
TEST(ServeDataFolder, ASecondServiceOnTheSameFolderStopsWithItsReason) {
  testing::TempDir data;
  Service first(data.file("data"));
  ASSERT_GT(first.port(), 0) << first.errors();
  testing::TempDir dir;
  ChildProcess second(
      {BOXDIM_CLI_PROGRAM, "serve", "--listen", "127.0.0.1:0", "--data", data.file("data")},
      {{"BOXDIM_CAMERA", std::nullopt}}, dir.file("out"), dir.file("err"));
  EXPECT_EQ(second.wait(kPatience), 2);
  EXPECT_TRUE(std::regex_match(
      read_text(dir.file("err")),
      std::regex("boxdim-cli serve: " + data.file("data") +
                 ": in use by another boxdim \\(process [0-9]+\\); one service keeps one data "
                 "folder\n")))
      << read_text(dir.file("err"));
}

// Measurements reported before a kill -9 are all there after a restart, and
// the database file is sound.
TEST(ServeDurability, WhatWasReportedSurvivesKillNine) {
  testing::TempDir data;
  std::vector<nlohmann::json> reported;
  {
    Service service(data.file("data"), {}, "placed=0.1,removed=0.9,every=1.4,seed=5");
    ASSERT_GT(service.port(), 0) << service.errors();
    httplib::Client client = service.client();
    // Killed as soon as the stream reports the third measurement, while the
    // boxes keep coming.
    read_events(client, [&](const auto& seen) {
      reported.clear();
      for (const auto& [name, event] : seen) {
        if (name == "measured") reported.push_back(event);
      }
      return reported.size() >= 3;
    });
    service.process().send(SIGKILL);
    EXPECT_EQ(service.process().wait(kPatience), 128 + SIGKILL);
  }
  ASSERT_EQ(reported.size(), 3u);
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(data.file("data/history.sqlite3").c_str(), &db), SQLITE_OK);
  sqlite3_stmt* check = nullptr;
  sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &check, nullptr);
  ASSERT_EQ(sqlite3_step(check), SQLITE_ROW);
  EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(check, 0)), "ok");
  sqlite3_finalize(check);
  sqlite3_close(db);

  Service again(data.file("data"), {}, "placed=100");
  ASSERT_GT(again.port(), 0) << again.errors();
  httplib::Client client = again.client();
  for (const nlohmann::json& event : reported) {
    const nlohmann::json stored = get_json(client, "/api/v1/measurements/" + event["id"].dump());
    EXPECT_EQ(stored["length_mm"], event["length_mm"]);
    EXPECT_EQ(stored["time"], event["time"]);
    const httplib::Result proof = client.Get(event["proof"].get<std::string>().c_str());
    ASSERT_TRUE(proof);
    EXPECT_EQ(proof->status, 200) << "its proof picture too";
  }
}

}  // namespace
}  // namespace boxdim
