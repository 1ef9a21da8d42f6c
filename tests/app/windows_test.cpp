#include "app/windows.h"

#include <gtest/gtest.h>

#include <opencv2/highgui.hpp>

#include "app_fixture.h"

namespace boxdim::testing {
namespace {

struct WindowCase {
  const char* name;
  int stream_type;
  std::map<std::string, int> created;  // name -> flags
  std::vector<std::string> destroyed;  // when replacing
  std::vector<std::string> probed;
};

class CreateWindowsTest : public AppTest, public ::testing::WithParamInterface<WindowCase> {};

// Device index 2: the windows are numbered 3. Only existing windows are destroyed.
TEST_P(CreateWindowsTest, CreatesTheStreamsWindowsAfterDestroyingThePrecedingStreamsOnes) {
  create_windows(shell, 2, GetParam().stream_type, true);
  EXPECT_EQ(screen.windows, GetParam().created);
  EXPECT_TRUE(screen.destroyed.empty());
  EXPECT_EQ(screen.probed, GetParam().probed);
  if (!screen.probed.empty()) {
    EXPECT_EQ(screen.probe_user_data, &shell) << "the probe's console";
  }

  FakeDisplay full_screen;
  for (const char* name : {"raw_3", "depth_3", "ir_3", "RGB_3", "RGBD_depth_3", "RGBD_RGB_3"}) {
    full_screen.windows[name] = 1;
  }
  Shell full_shell(full_screen, out);
  create_windows(full_shell, 2, GetParam().stream_type, true);
  EXPECT_EQ(full_screen.destroyed, GetParam().destroyed);
  create_windows(full_shell, 2, GetParam().stream_type, false);
  EXPECT_EQ(full_screen.destroyed, GetParam().destroyed) << "destroys only when replacing";
}

INSTANTIATE_TEST_SUITE_P(
    ByStreamType, CreateWindowsTest,
    ::testing::Values(WindowCase{"Stream0", 0, {}, {}, {}},
                      WindowCase{"Stream1", 1, {{"raw_3", 1}}, {"RGBD_depth_3", "RGBD_RGB_3"}, {}},
                      WindowCase{"Stream2", 2, {{"depth_3", 0}}, {"raw_3"}, {"depth_3"}},
                      WindowCase{"Stream3", 3, {{"RGB_3", 1}}, {"depth_3"}, {}},
                      WindowCase{
                          "Stream4", 4, {{"depth_3", 1}, {"ir_3", 1}}, {"RGB_3"}, {"depth_3"}},
                      WindowCase{"Stream5", 5, {{"depth_3", 1}, {"RGB_3", 1}}, {"ir_3"}, {}},
                      WindowCase{"Stream6", 6, {{"depth_3", 1}, {"ir_3", 1}, {"RGB_3", 1}}, {}, {}},
                      WindowCase{"Stream7",
                                 7,
                                 {{"RGBD_depth_3", 1}, {"RGBD_RGB_3", 1}},
                                 {"depth_3", "ir_3", "RGB_3"},
                                 {}}),
    CaseName());

TEST_F(AppTest, ShowsOnlyInWindowsThatStillExist) {
  screen.windows["depth_1"] = 1;
  const cv::Mat image(2, 2, CV_8UC1, cv::Scalar(4));
  show_if_window_exists(screen, "depth_1", image);
  show_if_window_exists(screen, "raw_1", image);  // closed by the user
  ASSERT_EQ(screen.shown.size(), 1u);
  EXPECT_EQ(screen.shown[0].first, "depth_1");
  EXPECT_EQ(screen.windows.count("raw_1"), 0u) << "not reopened";
}

TEST(WindowName, KeepsAtMostFifteenCharacters) {
  EXPECT_EQ(window_name("RGBD_depth_%d", 7), "RGBD_depth_7");
  EXPECT_EQ(window_name("RGBD_depth_%d", 12345), "RGBD_depth_1234");
}

struct MouseCase {
  const char* name;
  int event;
  int flags;
  std::string output;
  int x;  // the probe afterwards
  int y;
};

class MouseTest : public AppTest, public ::testing::WithParamInterface<MouseCase> {};

// The probe starts at (5, 6); the event happens at (40, 30).
TEST_P(MouseTest, FollowsThePointerWhileTheLeftButtonIsHeld) {
  g_mouse_x = 5;
  g_mouse_y = 6;
  on_mouse(GetParam().event, 40, 30, GetParam().flags, &shell);
  EXPECT_EQ(out.str(), GetParam().output);
  EXPECT_EQ(g_mouse_x, GetParam().x);
  EXPECT_EQ(g_mouse_y, GetParam().y);
}

INSTANTIATE_TEST_SUITE_P(
    Events, MouseTest,
    ::testing::Values(
        MouseCase{"Press", cv::EVENT_LBUTTONDOWN, 0, "x:40 y:30\n", 40, 30},
        MouseCase{"Drag", cv::EVENT_MOUSEMOVE, cv::EVENT_FLAG_LBUTTON, "x:40 y:30\n", 40, 30},
        MouseCase{"DragWithCtrl", cv::EVENT_MOUSEMOVE,
                  cv::EVENT_FLAG_LBUTTON | cv::EVENT_FLAG_CTRLKEY, "x:40 y:30\n", 40, 30},
        MouseCase{"RightDrag", cv::EVENT_MOUSEMOVE, cv::EVENT_FLAG_RBUTTON, "", 5, 6},
        MouseCase{"Release", cv::EVENT_LBUTTONUP, 0, "", -1, -1}),
    CaseName());

}  // namespace
}  // namespace boxdim::testing
