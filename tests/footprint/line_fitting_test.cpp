#include "footprint/line_fitting.h"

#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "support/test_frames.h"

namespace boxdim {
namespace {

using Points = std::vector<cv::Point>;

using LineFitting = testing::StageTest;

Points zigzag(int count, int rise) {
  Points points;
  for (int i = 0; i < count; ++i) points.emplace_back(3 * i, i % 2 == 0 ? 0 : rise);
  return points;
}

// Nine points in a 3 x 3 block lie within 3 pixels of any line through two of
// them, and such a line misses a point far off. Only a pair with the far point
// holds ten inliers, and the last point is never sampled.
Points block_and_far_point(bool far_point_last) {
  Points points;
  for (int i = 0; i < 9; ++i) points.emplace_back(i % 3, i / 3);
  points.insert(far_point_last ? points.end() : points.begin(), cv::Point(1000, 377));
  return points;
}

TEST_F(LineFitting, NeedsTenPointsAndTenInliersStrictlyWithinTheBand) {
  const std::string too_few = " ransac_fitline points less than 10;\n";
  const std::string no_consensus = "ransac_fitline error; \n";
  const std::vector<std::pair<Points, std::string>> cases = {
      {zigzag(9, 0), too_few},
      {zigzag(10, 0), ""},
      {zigzag(10, 2), ""},
      {zigzag(10, 3), no_consensus},
      {block_and_far_point(false), ""},
      {block_and_far_point(true), no_consensus},
  };
  for (const auto& [points, message] : cases) {
    log.str("");
    cv::Vec4f line(7, 7, 7, 7);
    EXPECT_EQ(ransac_fitline(state, points, line), message.empty()) << points;
    EXPECT_EQ(log.str(), message) << points;
    if (!message.empty()) {
      EXPECT_EQ(line, cv::Vec4f(7, 7, 7, 7));
    }
  }
}

// Corners run top-left, top-right, bottom-right, bottom-left on a 640 x 480
// edge image: sides 0 and 2 are rows, 1 and 3 columns, normals point inwards.
struct RefineCase {
  const char* name;
  std::vector<cv::Point2f> corners;
  std::vector<cv::Rect> outlines;  // drawn 1 pixel wide, all of equal strength
  std::vector<float> expected;     // row or column of each fitted side
  const char* message;
};

class RefineEdges : public LineFitting, public ::testing::WithParamInterface<RefineCase> {};

TEST_P(RefineEdges, FitsEachSideToTheFirstStrongestEdgeAcrossIt) {
  const RefineCase& c = GetParam();
  state.edge_image = cv::Mat::zeros(state.height, state.width, CV_16SC1);
  for (const cv::Rect& r : c.outlines) cv::rectangle(state.edge_image, r, cv::Scalar(500));
  state.coarse_corners = c.corners;
  std::vector<cv::Vec4f> lines;
  EXPECT_EQ(refine_edge_lines(state, lines), c.message[0] == '\0');
  EXPECT_EQ(log.str(), c.message);
  ASSERT_EQ(lines.size(), c.expected.size());
  for (std::size_t i = 0; i < lines.size(); ++i) {
    EXPECT_NEAR(lines[i][i % 2 == 0 ? 1 : 0], 0.0f, 1e-6f) << "side " << i;
    EXPECT_NEAR(lines[i][i % 2 == 0 ? 3 : 2], c.expected[i], 1e-3f) << "side " << i;
  }
}

const std::vector<cv::Point2f> kSquare = {{100, 100}, {300, 100}, {300, 250}, {100, 250}};
const char* const kNoConsensus = "ransac_fitline error; \n";

INSTANTIATE_TEST_SUITE_P(
    Outlines, RefineEdges,
    ::testing::Values(
        // Equal edges 5 pixels to either side: the one along +normal is met first.
        RefineCase{"TieGoesToTheInnerEdge",
                   kSquare,
                   {{95, 95, 211, 161}, {105, 105, 191, 141}},
                   {105, 295, 245, 105},
                   ""},
        RefineCase{
            "TwentyPixelsAwayIsOutOfReach", kSquare, {{120, 120, 161, 111}}, {}, kNoConsensus},
        // A 15-pixel side has 9 positions (t = 3..11), a 16-pixel side 10.
        RefineCase{"SideOf15",
                   {{100, 100}, {115, 100}, {115, 115}, {100, 115}},
                   {{100, 100, 16, 16}},
                   {},
                   " ransac_fitline points less than 10;\n"},
        RefineCase{"SideOf16",
                   {{100, 100}, {116, 100}, {116, 116}, {100, 116}},
                   {{100, 100, 17, 17}},
                   {100, 116, 116, 100},
                   ""},
        // The last column and row are never read; the empty samples give
        // points at (0, 0), which hold no line.
        RefineCase{"OnTheLastColumn",
                   {{440, 300}, {639, 300}, {639, 478}, {440, 478}},
                   {{440, 300, 200, 179}},
                   {300},
                   kNoConsensus},
        RefineCase{"OnTheLastRow",
                   {{440, 300}, {638, 300}, {638, 479}, {440, 479}},
                   {{440, 300, 199, 180}},
                   {300, 638},
                   kNoConsensus},
        // Parallel coarse lines meet nowhere: such a side yields no points.
        RefineCase{"NonFiniteCorner",
                   {{INFINITY, NAN}, {300, 100}, {300, 250}, {100, 250}},
                   {{100, 100, 201, 151}},
                   {},
                   " ransac_fitline points less than 10;\n"}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace boxdim
