#include "footprint/corner_search.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "support/test_frames.h"

namespace boxdim {
namespace {

using Contour = std::vector<cv::Point>;

// A closed outline through `vertices`, one point per step of the longer
// coordinate along each edge.
Contour trace(const std::vector<cv::Point>& vertices) {
  Contour contour;
  for (std::size_t i = 0; i < vertices.size(); ++i) {
    const cv::Point a = vertices[i];
    const cv::Point d = vertices[(i + 1) % vertices.size()] - a;
    const int steps = std::max(std::abs(d.x), std::abs(d.y));
    for (int t = 0; t < steps; ++t) {
      contour.emplace_back(a.x + static_cast<int>(std::lround(1.0 * d.x * t / steps)),
                           a.y + static_cast<int>(std::lround(1.0 * d.y * t / steps)));
    }
  }
  return contour;
}

class CornerSearch : public testing::StageTest {
 protected:
  bool run(const Contour& contour) {
    state.top_rect_contour_points = contour;
    return find_top_rect_corners(state, indices_);
  }

  std::vector<int> indices_;
};

// The two diagonals of a 6 x 3 rectangle tie, and their float length is below
// the exact one: only comparing the rounded values keeps the first one met.
TEST_F(CornerSearch, DiagonalPairKeepsAllFourCornersAndTheFirstOfTiedPairs) {
  ASSERT_TRUE(run(trace({{0, 0}, {6, 0}, {6, 3}, {0, 3}})));
  EXPECT_EQ(log.str(),
            "maxdistance : 6.7082     max_distance1:  9     max_distance2 : 9\n"
            "ratio1: 1.34164   ratio2:  1.34164\n"
            "allnum: 18  num1:  9  num2: 9\n"
            "num ratio: 1\n"
            "The first two points are diagonal ;\n"
            "first :0  second:9  third: 6   fourth:15\n"
            "first :0  second:9  third: 6   fourth:15\n");
  EXPECT_EQ(indices_, (std::vector<int>{0, 6, 9, 15}));
  EXPECT_EQ(state.top_rect_corner_points, (Contour{{0, 0}, {6, 3}, {6, 0}, {0, 3}}));
}

// A trapezoid whose longest chord is its base, so the first pair shares a
// side. Rotating or reversing the outline puts the third corner found by the
// second search in each of its three stretches.
struct EdgeCase {
  const char* name;
  bool reversed;
  int rotation;  // the traced point that becomes the first
  std::vector<int> indices;
  const char* log_tail;  // from the point-count ratio on
};

class CornerSearchEdge : public CornerSearch, public ::testing::WithParamInterface<EdgeCase> {};

TEST_P(CornerSearchEdge, FindsTheTopCornersAndLogsInOrder) {
  const EdgeCase& c = GetParam();
  Contour contour = trace(c.reversed ? std::vector<cv::Point>{{0, 0}, {3, 4}, {13, 4}, {16, 0}}
                                     : std::vector<cv::Point>{{0, 0}, {16, 0}, {13, 4}, {3, 4}});
  std::rotate(contour.begin(), contour.begin() + c.rotation, contour.end());
  ASSERT_TRUE(run(contour));
  EXPECT_EQ(indices_, c.indices);
  const std::string text = log.str();
  const std::size_t tail = text.find("num ratio: ");
  ASSERT_NE(tail, std::string::npos) << text;
  EXPECT_EQ(text.substr(tail), c.log_tail);
}

INSTANTIATE_TEST_SUITE_P(
    Trapezoid, CornerSearchEdge,
    ::testing::Values(
        EdgeCase{"ThirdAfterSecond",
                 false,
                 0,
                 {0, 16, 20, 30},
                 "num ratio: 0.888889\n"
                 "The first two points are the edges; \n"
                 "first :0  second:16  third: 1   fourth:20\n"
                 " second_idx < third_idx < top_rect_contour_points.size \n"
                 "temp_dis1 : 2.94086  temp_dis2:   0.4  temp_idx1: 30 temp_idx2: 18\n"
                 "first :0  second:16  third: 20   fourth:30\n"},
        // (3, 4) becomes point 0 and, tied with (13, 4), the third corner.
        EdgeCase{"ThirdBeforeFirst",
                 false,
                 30,
                 {0, 4, 20, 24},
                 "num ratio: 0.888889\n"
                 "The first two points are the edges; \n"
                 "first :4  second:20  third: 5   fourth:24\n"
                 " 0 < third_idx < first_idx \n"
                 "temp_dis1 : 0.4  temp_dis2:   2.94086  temp_idx1: 2 temp_idx2: 24\n"
                 "first :4  second:20  third: 0   fourth:24\n"},
        EdgeCase{"ThirdBetween",
                 true,
                 0,
                 {0, 4, 14, 18},
                 "num ratio: 1.125\n"
                 "The first two points are the edges; \n"
                 "first :0  second:18  third: 4   fourth:19\n"
                 " first_idx < third_idx < second_idx\n"
                 "temp_dis1 : 0.4  temp_dis2:   2.94086  temp_idx1: 2 temp_idx2: 14\n"
                 "first :0  second:18  third: 4   fourth:14\n"}),
    [](const auto& info) { return std::string(info.param.name); });

// A pentagon symmetric about x = 12: its wall corners have the larger sum of
// distances to the base's ends, but the apex, farther from the base, is the
// third corner. The walls are then equally far from their chords to the apex,
// and the second chord's candidate wins.
TEST_F(CornerSearch, ApexIsTheThirdAndEqualCandidatesFavourTheSecondChord) {
  Contour contour;
  for (int x = 0; x < 24; ++x) contour.emplace_back(x, 0);
  for (const cv::Point p : {cv::Point(24, 0), {22, 7}, {17, 8}, {12, 9}, {7, 8}, {2, 7}}) {
    contour.push_back(p);
  }
  ASSERT_TRUE(run(contour));
  EXPECT_NE(log.str().find("temp_dis1 : 4.4  temp_dis2:   4.4  temp_idx1: 29 temp_idx2: 25\n"
                           "first :0  second:24  third: 27   fourth:25\n"),
            std::string::npos)
      << log.str();
  EXPECT_EQ(indices_, (std::vector<int>{0, 24, 25, 27}));
}

TEST_F(CornerSearch, FailsWithOneLineAndNoCornersWithoutFourDistinctCorners) {
  const std::string degenerate = "top_rect_contour_points is degenerate;\n";
  const std::vector<std::pair<Contour, std::string>> cases = {
      {{}, "top_rect_contour_points is empty! \n"},
      {{{2, 3}}, degenerate},
      {{{0, 0}, {10, 0}, {5, 1}}, degenerate},  // nothing between the farthest pair
      {{{0, 0}, {5, 1}, {10, 0}}, degenerate},  // nothing beyond it
  };
  for (const auto& [contour, message] : cases) {
    log.str("");
    state.top_rect_corner_points = {{9, 9}};
    indices_ = {7};
    EXPECT_FALSE(run(contour));
    EXPECT_EQ(log.str(), message);
    EXPECT_TRUE(state.top_rect_corner_points.empty());
    EXPECT_EQ(indices_, std::vector<int>{7});
  }
}

}  // namespace
}  // namespace boxdim
