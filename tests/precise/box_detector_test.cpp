// The detector on rendered scenes whose truth is known: every box gets the
// status it deserves and only measured boxes carry numbers; the floor is the
// plane the scene stands on even where boxes fill most of the view, and it is
// found again when the camera moves.
#include "precise/box_detector.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include "scene/depth_scene.h"
#include "support/test_frames.h"

namespace boxdim::precise {
namespace {

// The floor's search seeded the same way in every frame.
constexpr std::uint64_t kSeed = 1;

BoxDetector fixed_seed_detector() { return BoxDetector(); }

struct StatusCase {
  std::string name;
  SceneParameters scene;
  BoxStatus status;
};

SceneParameters standard() { return testing::standard_scene(); }

SceneParameters with(SceneParameters scene, float length, float width, float height) {
  scene.box_length_mm = length;
  scene.box_width_mm = width;
  scene.box_height_mm = height;
  return scene;
}

std::vector<StatusCase> status_cases() {
  std::vector<StatusCase> cases;
  cases.push_back({"standard_box", standard(), BoxStatus::kMeasured});
  cases.push_back({"smallest_measured_box", with(standard(), 50, 50, 30), BoxStatus::kMeasured});
  SceneParameters turned_noisy = standard();
  turned_noisy.yaw_deg = 33.0f;
  turned_noisy.tilt_deg = 18.0f;
  turned_noisy.noise = {2.0f, 0.3f, 0.01f, 12.0f, 10.0f, 2.5f};
  cases.push_back({"turned_tilted_noisy_multipath", turned_noisy, BoxStatus::kMeasured});
  cases.push_back({"under_50_mm", with(standard(), 45, 40, 100), BoxStatus::kTooSmall});
  SceneParameters cut = standard();
  cut.offset_mm = {450.0f, 0.0f};  // its far end beyond the image's right border
  cases.push_back({"cut_by_the_border", cut, BoxStatus::kPartial});
  SceneParameters touching = standard();
  // As high as the box and against its right side, reaching past its near
  // side: one top shaped like an L.
  touching.other_boxes = {FloorBox{200, 200, 200, {300.0f, 100.0f}, 0.0f, {}}};
  cases.push_back({"two_boxes_touching_at_one_height", touching, BoxStatus::kIrregular});
  return cases;
}

void PrintTo(const StatusCase& c, std::ostream* os) { *os << c.name; }

class DetectorStatusTest : public ::testing::TestWithParam<StatusCase> {};

TEST_P(DetectorStatusTest, TheBoxUnderTheCentreGetsItsStatusAndOnlyMeasuredOnesCarryNumbers) {
  const StatusCase& c = GetParam();
  const RenderedScene rendered = render_scene(c.scene);
  BoxDetector detector = fixed_seed_detector();
  const std::vector<BoxFit>& fits = detector.detect(rendered.depth, c.scene.intrinsics, kSeed);
  ASSERT_FALSE(fits.empty()) << detector.problem();
  // The fit whose centre is nearest the true top's centre is the main box's.
  cv::Point2f truth_centre(0.0f, 0.0f);
  for (const cv::Point2f& p : rendered.truth.top_corners_px) truth_centre += 0.25f * p;
  const BoxFit* main = &fits.front();
  for (const BoxFit& fit : fits) {
    if (cv::norm(fit.centre_px - truth_centre) < cv::norm(main->centre_px - truth_centre)) {
      main = &fit;
    }
  }
  EXPECT_STREQ(box_status_name(main->status), box_status_name(c.status)) << main->reason;
  if (c.status == BoxStatus::kMeasured) {
    const BoxDimensions& truth = rendered.truth.dimensions;
    EXPECT_NEAR(main->length_mm, truth.box_length, 3.0f);
    EXPECT_NEAR(main->width_mm, truth.box_width, 3.0f);
    EXPECT_NEAR(main->height_mm, truth.box_height, 3.0f);
    EXPECT_GT(main->confidence, 0.5f);
  }
  for (const BoxFit& fit : fits) {
    if (fit.status != BoxStatus::kMeasured) {
      EXPECT_STRNE(fit.reason, "");
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Scenes, DetectorStatusTest, ::testing::ValuesIn(status_cases()),
                         [](const auto& info) { return info.param.name; });

TEST(BoxDetector, AnEmptyFloorYieldsNoBoxAndSaysWhy) {
  SceneParameters scene = standard();
  scene.with_box = false;
  scene.noise = {2.0f, 0.3f, 0.01f};
  BoxDetector detector = fixed_seed_detector();
  EXPECT_TRUE(detector.detect(render_scene(scene).depth, scene.intrinsics, kSeed).empty());
  EXPECT_TRUE(detector.floor().has_value());
  EXPECT_STREQ(detector.problem(), "nothing stands on the floor");
}

// Cameras write 65535, the largest sample, where they saw nothing in
// range: a floor of it is no floor, and no box stands 64 m tall on it.
TEST(BoxDetector, SamplesOf65535AreNoDepth) {
  const RenderedScene rendered = render_scene(standard());
  cv::Mat depth = rendered.depth.clone();
  const float top = rendered.truth.top_face_depth_mm;
  for (auto it = depth.begin<std::uint16_t>(); it != depth.end<std::uint16_t>(); ++it) {
    if (*it > top + 100.0f) *it = 65535;
  }
  BoxDetector detector = fixed_seed_detector();
  const std::vector<BoxFit>& fits = detector.detect(depth, standard().intrinsics, kSeed);
  for (const BoxFit& fit : fits) {
    EXPECT_NE(fit.status, BoxStatus::kMeasured) << fit.height_mm << " mm high";
    EXPECT_LT(fit.height_mm, 1000.0f);
  }
}

// A lid that bulges is part of the smallest enclosing cuboid; one that sags
// leaves the rim where it was.
TEST(BoxDetector, TheHeightIsTheTopsHighestPointAndASaggingLidDoesNotLowerIt) {
  for (const float lid : {10.0f, -8.0f}) {
    SceneParameters scene = standard();
    scene.top.lid_mm = lid;
    scene.noise = {1.5f, 0.2f, 0.005f};
    const RenderedScene rendered = render_scene(scene);
    BoxDetector detector = fixed_seed_detector();
    const std::vector<BoxFit>& fits = detector.detect(rendered.depth, scene.intrinsics, kSeed);
    ASSERT_EQ(fits.size(), 1u) << "lid " << lid;
    EXPECT_NEAR(fits[0].height_mm, rendered.truth.dimensions.box_height, 2.0f) << "lid " << lid;
  }
}

struct SidesCase {
  std::string name;
  SceneParameters scene;
  std::size_t detections;  // one per box whose top is in view
};

void PrintTo(const SidesCase& c, std::ostream* os) { *os << c.name; }

std::vector<SidesCase> sides_cases() {
  SceneParameters small_beside = standard();
  small_beside.camera_height_mm = 1300.0f;
  small_beside.other_boxes = {FloorBox{300, 200, 150, {-430, 150}, 20, {}},
                              FloorBox{45, 40, 100, {300, -250}, 0, {}}};
  // Tall, dark and near the image's corner: mostly its sides are in view.
  SceneParameters tower = with(standard(), 277, 179, 354);
  tower.camera_height_mm = 1600.0f;
  tower.tilt_deg = 4.7f;
  tower.roll_deg = 4.6f;
  tower.yaw_deg = 69.0f;
  tower.offset_mm = {788.0f, -551.0f};
  tower.top.dark = true;
  tower.noise = {2.0f, 0.2f, 0.005f};
  return {{"a_small_box_beside_two_others", small_beside, 3}, {"a_tower_in_the_corner", tower, 1}};
}

class DetectorSidesTest : public ::testing::TestWithParam<SidesCase> {};

// The sides of a box seen at a slant hold every height from its top down to
// the floor; no band of them is a top of its own.
TEST_P(DetectorSidesTest, SidesSeenAtASlantAreNoBoxes) {
  const SidesCase& c = GetParam();
  const RenderedScene rendered = render_scene(c.scene);
  BoxDetector detector = fixed_seed_detector();
  const std::vector<BoxFit>& fits = detector.detect(rendered.depth, c.scene.intrinsics, kSeed);
  EXPECT_EQ(fits.size(), c.detections);
  for (const BoxFit& fit : fits) {
    EXPECT_NE(fit.status, BoxStatus::kIrregular) << fit.reason << " at " << fit.centre_px;
  }
}

INSTANTIATE_TEST_SUITE_P(Scenes, DetectorSidesTest, ::testing::ValuesIn(sides_cases()),
                         [](const auto& info) { return info.param.name; });

struct FloorCase {
  std::string name;
  float tilt_deg;
  float length_mm, width_mm, height_mm;
  float camera_height_mm;
};

void PrintTo(const FloorCase& c, std::ostream* os) { *os << c.name; }

class DetectorFloorTest : public ::testing::TestWithParam<FloorCase> {};

// Where a box's top fills most of the frame the largest plane is the top; the
// floor is the plane with the scene above it.
TEST_P(DetectorFloorTest, TheFloorIsThePlaneTheSceneStandsOn) {
  const FloorCase& c = GetParam();
  SceneParameters scene = with(standard(), c.length_mm, c.width_mm, c.height_mm);
  scene.tilt_deg = c.tilt_deg;
  scene.camera_height_mm = c.camera_height_mm;
  scene.noise = {1.5f, 0.2f, 0.005f};
  const RenderedScene rendered = render_scene(scene);
  BoxDetector detector = fixed_seed_detector();
  const std::vector<BoxFit>& fits = detector.detect(rendered.depth, scene.intrinsics, kSeed);
  ASSERT_TRUE(detector.floor().has_value());
  // The camera stands camera_height_mm above the floor.
  EXPECT_NEAR(detector.floor()->offset, c.camera_height_mm, 5.0f);
  ASSERT_FALSE(fits.empty()) << detector.problem();
  EXPECT_STREQ(box_status_name(fits[0].status), "measured") << fits[0].reason;
  EXPECT_NEAR(fits[0].height_mm, c.height_mm, 3.0f);
  EXPECT_NEAR(fits[0].length_mm, c.length_mm, 3.0f);
}

INSTANTIATE_TEST_SUITE_P(
    Scenes, DetectorFloorTest,
    ::testing::Values(FloorCase{"top_fills_two_thirds", 0.0f, 1000, 800, 300, 1300},
                      FloorCase{"top_fills_two_thirds_tilted", 15.0f, 900, 700, 300, 1300},
                      FloorCase{"tilted_30_degrees", 30.0f, 400, 300, 200, 1000}),
    [](const auto& info) { return info.param.name; });

TEST(BoxDetector, FindsTheFloorAgainWhenTheCameraMoves) {
  BoxDetector detector = fixed_seed_detector();
  for (const float camera_height : {1000.0f, 1000.0f, 1350.0f, 800.0f}) {
    SceneParameters scene = standard();
    scene.camera_height_mm = camera_height;
    scene.noise = {1.5f, 0.2f, 0.005f};
    const std::vector<BoxFit>& fits =
        detector.detect(render_scene(scene).depth, scene.intrinsics, kSeed);
    ASSERT_TRUE(detector.floor().has_value());
    EXPECT_NEAR(detector.floor()->offset, camera_height, 5.0f);
    ASSERT_EQ(fits.size(), 1u) << camera_height;
    EXPECT_NEAR(fits[0].height_mm, 200.0f, 2.0f) << camera_height;
  }
}

// 121 raised squares on a flat floor: the detector stops at its limit.
TEST(BoxDetector, ReportsAtMostItsLimitOfDetections) {
  cv::Mat depth(480, 640, CV_16UC1, cv::Scalar(1500));
  for (int row = 0; row < 11; ++row) {
    for (int column = 0; column < 11; ++column) {
      depth(cv::Rect(40 + 52 * column, 10 + 42 * row, 24, 24)).setTo(1400);
    }
  }
  BoxDetector detector = fixed_seed_detector();
  CameraIntrinsics k;
  k.cx = 320.0f;
  k.cy = 240.0f;
  EXPECT_EQ(detector.detect(depth, k, kSeed).size(),
            static_cast<std::size_t>(BoxDetector::kMaxDetections));
}

}  // namespace
}  // namespace boxdim::precise

namespace boxdim::precise {
namespace {

struct BadOption {
  const char* name;
  void (*spoil)(DetectorOptions&);
};

void PrintTo(const BadOption& c, std::ostream* os) { *os << c.name; }

class DetectorOptionsTest : public ::testing::TestWithParam<BadOption> {};

// Options are checked once, when a detector is made, and a bad one is
// refused by its name rather than spoiling every frame after.
TEST_P(DetectorOptionsTest, AnOptionOutOfItsRangeIsRefusedByName) {
  DetectorOptions options;
  GetParam().spoil(options);
  try {
    BoxDetector detector(options);
    FAIL() << "accepted";
  } catch (const std::invalid_argument& e) {
    EXPECT_NE(std::string(e.what()).find(GetParam().name), std::string::npos) << e.what();
  }
}

INSTANTIATE_TEST_SUITE_P(
    Options, DetectorOptionsTest,
    ::testing::Values(
        BadOption{"floor.hypotheses", [](DetectorOptions& o) { o.floor.hypotheses = 0; }},
        BadOption{"floor.min_share", [](DetectorOptions& o) { o.floor.min_share = 1.5; }},
        BadOption{"faces.histogram_bin_mm",
                  [](DetectorOptions& o) { o.faces.histogram_bin_mm = 0.0f; }},
        BadOption{"faces.jump_mm", [](DetectorOptions& o) { o.faces.jump_mm = NAN; }},
        BadOption{"outline.refinements", [](DetectorOptions& o) { o.fit.outline.refinements = 0; }},
        BadOption{"height.min_pixels", [](DetectorOptions& o) { o.fit.height.min_pixels = 1; }},
        BadOption{"grading.min_fill", [](DetectorOptions& o) { o.fit.grading.min_fill = -0.1f; }}),
    [](const auto& info) {
      std::string name = info.param.name;
      std::replace(name.begin(), name.end(), '.', '_');
      return name;
    });

}  // namespace
}  // namespace boxdim::precise

namespace boxdim::precise {
namespace {

// What real cameras and cartons do to a box that stands wholly in view, one
// effect at a time, on a 400 x 300 x 200 mm carton 1.2 m below the camera:
// the box is measured, to within the case's tolerance and the uncertainty
// the engine gives, and its height is its lid's highest point above the
// floor around it. The carton's rims are sharp unless a case rounds them;
// where the pixels cannot rule a rounding out, the engine moves each hiding
// edge out by half of what one would hide, and reads such a box a little
// long.
struct CartonCase {
  std::string name;
  void (*change)(SceneParameters&);
  float footprint_mm;  // length and width within this
  float height_mm;     // and the height
};

void PrintTo(const CartonCase& c, std::ostream* os) { *os << c.name; }

SceneParameters physical_carton() {
  SceneParameters s;
  s.camera_height_mm = 1200.0f;
  s.yaw_deg = 23.0f;
  s.offset_mm = {120.0f, -60.0f};
  s.sensor.footprint_samples = 4;
  s.noise.sigma_at_1m_mm = 1.0f;
  s.noise.dropout_probability = 0.002f;
  return s;
}

class CartonTest : public ::testing::TestWithParam<CartonCase> {};

TEST_P(CartonTest, IsMeasuredThroughWhatTheCameraAndTheCartonDo) {
  const CartonCase& c = GetParam();
  SceneParameters scene = physical_carton();
  c.change(scene);
  const RenderedScene rendered = render_scene(scene);
  BoxDetector detector;
  const std::vector<BoxFit>& fits = detector.detect(rendered.depth, scene.intrinsics, kSeed);
  ASSERT_EQ(fits.size(), 1u) << detector.problem();
  const BoxFit& fit = fits[0];
  ASSERT_EQ(fit.status, BoxStatus::kMeasured) << fit.reason;
  const BoxDimensions& truth = rendered.truth.dimensions;
  EXPECT_NEAR(fit.length_mm, truth.box_length, c.footprint_mm);
  EXPECT_NEAR(fit.width_mm, truth.box_width, c.footprint_mm);
  EXPECT_NEAR(fit.height_mm, truth.box_height, c.height_mm);
  // What the engine says of itself holds too.
  EXPECT_NEAR(fit.length_mm, truth.box_length, fit.uncertainty.box_length);
  EXPECT_NEAR(fit.width_mm, truth.box_width, fit.uncertainty.box_width);
  EXPECT_NEAR(fit.height_mm, truth.box_height, fit.uncertainty.box_height);
}

INSTANTIATE_TEST_SUITE_P(
    Effects, CartonTest,
    ::testing::Values(CartonCase{"edge_pixels_mixed", [](SceneParameters&) {}, 1.0f, 0.5f},
                      // The filter blanks a band across every hiding edge, on both sides.
                      CartonCase{"weak_flying_pixel_filter",
                                 [](SceneParameters& s) {
                                   s.sensor.flying_filter = FlyingPixelFilter::kWeak;
                                 },
                                 1.5f, 0.5f},
                      CartonCase{"strong_filter_and_a_tilt_that_shows_a_side",
                                 [](SceneParameters& s) {
                                   s.sensor.flying_filter = FlyingPixelFilter::kStrong;
                                   s.tilt_deg = 12.0f;
                                 },
                                 1.5f, 0.5f},
                      // The blur lowers the top's last pixels as a rounding would:
                      // no rounding can be ruled out.
                      CartonCase{"structured_light_steps_and_blur",
                                 [](SceneParameters& s) {
                                   s.sensor.sensing = DepthSensing::kStructuredLight;
                                   s.sensor.depth_step_at_1m_mm = 2.5f;
                                   s.sensor.edge_blur_px = 1.2f;
                                 },
                                 3.0f, 1.5f},
                      // A crack between the flaps, blanked by the filter: one top still.
                      CartonCase{"crack_between_the_flaps",
                                 [](SceneParameters& s) {
                                   s.sensor.flying_filter = FlyingPixelFilter::kStrong;
                                   s.top.seam.present = true;
                                   s.top.seam.crack_width_mm = 5.0f;
                                   s.top.seam.crack_depth_mm = 50.0f;
                                 },
                                 1.5f, 0.5f},
                      // One flap 5 mm over the other: the height is the higher flap's.
                      CartonCase{"one_flap_over_the_other",
                                 [](SceneParameters& s) {
                                   s.top.seam.present = true;
                                   s.top.seam.step_mm = 5.0f;
                                 },
                                 1.5f, 1.0f},
                      CartonCase{"a_bump_off_centre",
                                 [](SceneParameters& s) {
                                   s.top.bumps = {TopBump{{90.0f, 60.0f}, 6.0f, 40.0f}};
                                 },
                                 1.5f, 1.5f},
                      // The table gives 3 mm under the box: the height is from the floor
                      // around it, not from the plane of the whole table.
                      CartonCase{"table_giving_under_the_box",
                                 [](SceneParameters& s) {
                                   s.table.dip_mm = 3.0f;
                                   s.table.dip_radius_mm = 250.0f;
                                 },
                                 1.5f, 0.7f},
                      // The enclosing cuboid of a notched carton is its whole outline.
                      CartonCase{"a_notch_in_the_top",
                                 [](SceneParameters& s) {
                                   s.top.notches = {TopNotch{1, 40.0f, 70.0f, 35.0f, 60.0f}};
                                 },
                                 1.5f, 1.0f},
                      // A rim rounded to 10 mm, with sides in view to read it from.
                      CartonCase{"a_rounded_rim",
                                 [](SceneParameters& s) {
                                   s.top.rim_radius_mm = 10.0f;
                                   s.tilt_deg = 12.0f;
                                   s.offset_mm = {120.0f, 150.0f};
                                 },
                                 1.5f, 0.5f},
                      // A side the camera barely sees, its face blanked by the filter
                      // with the top's last pixels: the edge lies within that band.
                      CartonCase{"a_side_barely_in_view_straight_below",
                                 [](SceneParameters& s) {
                                   s.sensor.flying_filter = FlyingPixelFilter::kStrong;
                                   s.yaw_deg = 0.0f;
                                   s.offset_mm = {-200.0f, -60.0f};
                                 },
                                 1.5f, 0.5f},
                      CartonCase{"a_side_barely_in_view_turned",
                                 [](SceneParameters& s) {
                                   s.sensor.flying_filter = FlyingPixelFilter::kStrong;
                                   s.offset_mm = {-200.0f, -60.0f};
                                 },
                                 1.5f, 0.5f},
                      // A notch in a side the camera barely sees: its floor's points
                      // spread evenly below the edge, no wall to place the side by.
                      CartonCase{"a_notch_in_a_side_barely_in_view",
                                 [](SceneParameters& s) {
                                   s.box_length_mm = 437.0f;
                                   s.box_width_mm = 214.0f;
                                   s.box_height_mm = 167.0f;
                                   s.camera_height_mm = 1015.0f;
                                   s.tilt_deg = 9.3f;
                                   s.yaw_deg = 44.8f;
                                   s.offset_mm = {69.0f, 138.0f};
                                   s.sensor.flying_filter = FlyingPixelFilter::kStrong;
                                   s.top.notches = {TopNotch{3, -88.0f, 60.0f, 28.0f, 36.0f}};
                                 },
                                 2.5f, 1.0f}),
    [](const auto& info) { return info.param.name; });

// A rim's rounding that the camera may or may not show: rounded by 0 to 10
// mm, seen by cameras that blank or blur the top's last pixels, near the
// middle of the view and off to one side (where the rays graze the far
// rims). Whatever the rounding, each dimension lies within the uncertainty
// the engine gives, or the box is uncertain: never a number further off
// than it says.
struct RimCase {
  float radius_mm;
  FlyingPixelFilter filter;
  bool structured_light;
  cv::Point2f offset_mm;
};

void PrintTo(const RimCase& c, std::ostream* os) {
  *os << "r" << c.radius_mm << (c.structured_light ? " structured light" : " time of flight")
      << " filter " << static_cast<int>(c.filter) << " at " << c.offset_mm;
}

class RimUncertaintyTest : public ::testing::TestWithParam<RimCase> {};

TEST_P(RimUncertaintyTest, EachDimensionLiesWithinItsUncertainty) {
  const RimCase& c = GetParam();
  SceneParameters scene = physical_carton();
  scene.top.rim_radius_mm = c.radius_mm;
  scene.sensor.flying_filter = c.filter;
  if (c.structured_light) {
    scene.sensor.sensing = DepthSensing::kStructuredLight;
    scene.sensor.depth_step_at_1m_mm = 2.0f;
    scene.sensor.edge_blur_px = 1.0f;
  }
  scene.offset_mm = c.offset_mm;
  const RenderedScene rendered = render_scene(scene);
  BoxDetector detector;
  const std::vector<BoxFit>& fits = detector.detect(rendered.depth, scene.intrinsics, kSeed);
  ASSERT_EQ(fits.size(), 1u) << detector.problem();
  const BoxFit& fit = fits[0];
  ASSERT_TRUE(fit.status == BoxStatus::kMeasured || fit.status == BoxStatus::kUncertain)
      << fit.reason;
  const BoxDimensions& truth = rendered.truth.dimensions;
  EXPECT_NEAR(fit.length_mm, truth.box_length, fit.uncertainty.box_length);
  EXPECT_NEAR(fit.width_mm, truth.box_width, fit.uncertainty.box_width);
  EXPECT_NEAR(fit.height_mm, truth.box_height, fit.uncertainty.box_height);
}

std::vector<RimCase> rim_cases() {
  std::vector<RimCase> cases;
  for (const float radius : {0.0f, 4.0f, 10.0f}) {
    for (const cv::Point2f offset : {cv::Point2f(60.0f, -40.0f), cv::Point2f(350.0f, 220.0f)}) {
      cases.push_back({radius, FlyingPixelFilter::kStrong, false, offset});
      cases.push_back({radius, FlyingPixelFilter::kOff, true, offset});
    }
  }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Rims, RimUncertaintyTest, ::testing::ValuesIn(rim_cases()));

}  // namespace
}  // namespace boxdim::precise
