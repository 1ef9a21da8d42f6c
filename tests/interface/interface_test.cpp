// The exported detector as a program of one's own uses it: boxes found and
// measured through plain arrays, every unusable image refused with a reason,
// and the intrinsics, floor and seed doing what the header promises.
#include "interface/interface.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "scene/depth_scene.h"
#include "support/test_frames.h"

namespace boxdim {
namespace {

std::unique_ptr<Interface> seeded_interface() {
  std::unique_ptr<Interface> detector(Interface::CreateInterface());
  detector->SetSeed(1);
  return detector;
}

std::vector<Detection> detections_of(const Interface& detector) {
  std::vector<Detection> all(static_cast<std::size_t>(detector.DetectionCount()));
  for (int i = 0; i < detector.DetectionCount(); ++i) {
    EXPECT_TRUE(detector.GetDetection(i, &all[static_cast<std::size_t>(i)]));
  }
  return all;
}

SceneParameters three_boxes() {
  SceneParameters scene = testing::standard_scene();
  scene.camera_height_mm = 1300.0f;
  scene.noise = {2.0f, 0.2f, 0.005f};
  scene.other_boxes = {FloorBox{300, 200, 150, {-430, 150}, 20, {}},
                       FloorBox{200, 200, 300, {400, -100}, 60, {}}};
  return scene;
}

TEST(Interface, MeasuresEveryBoxOnTheFloorThroughPlainArrays) {
  const SceneParameters scene = three_boxes();
  const RenderedScene rendered = render_scene(scene);
  std::vector<SceneGroundTruth> truths = rendered.other_truths;
  truths.push_back(rendered.truth);

  const auto detector = seeded_interface();
  detector->SetExactIntrinsics(scene.intrinsics.fx, scene.intrinsics.fy, scene.intrinsics.cx,
                               scene.intrinsics.cy);
  ASSERT_EQ(detector->Detect(rendered.depth.ptr<std::uint16_t>(), 640, 480), 3)
      << detector->LastProblem();
  EXPECT_STREQ(detector->LastProblem(), "");
  for (const Detection& box : detections_of(*detector)) {
    ASSERT_EQ(box.status, DetectionStatus::kMeasured);
    // Its truth is the box whose top's centre is nearest.
    const SceneGroundTruth* truth = nullptr;
    double nearest = 1e9;
    for (const SceneGroundTruth& t : truths) {
      cv::Point2f centre(0.0f, 0.0f);
      for (const cv::Point2f& p : t.top_corners_px) centre += 0.25f * p;
      const double d = cv::norm(centre - cv::Point2f(box.center_px[0], box.center_px[1]));
      if (d < nearest) {
        nearest = d;
        truth = &t;
      }
    }
    ASSERT_LT(nearest, 3.0);
    EXPECT_NEAR(box.length_mm, truth->dimensions.box_length, 3.0f);
    EXPECT_NEAR(box.width_mm, truth->dimensions.box_width, 3.0f);
    EXPECT_NEAR(box.height_mm, truth->dimensions.box_height, 3.0f);
    EXPECT_GE(box.length_mm, box.width_mm);
  }
}

// A frame inside a wider buffer, as a camera's padded rows deliver it.
TEST(Interface, ReadsRowsThroughTheirStride) {
  const cv::Mat depth = render_scene(testing::standard_scene()).depth;
  cv::Mat padded(480, 700, CV_16UC1, cv::Scalar(7));
  depth.copyTo(padded(cv::Rect(0, 0, 640, 480)));
  const auto packed = seeded_interface();
  const auto strided = seeded_interface();
  ASSERT_EQ(packed->Detect(depth.ptr<std::uint16_t>(), 640, 480), 1);
  ASSERT_EQ(strided->Detect(padded.ptr<std::uint16_t>(), 640, 480, 700), 1);
  Detection a, b;
  packed->GetDetection(0, &a);
  strided->GetDetection(0, &b);
  EXPECT_EQ(a.length_mm, b.length_mm);
  EXPECT_EQ(a.width_mm, b.width_mm);
  EXPECT_EQ(a.height_mm, b.height_mm);
}

struct RefusedCase {
  std::string name;
  bool null_depth;
  int width, height, stride;
  float fx;             // focal lengths; the principal point stays the default's
  const char* problem;  // a part of the reason
};

void PrintTo(const RefusedCase& c, std::ostream* os) { *os << c.name; }

class InterfaceRefusesTest : public ::testing::TestWithParam<RefusedCase> {};

TEST_P(InterfaceRefusesTest, AnUnusableImageWithAReasonAndNoDetections) {
  const RefusedCase& c = GetParam();
  const std::vector<std::uint16_t> samples(640 * 480 * 2, 1000);
  const auto detector = seeded_interface();
  // The detections of a good image first, to see that a refusal clears them.
  const cv::Mat good = render_scene(testing::standard_scene()).depth;
  ASSERT_EQ(detector->Detect(good.ptr<std::uint16_t>(), 640, 480), 1);
  detector->SetExactIntrinsics(c.fx, c.fx, 323.0f, 231.0f);
  EXPECT_EQ(detector->Detect(c.null_depth ? nullptr : samples.data(), c.width, c.height, c.stride),
            -1);
  EXPECT_NE(std::string(detector->LastProblem()).find(c.problem), std::string::npos)
      << detector->LastProblem();
  EXPECT_EQ(detector->DetectionCount(), 0);
  Detection detection;
  EXPECT_FALSE(detector->GetDetection(0, &detection));
}

INSTANTIATE_TEST_SUITE_P(
    Images, InterfaceRefusesTest,
    ::testing::Values(
        RefusedCase{"null_pointer", true, 640, 480, 0, 506.0f, "null"},
        RefusedCase{"no_columns", false, 0, 480, 0, 506.0f, "0 x 480"},
        RefusedCase{"negative_rows", false, 640, -3, 0, 506.0f, "640 x -3"},
        RefusedCase{"too_wide", false, 9000, 1, 0, 506.0f, "9000 x 1"},
        // Within a side's bound but not in all: seconds and gigabytes a frame.
        RefusedCase{"too_many_pixels", false, 4096, 4096, 0, 506.0f, "4096 x 4096"},
        RefusedCase{"stride_shorter_than_a_row", false, 640, 480, 639, 506.0f, "stride 639"},
        RefusedCase{"zero_focal_length", false, 640, 480, 0, 0.0f, "intrinsics"},
        RefusedCase{"negative_focal_length", false, 640, 480, 0, -506.0f, "intrinsics"}),
    [](const auto& info) { return info.param.name; });

// Times a caller passes may be anything, the extremes too: frames far apart
// in time start new tracks, and no arithmetic on them overflows (the
// sanitizer's build checks that).
TEST(Interface, TimesFromTheFarPastToTheFarFutureAreTaken) {
  const auto detector = seeded_interface();
  const cv::Mat depth = render_scene(testing::standard_scene()).depth;
  for (const std::int64_t time_us : {INT64_MIN, std::int64_t{0}, INT64_MAX, INT64_MIN}) {
    EXPECT_EQ(detector->DetectAt(depth.ptr<std::uint16_t>(), 640, 480, time_us), 1)
        << detector->LastProblem();
  }
}

TEST(Interface, WholeNumberIntrinsicsAreUsedAsTheyAreAndExactOnesTruncated) {
  const auto detector = seeded_interface();
  detector->SetExactIntrinsics(500.75f, 501.5f, 319.9f, 239.25f);
  EXPECT_EQ((std::vector<int>{detector->fx(), detector->fy(), detector->cx(), detector->cy()}),
            (std::vector<int>{500, 501, 319, 239}));

  // A focal length off by 10 % shrinks the box by as much: the whole
  // numbers are what the detector measures with.
  const cv::Mat depth = render_scene(testing::standard_scene()).depth;
  detector->SetIntrinsics(557, 557, 323, 231);
  ASSERT_EQ(detector->Detect(depth.ptr<std::uint16_t>(), 640, 480), 1);
  Detection box;
  detector->GetDetection(0, &box);
  EXPECT_NEAR(box.length_mm, 400.0f * 506.4f / 557.0f, 4.0f);
  detector->SetIntrinsics(506, 507, 323, 231);
  ASSERT_EQ(detector->Detect(depth.ptr<std::uint16_t>(), 640, 480), 1);
  detector->GetDetection(0, &box);
  EXPECT_NEAR(box.length_mm, 400.0f, 2.0f);
}

TEST(Interface, KeepsTheFloorUntilReset) {
  const auto detector = seeded_interface();
  float normal[3];
  float offset = 0.0f;
  EXPECT_FALSE(detector->GetFloor(normal, &offset));
  const cv::Mat depth = render_scene(testing::standard_scene()).depth;
  detector->Detect(depth.ptr<std::uint16_t>(), 640, 480);
  ASSERT_TRUE(detector->GetFloor(normal, &offset));
  EXPECT_NEAR(offset, 1000.0f, 2.0f);  // the camera's height above it
  EXPECT_NEAR(normal[2], -1.0f, 1e-3f);
  detector->ResetFloor();
  EXPECT_FALSE(detector->GetFloor(normal, &offset));
}

TEST(Interface, AnEmptyFloorGivesNoDetectionAndSaysWhy) {
  SceneParameters scene = testing::standard_scene();
  scene.with_box = false;
  const auto detector = seeded_interface();
  EXPECT_EQ(detector->Detect(render_scene(scene).depth.ptr<std::uint16_t>(), 640, 480), 0);
  EXPECT_STREQ(detector->LastProblem(), "nothing stands on the floor");
}

}  // namespace
}  // namespace boxdim

