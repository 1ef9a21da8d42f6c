#include "app/key_commands.h"

#include <gtest/gtest.h>

#include "app_fixture.h"

namespace boxdim::testing {
namespace {

constexpr std::int32_t kFailure = 7;

// Two devices, ids 1 and 2; the second never opened, and only its filter and
// flip switches on.
class KeyTest : public AppTest {
 protected:
  KeyTest() {
    sdk().add_device(1, 1);
    sdk().add_device(2, 3).switches = {{"Filter", true}, {"Flip", true}};
    session = session_of_fake();
    session.opened[0] = true;
  }
  Session session{shell};
};

struct KeyCase {
  const char* name;
  int key;
  const char* failing;  // a call that fails, or nullptr
  const char* output;
  const char* calls;
};

class KeyTableTest : public KeyTest, public ::testing::WithParamInterface<KeyCase> {};

TEST_P(KeyTableTest, RunsItsCommandOnEveryDeviceOpenOrNot) {
  if (GetParam().failing != nullptr) sdk().fail(GetParam().failing, kFailure);
  dispatch_key(session, GetParam().key);
  EXPECT_EQ(out.str(), GetParam().output);
  EXPECT_EQ(sdk().calls_text(), GetParam().calls);
  EXPECT_FALSE(session.quit);
}

INSTANTIATE_TEST_SUITE_P(
    Table, KeyTableTest,
    ::testing::Values(
        KeyCase{"AddFilterFails", 'a', "AddFilter(1,4)",
                "AddFilter errorcode:7\nAddFilter success\n", "AddFilter(1,4) AddFilter(2,4)"},
        KeyCase{"Filter", 'f', nullptr,
                "GetFilter success, bFilter = 0\nSetFilter success, bFilter = 1\n"
                "GetFilter success, bFilter = 1\nSetFilter success, bFilter = 0\n",
                "GetFilter(1) SetFilter(1,1) GetFilter(2) SetFilter(2,0)"},
        KeyCase{"Flip", 'i', nullptr,
                "GetFlip success, bFlip = 0\nSetFlip success, bFlip = 1\n"
                "GetFlip success, bFlip = 1\nSetFlip success, bFlip = 0\n",
                "GetFlip(1) SetFlip(1,1) GetFlip(2) SetFlip(2,0)"},
        // A failed read is reported and the switch still set, from false.
        KeyCase{"SwitchFailures", 'm', "GetMirror(1)",
                "GetMirror errorcode:7\nSetMirror success, bMirror = 1\n"
                "GetMirror success, bMirror = 0\nSetMirror success, bMirror = 1\n",
                "GetMirror(1) SetMirror(1,1) GetMirror(2) SetMirror(2,1)"},
        KeyCase{"SetFails", 't', "SetTrailFilter(2,1)",
                "GetTrailFilter success, bFilter = 0\nSetTrailFilter success, bFilter = 1\n"
                "GetTrailFilter success, bFilter = 0\nSetTrailFilter errorcode:7\n",
                "GetTrailFilter(1) SetTrailFilter(1,1) GetTrailFilter(2) SetTrailFilter(2,1)"},
        // The stop's status is kept, never reported.
        KeyCase{"Stop", 'c', "StopStreaming", "", "StopStreaming(1) StopStreaming(2)"}),
    CaseName());

TEST_F(KeyTest, KeysWithoutCommandOrOnlyAFlagChangeNothingVisibleAndEscQuits) {
  for (const int key : std::vector<int>{'e', 'p', 'q', 'v', 'A', 'F', 'x', '1', -1}) {
    dispatch_key(session, key);
  }
  EXPECT_FALSE(session.quit);
  dispatch_key(session, 27);
  EXPECT_TRUE(session.quit);
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(sdk().calls_text(), "");
  EXPECT_TRUE(screen.shown.empty() && screen.windows.empty());
}

TEST_F(KeyTest, FlagKeysFlipOnlyTheirOwnMap) {
  using Flags = std::map<std::int32_t, bool>;
  const auto flags = [] { return std::vector<Flags>{g_save_enabled, g_toggle_p, g_toggle_q}; };
  const Flags on{{1, true}, {2, true}};
  const Flags off{{1, false}, {2, false}};
  dispatch_key(session, 'v');
  EXPECT_EQ(flags(), (std::vector<Flags>{on, {}, {}}));
  dispatch_key(session, 'p');
  dispatch_key(session, 'q');
  dispatch_key(session, 'q');
  dispatch_key(session, 'v');
  EXPECT_EQ(flags(), (std::vector<Flags>{off, on, off}));
}

struct IntegralCase {
  const char* name;
  int key;
  std::int32_t current;
  const char* failing;
  const char* tail;  // what follows the two reading lines
  std::int32_t final_time;
};

class IntegralTimeTest : public AppTest, public ::testing::WithParamInterface<IntegralCase> {};

// Range 100 to 2000; the limit is checked on the current value only.
TEST_P(IntegralTimeTest, StepsByOneHundredUntilTheCurrentValueReachesALimit) {
  sdk().add_device(1, 1).integral_time = GetParam().current;
  if (GetParam().failing != nullptr) sdk().fail(GetParam().failing, kFailure);
  Session session = session_of_fake();
  dispatch_key(session, GetParam().key);
  EXPECT_EQ(out.str(),
            "GetIntegralTimeRange success, Min = 100, Max = 2000\n"
            "GetIntegralTime success, nIntegralTime = " +
                std::to_string(GetParam().current) + "\n" + GetParam().tail);
  EXPECT_EQ(sdk().device(1)->integral_time, GetParam().final_time);
}

INSTANTIATE_TEST_SUITE_P(
    Table, IntegralTimeTest,
    ::testing::Values(
        IntegralCase{"UpPassesMax", 'u', 1950, nullptr,
                     "SetIntegralTime success, nIntegralTime = 2050\n", 2050},
        IntegralCase{"UpAtMax", 'u', 2000, nullptr, "IntegralTime already be Max\n", 2000},
        IntegralCase{"DownPassesMin", 'd', 150, nullptr,
                     "SetIntegralTime success, nIntegralTime = 50\n", 50},
        IntegralCase{"DownAtMin", 'd', 100, nullptr, "IntegralTime already be Min\n", 100},
        IntegralCase{"SetFails", 'u', 500, "SetIntegralTime", "SetIntegralTime errorcode:7\n",
                     500}),
    CaseName());

TEST_F(AppTest, IntegralTimeReadFailuresAreReportedAndTheKeptValuesUsed) {
  sdk().add_device(1, 1);
  sdk().fail("GetIntegralTimeRange", 3);
  sdk().fail("GetIntegralTime", 4);
  Session session = session_of_fake();
  session.integral_max[0] = 700;
  session.integral_time[0] = 600;
  dispatch_key(session, 'u');
  EXPECT_EQ(out.str(),
            "GetIntegralTimeRange errorcode:3\nGetIntegralTime errorcode:4\n"
            "SetIntegralTime success, nIntegralTime = 700\n");
  EXPECT_EQ(session.integral_time[0], 700);
}

TEST_F(AppTest, IntrinsicsKeyPrintsAndLoadsThemIntoStateAndInterface) {
  sdk().add_device(1, 1).intrinsics = {640, 480, {}, 500.75f, 501.5f, 319.9f, 239.25f};
  Session session = session_of_fake();
  dispatch_key(session, 'b');
  EXPECT_EQ(out.str(), "500.75 501.5 319.9 239.25\n");
  EXPECT_EQ(sdk().calls_text(), "GetIntric(1,2)");
  const CameraIntrinsics& loaded = g_measurement_state.intrinsics;
  EXPECT_EQ((std::vector<float>{loaded.fx, loaded.fy, loaded.cx, loaded.cy}),
            (std::vector<float>{500.75f, 501.5f, 319.9f, 239.25f}));
  EXPECT_EQ((std::vector<int>{g_interface->fx(), g_interface->fy(), g_interface->cx(),
                              g_interface->cy()}),
            (std::vector<int>{500, 501, 319, 239}));
}

struct ResolutionCase {
  const char* name;
  std::int32_t device_type;
  std::int32_t stream_type;  // 0: no stream type entry
  int key;
  const char* output;  // non-empty: every call fails
  const char* calls;
};

class ResolutionTest : public AppTest, public ::testing::WithParamInterface<ResolutionCase> {};

TEST_P(ResolutionTest, SetsTheResolutionsOfItsDeviceTypeAndRestartsTheStream) {
  sdk().add_device(1, GetParam().device_type);
  if (GetParam().stream_type != 0) g_stream_types[1] = {1, GetParam().stream_type};
  if (*GetParam().output != '\0') {
    sdk().fail("SetFrameResolution", kFailure);
    sdk().fail("ChangeStreaming", kFailure);
  }
  Session session = session_of_fake();
  dispatch_key(session, GetParam().key);
  EXPECT_EQ(out.str(), GetParam().output);
  EXPECT_EQ(sdk().calls_text(), GetParam().calls);
}

// The high command reports with the low labels, and a failure stops nothing.
INSTANTIATE_TEST_SUITE_P(
    Table, ResolutionTest,
    ::testing::Values(
        ResolutionCase{"Low", 1, 2, 'l', "",
                       "SetFrameResolution(1,2,1) SetFrameResolution(1,4,2) ChangeStreaming(1,2)"},
        ResolutionCase{"High", 2, 5, 'h', "",
                       "SetFrameResolution(1,2,2) SetFrameResolution(1,4,4) ChangeStreaming(1,5)"},
        ResolutionCase{"AllFail", 1, 2, 'h',
                       "ChangeFrameResolution Depth Low errorcode:7\n"
                       "ChangeFrameResolution RGB Low errorcode:7\n"
                       "ChangeFrameResolution ChangeStreaming errorcode:7\n",
                       "SetFrameResolution(1,2,2) SetFrameResolution(1,4,4) ChangeStreaming(1,2)"},
        ResolutionCase{"DepthOnly", 3, 4, 'h', "",
                       "SetFrameResolution(1,2,2) ChangeStreaming(1,4)"},
        ResolutionCase{"Aligned", 1, 7, 'l', "", ""},
        ResolutionCase{"OtherType", 4, 4, 'h', "", ""},
        ResolutionCase{"NoStreamType", 1, 0, 'l', "", ""}),
    CaseName());

struct StreamCase {
  const char* name;
  std::int32_t device_type;
  std::int32_t current;
  const char* failing;
  std::int32_t stored;  // stream type afterwards
  const char* calls;
  const char* output;  // empty: the windows are rebuilt
};

class StreamCycleTest : public AppTest, public ::testing::WithParamInterface<StreamCase> {};

// Device id 5 in first place: the calls name the id, the windows the position.
TEST_P(StreamCycleTest, StoresTheNextStreamSetsItsResolutionAndRebuildsTheWindows) {
  sdk().add_device(5, GetParam().device_type);
  g_stream_types[5] = {5, GetParam().current};
  if (GetParam().failing != nullptr) sdk().fail(GetParam().failing, kFailure);
  Session session = session_of_fake();
  dispatch_key(session, 's');
  EXPECT_EQ(g_stream_types[5], std::make_pair(5, GetParam().stored));
  EXPECT_EQ(sdk().calls_text(), GetParam().calls);
  EXPECT_EQ(out.str(), GetParam().output);
  const bool rebuilt = std::string(GetParam().calls).find("Change") != std::string::npos &&
                       std::string(GetParam().output).empty();
  EXPECT_EQ(!screen.windows.empty(), rebuilt);
  for (const auto& [window, flags] : screen.windows) EXPECT_EQ(window.back(), '1') << window;
}

INSTANTIATE_TEST_SUITE_P(
    Table, StreamCycleTest,
    ::testing::Values(StreamCase{"Type3DepthToFour", 3, 2, nullptr, 4,
                                 "SetFrameResolution(5,2,2) ChangeStreaming(5,4)", ""},
                      StreamCase{"Type3KeepsOthers", 3, 5, nullptr, 5, "ChangeStreaming(5,5)", ""},
                      StreamCase{"Type4FourToRaw", 4, 4, nullptr, 1,
                                 "SetFrameResolution(5,1,1) ChangeStreaming(5,1)", ""},
                      StreamCase{"Type5RawToDepth", 5, 1, nullptr, 2,
                                 "SetFrameResolution(5,2,1) ChangeStreaming(5,2)", ""},
                      StreamCase{"Type6FourToDepth", 6, 4, nullptr, 2,
                                 "SetFrameResolution(5,2,2) ChangeStreaming(5,2)", ""},
                      StreamCase{"Type7Skipped", 7, 2, nullptr, 2, "", ""},
                      // The new type is stored even when the change never happens.
                      StreamCase{"ColourFails", 2, 6, "SetFrameResolution(5,4,4)", 7,
                                 "SetFrameResolution(5,2,2) SetFrameResolution(5,4,4)",
                                 "SetFrameResolution RGB errorcode:7\n"},
                      StreamCase{"Type4DepthFailsAsRaw", 4, 1, "SetFrameResolution", 2,
                                 "SetFrameResolution(5,2,1)",
                                 "SetFrameResolution RAW errorcode:7\n"},
                      StreamCase{"ChangeFails", 1, 2, "ChangeStreaming", 3, "ChangeStreaming(5,3)",
                                 "ChangeFrameResolution ChangeStreaming errorcode:7\n"}),
    CaseName());

// Only the changes into and out of the aligned stream set resolutions.
TEST_F(AppTest, StreamCycleOfTypes1And2VisitsEveryStreamType) {
  sdk().add_device(1, 2);
  g_stream_types[1] = {1, 1};
  Session session = session_of_fake();
  std::vector<std::int32_t> visited;
  for (int press = 0; press < 7; ++press) {
    dispatch_key(session, 's');
    visited.push_back(g_stream_types[1].second);
  }
  EXPECT_EQ(visited, (std::vector<std::int32_t>{2, 3, 4, 5, 6, 7, 1}));
  EXPECT_EQ(sdk().calls_named("SetFrameResolution"),
            (std::vector<std::string>{"SetFrameResolution(1,2,2)", "SetFrameResolution(1,4,4)",
                                      "SetFrameResolution(1,1,2)"}));
}

}  // namespace
}  // namespace boxdim::testing
