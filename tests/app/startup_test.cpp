#include "app/startup.h"

#include <gtest/gtest.h>

#include "app/main_loop.h"
#include "app/program.h"
#include "app_fixture.h"

namespace boxdim::testing {
namespace {

// The console of one device of type 1 with one frame type and one resolution.
const std::string kBannerLines = "CorvaneSDK Test Demo\nSDKVersion:9.8.7\n";
const std::string kSerial = "SN0:SN-A\n";
const std::string kHardware = "HWVersion0:HW-1\n";
const std::string kFrameType = "FrameType0:2\n";
const std::string kResolution = "FrameType0:2,Resolution0:2\n";
const std::string kDevice = kSerial + kHardware + kFrameType + kResolution;
const std::string kStopped = "StopStreaming Success\n";

class StartupTest : public AppTest {};

TEST_F(StartupTest, ReportsEveryDeviceAndStartsItByType) {
  FakeDevice& first = sdk().add_device(1, 1);
  first.frame_types = {2, 4};
  first.resolutions = {{2, {1, 2}}, {4, {2, 4}}};
  FakeDevice& second = sdk().add_device(2, 4);
  second.serial = "SN-B";
  second.hw_version = "HW-2";
  // Keys after the Esc that ends the loop only end the final wait: no command runs.
  screen.keys = {27, 'a', 'v', 27};
  run_program(shell);
  EXPECT_EQ(out.str(),
            "CorvaneSDK Test Demo\n"
            "SDKVersion:9.8.7\n"
            "SN0:SN-A\n"
            "HWVersion0:HW-1\n"
            "FrameType0:2\n"
            "FrameType0:2,Resolution0:1\n"
            "FrameType0:2,Resolution1:2\n"
            "FrameType1:4\n"
            "FrameType1:4,Resolution0:2\n"
            "FrameType1:4,Resolution1:4\n"
            "SN1:SN-B\n"
            "HWVersion1:HW-2\n"
            "FrameType0:2\n"
            "FrameType0:2,Resolution0:2\n"
            "StopStreaming Success\n"
            "StopStreaming Success\n");
  EXPECT_EQ(sdk().calls_named("StartStreaming"),
            (std::vector<std::string>{"StartStreaming(1,2)", "StartStreaming(2,4)"}));
  EXPECT_EQ(sdk().calls_named("StopStreaming"),
            (std::vector<std::string>{"StopStreaming(1)", "StopStreaming(2)"}));
  // Windows are numbered by list position, from 1.
  EXPECT_EQ(screen.windows,
            (std::map<std::string, int>{{"depth_1", 0}, {"depth_2", 1}, {"ir_2", 1}}));
  EXPECT_EQ(sdk().calls.back(), "UnInitSDK()");
  EXPECT_TRUE(g_save_enabled.empty());
  EXPECT_FALSE(g_running);
  EXPECT_FALSE(g_fps_thread.joinable());
}

struct ConfigurationCase {
  const char* name;
  std::int32_t device_type;
  const char* calls;  // SetFrameResolution and StartStreaming, in order
  const char* windows;
};

class ConfigurationTest : public AppTest,
                          public ::testing::WithParamInterface<ConfigurationCase> {};

TEST_P(ConfigurationTest, FollowsTheDeviceTypeTable) {
  sdk().add_device(1, GetParam().device_type);
  Session session(shell);
  ASSERT_TRUE(start_up(session));
  stop_fps_ticker();
  std::string calls;
  for (const std::string& call : sdk().calls) {
    if (call.rfind("SetFrameResolution", 0) == 0 || call.rfind("StartStreaming", 0) == 0) {
      calls += (calls.empty() ? "" : " ") + call;
    }
  }
  EXPECT_EQ(calls, GetParam().calls);
  EXPECT_EQ(screen.window_list(), GetParam().windows);
  const bool streams = !calls.empty();
  EXPECT_EQ(session.opened, std::vector<bool>{streams});
  EXPECT_EQ(g_stream_types.count(1), streams ? 1u : 0u);
  EXPECT_NE(out.str().find(kDevice), std::string::npos) << "listed whatever its type";
}

INSTANTIATE_TEST_SUITE_P(
    ByDeviceType, ConfigurationTest,
    ::testing::Values(
        ConfigurationCase{"Type1", 1,
                          "SetFrameResolution(1,2,2) SetFrameResolution(1,4,4) StartStreaming(1,2)",
                          "depth_1"},
        ConfigurationCase{"Type3", 3, "SetFrameResolution(1,2,1) StartStreaming(1,4)",
                          "depth_1 ir_1"},
        ConfigurationCase{"Type5", 5, "SetFrameResolution(1,2,1) StartStreaming(1,2)", "depth_1"},
        ConfigurationCase{"Type6", 6, "SetFrameResolution(1,2,2) StartStreaming(1,2)", "depth_1"},
        ConfigurationCase{"Type8", 8, "", ""}),
    CaseName());

struct FailureCase {
  const char* name;
  const char* call;
  std::string output;  // the whole console, one device of type 1
};

class StartupFailureTest : public AppTest, public ::testing::WithParamInterface<FailureCase> {};

TEST_P(StartupFailureTest, ReportsWithItsLabelAndGoesOn) {
  sdk().add_device(1, 1);
  sdk().fail(GetParam().call, 3);
  run_program(shell);
  EXPECT_EQ(out.str(), GetParam().output);
}

INSTANTIATE_TEST_SUITE_P(
    Labels, StartupFailureTest,
    ::testing::Values(
        FailureCase{"VersionLength", "GetSDKVersion(null)",
                    "CorvaneSDK Test Demo\nGetSDKVersion errorcode:3\n" + kDevice + kStopped},
        FailureCase{"Version", "GetSDKVersion(buffer)",
                    "CorvaneSDK Test Demo\nGetSDKVersion2 errorcode:3\n" + kDevice + kStopped},
        // Enumeration still runs after a failed initialisation.
        FailureCase{"InitSDK", "InitSDK",
                    kBannerLines + "InitSDK errorcode:3\n" + kDevice + kStopped},
        FailureCase{"DeviceCount", "FindDevice(null)", kBannerLines + "FindDevice errorcode:3\n"},
        FailureCase{"DeviceList", "FindDevice(buffer)", kBannerLines + "FindDevice2 errorcode:3\n"},
        // A closed device repeats the last status at the stop.
        FailureCase{"OpenDevice", "OpenDevice",
                    kBannerLines + "OpenDevice errorcode:3\nStopStreaming errorcode:3\n"},
        FailureCase{"Serial", "GetDeviceSN(1,buffer)",
                    kBannerLines + "GetDeviceSN errorcode:3\n" + kHardware + kFrameType +
                        kResolution + kStopped},
        FailureCase{"Hardware", "GetDeviceHWVersion(1,buffer)",
                    kBannerLines + "SN0:SN-A\nGetDeviceHWVersion2 errorcode:3\n" + kFrameType +
                        kResolution + kStopped},
        FailureCase{"FrameTypeCount", "QueryDeviceSupportFrameType(1,null)",
                    kBannerLines + kSerial + kHardware +
                        "QueryDeviceSupportFrameType errorcode:3\n" + kStopped},
        FailureCase{"FrameTypes", "QueryDeviceSupportFrameType(1,buffer)",
                    kBannerLines + kSerial + kHardware +
                        "QueryDeviceSupportFrameType2 errorcode:3\n" + kStopped},
        FailureCase{"Resolutions", "QueryDeviceSupportResolution(1,2,buffer)",
                    kBannerLines + kSerial + kHardware + kFrameType +
                        "QueryDeviceSupportResolution2 errorcode:3\n" + kStopped},
        FailureCase{"ColourResolution", "SetFrameResolution(1,4,4)",
                    kBannerLines + kDevice +
                        "SetFrameResolution RGB errorcode:3\n"
                        "StopStreaming errorcode:3\n"},
        FailureCase{"StartStreaming", "StartStreaming",
                    kBannerLines + kDevice + "StartStreaming errorcode:3\n" +
                        "StopStreaming errorcode:3\n"},
        FailureCase{"StopStreaming", "StopStreaming",
                    kBannerLines + kDevice + "StopStreaming errorcode:3\n"},
        // The shutdown's report carries the initialiser's label.
        FailureCase{"UnInitSDK", "UnInitSDK",
                    kBannerLines + kDevice + kStopped + "InitSDK errorcode:3\n"}),
    CaseName());

TEST_F(StartupTest, EmptyAnswersSkipTheSecondQuery) {
  FakeDevice& device = sdk().add_device(1, 1);
  device.serial = "";
  device.frame_types = {};
  run_program(shell);
  EXPECT_EQ(out.str(), kBannerLines + kHardware + kStopped);
  EXPECT_EQ(sdk().calls_named("GetDeviceSN"), std::vector<std::string>{"GetDeviceSN(1,null)"});
  EXPECT_EQ(sdk().calls_named("QueryDeviceSupportFrameType"),
            std::vector<std::string>{"QueryDeviceSupportFrameType(1,null)"});
}

TEST_F(StartupTest, WithoutDevicesReportsFindDeviceWithZeroAndWaitsForEsc) {
  screen.keys = {'a', 'x', -1, 27};
  run_program(shell);
  EXPECT_EQ(out.str(), kBannerLines + "FindDevice errorcode:0\n");
  EXPECT_EQ(sdk().calls,
            (std::vector<std::string>{"GetSDKVersion(null)", "GetSDKVersion(buffer)", "InitSDK()",
                                      "FindDevice(null)", "UnInitSDK()"}));
  // Other keys in the final wait do nothing; only Esc ends it.
  EXPECT_EQ(screen.waits, (std::vector<int>{30, 30, 30, 30}));
  EXPECT_FALSE(g_fps_thread.joinable());
}

}  // namespace
}  // namespace boxdim::testing