namespace boxdim {
namespace {

// Three boxes standing still, then the one under the camera taken away: each
// keeps its track id, gets one placed and one measured event with a reading
// fused over the images, and the one taken away one removed event.
TEST(Interface, FollowsEachBoxAndSaysWhenItIsPlacedMeasuredAndRemoved) {
  std::unique_ptr<Interface> detector = seeded_interface();
  const SceneParameters scene = three_boxes();
  detector->SetExactIntrinsics(scene.intrinsics.fx, scene.intrinsics.fy, scene.intrinsics.cx,
                               scene.intrinsics.cy);
  std::vector<Event> events;
  std::vector<int> first_ids;
  for (int image = 0; image < 40; ++image) {
    SceneParameters shot = scene;
    shot.seed = 100 + image;
    shot.with_box = image < 25;
    const cv::Mat depth = render_scene(shot).depth;
    const int count = detector->DetectAt(depth.ptr<std::uint16_t>(), depth.cols, depth.rows,
                                         std::int64_t{33333} * image);
    ASSERT_EQ(count, image < 25 ? 3 : 2) << "image " << image;
    std::vector<int> ids;
    for (const Detection& d : detections_of(*detector)) {
      ASSERT_GE(d.track_id, 1);
      ids.push_back(d.track_id);
      if (d.fused_frames > 0) {
        EXPECT_NEAR(d.fused_length_mm, d.length_mm, 3.0f);
        EXPECT_GT(d.uncertainty_mm, 0.0f);
      }
    }
    std::sort(ids.begin(), ids.end());
    if (image == 0) first_ids = ids;
    // The same boxes keep the same ids; the one taken away leaves its id.
    EXPECT_TRUE(std::includes(first_ids.begin(), first_ids.end(), ids.begin(), ids.end()))
        << "image " << image;
    for (int e = 0; e < detector->EventCount(); ++e) {
      Event event;
      ASSERT_TRUE(detector->GetEvent(e, &event));
      EXPECT_EQ(event.time_us, std::int64_t{33333} * image);
      events.push_back(event);
    }
  }
  int counts[3] = {0, 0, 0};
  for (const Event& event : events) {
    ++counts[static_cast<int>(event.kind)];
    if (event.kind == EventKind::kMeasured) {
      EXPECT_GT(event.frames, 3);
      // A measured event's reading is within the station's division.
      EXPECT_GT(event.uncertainty_mm, 0.0f);
      EXPECT_LE(event.uncertainty_mm, 5.0f);
    }
  }
  EXPECT_EQ(counts[0], 3);
  EXPECT_EQ(counts[1], 3);
  EXPECT_EQ(counts[2], 1);
  EXPECT_STREQ(EventKindName(EventKind::kRemoved), "removed");
  Event unused;
  EXPECT_FALSE(detector->GetEvent(detector->EventCount(), &unused));
}

}  // namespace
}  // namespace boxdim

