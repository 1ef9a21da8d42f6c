#include "footprint/length_width.h"

#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "support/test_frames.h"

namespace boxdim {
namespace {

using Corners = std::vector<cv::Point2f>;

class LengthWidth : public testing::StageTest {
 protected:
  // f = 512, principal point 0 and the plane z = depth: camera coordinates are
  // exactly pixel coordinates times depth / 512.
  void use_flat_plane(float depth) {
    state.intrinsics = {512.0f, 512.0f, 0.0f, 0.0f};
    state.plane = {0.0f, 0.0f, 1.0f, -depth};
  }
};

TEST_F(LengthWidth, IntersectionNeedsAnEmptyCornerList) {
  Corners filled = {{1, 1}};
  EXPECT_FALSE(cal_four_lines_intersection(state, std::vector<cv::Vec4f>(4), filled));
  EXPECT_EQ(log.str(), "cal_four_lines_intersection not equal to 4; \n");
}

// On the flat plane at depth 512 camera lengths are pixel lengths. Sides 0 and
// 2 are the top and bottom rows, 1 and 3 the right and left sides; both pairs
// share one ratio check, whose bounds the first pair brackets.
TEST_F(LengthWidth, OppositeSidesAgreeWithinThirtyPercentBoundsIncluded) {
  use_flat_plane(512.0f);
  struct Quad {
    float top, bottom, left, right;
    bool ok;
  };
  for (const Quad& q : {Quad{130, 100, 50, 50, true}, Quad{131, 100, 50, 50, false},
                        Quad{70, 100, 50, 50, true}, Quad{69, 100, 50, 50, false},
                        Quad{100, 100, 50, 65, true}, Quad{100, 100, 50, 66, false}}) {
    log.str("");
    const Corners corners = {{0, 0}, {q.top, 0}, {q.bottom, q.right}, {0, q.left}};
    std::vector<cv::Point3f> corners_3d;
    std::vector<float> sides;
    EXPECT_EQ(check_length_width_ratio(state, corners, corners_3d, sides), q.ok) << q.top;
    EXPECT_EQ(log.str(), q.ok ? "" : "length and width ratio error;\n");
    ASSERT_EQ(sides.size(), 4u);
    EXPECT_EQ(corners_3d[2], cv::Point3f(q.bottom, q.right, 512.0f));
    EXPECT_FLOAT_EQ(sides[0], q.top);
    EXPECT_FLOAT_EQ(sides[3], q.left);
  }
}

// A synthetic frame: the face's contour on the quarter image, its outline on
// the edge image, and the flat plane at `depth`: n pixels measure n * depth / 512.
TEST_F(LengthWidth, KeepsTheLongerSideAsLengthAndRejectsUnderFiveCentimetres) {
  struct Face {
    cv::Rect px;  // multiples of 4
    float depth;
    const char* log_tail;
    float length, width;
  };
  const char* const at_50 = "box_length:   200     box_width:  50\n";
  for (const Face& f :
       {Face{{160, 160, 320, 80}, 320.0f, at_50, 200.0f, 50.0f},
        Face{{280, 80, 80, 320}, 320.0f, at_50, 200.0f, 50.0f},
        Face{{160, 160, 320, 80},
             319.36f,
             "box_length:   199.6     box_width:  49.9\nbox_length or box_width less than 5 cm\n",
             199.6f,
             49.9f}}) {
    log.str("");
    cv::Mat quarter = cv::Mat::zeros(state.height / 4, state.width / 4, CV_8UC1);
    quarter(cv::Rect(f.px.tl() / 4, f.px.size() / 4)).setTo(255);
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(quarter, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    state.top_rect_contour_points = contours.at(0);
    state.edge_image = cv::Mat::zeros(state.height, state.width, CV_16SC1);
    cv::rectangle(state.edge_image, f.px + cv::Size(1, 1), cv::Scalar(500));
    use_flat_plane(f.depth);

    EXPECT_EQ(compute_length_width(state), f.width >= 50.0f) << f.px;
    const std::string text = log.str(), tail = f.log_tail;
    EXPECT_EQ(text.substr(text.size() - std::min(text.size(), tail.size())), tail);
    EXPECT_FLOAT_EQ(state.dimensions.box_length, f.length);
    EXPECT_FLOAT_EQ(state.dimensions.box_width, f.width);
  }
}

}  // namespace
}  // namespace boxdim