namespace boxdim {
namespace {

// The division is the station's to set: a tighter one turns the same box
// uncertain, with its uncertainty and without numbers; a division that is no
// length is turned away and changes nothing.
TEST(Interface, ATighterDivisionTurnsTheBoxUncertain) {
  SceneParameters scene = testing::standard_scene();
  scene.noise = {2.0f, 0.2f, 0.005f};
  const cv::Mat depth = render_scene(scene).depth;
  const auto detect = [&depth](Interface& detector) {
    Detection box;
    EXPECT_EQ(detector.Detect(depth.ptr<std::uint16_t>(), 640, 480), 1);
    detector.GetDetection(0, &box);
    return box;
  };
  const auto detector = seeded_interface();
  const Detection within = detect(*detector);
  EXPECT_EQ(within.status, DetectionStatus::kMeasured);
  EXPECT_GT(within.length_uncertainty_mm, 0.0f);
  EXPECT_LE(within.height_uncertainty_mm, 5.0f);
  EXPECT_FALSE(detector->SetDivision(0.0f));
  EXPECT_FALSE(detector->SetDivision(NAN));
  ASSERT_TRUE(detector->SetDivision(0.5f));
  const Detection tight = detect(*detector);
  EXPECT_EQ(tight.status, DetectionStatus::kUncertain);
  EXPECT_STREQ(DetectionStatusName(tight.status), "uncertain");
  EXPECT_EQ(tight.length_mm, 0.0f);
  EXPECT_EQ(tight.length_uncertainty_mm, within.length_uncertainty_mm);
  EXPECT_LT(tight.confidence, within.confidence);
}

}  // namespace
}  // namespace boxdim
