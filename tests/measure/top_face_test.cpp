#include "measure/top_face.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

namespace boxdim {
namespace {

// Selects the grid sample of every non-zero cell of a 120 x 160 cell image,
// the way select_points_by_plane would (x = row, y = column). Each point
// remembers its cell so the filtering can be checked.
void select_cells(MeasurementState& state, const cv::Mat& cells) {
  state.selected_pixels.clear();
  state.selected_points.clear();
  for (int r = 0; r < cells.rows; ++r) {
    for (int c = 0; c < cells.cols; ++c) {
      if (cells.at<std::uint8_t>(r, c) == 0) continue;
      state.selected_pixels.emplace_back(4 * r, 4 * c);
      state.selected_points.emplace_back(static_cast<float>(c), static_cast<float>(r), 800.0f);
    }
  }
}

cv::Mat empty_cells() { return cv::Mat::zeros(120, 160, CV_8UC1); }

void fill(cv::Mat& cells, cv::Rect rect) { cells(rect).setTo(255); }

// Cells of `rect` not on its border: those strictly inside its outline.
std::size_t interior_cells(cv::Rect rect) {
  return static_cast<std::size_t>(rect.width - 2) * (rect.height - 2);
}

// The centre cell of a 640 x 480 frame is column 80, row 60.
const cv::Rect kFaceAroundCentre(50, 40, 70, 36);  // x = column, y = row

struct FaceCase {
  const char* name;
  std::vector<cv::Rect> filled;    // cells set, x = column, y = row
  std::vector<cv::Point> cleared;  // cells unset afterwards, x = column
  cv::Rect outline;                // empty: no face around the centre
  std::size_t kept;                // selected points left
};

class TopFaceCases : public ::testing::TestWithParam<FaceCase> {};

TEST_P(TopFaceCases, KeepOnlyTheCleanedOutlineAroundTheCentreAndThePointsInside) {
  MeasurementState state;
  cv::Mat cells = empty_cells();
  for (const cv::Rect& rect : GetParam().filled) fill(cells, rect);
  for (const cv::Point& cell : GetParam().cleared) cells.at<std::uint8_t>(cell) = 0;
  select_cells(state, cells);
  extract_top_face(state);
  EXPECT_EQ(cv::boundingRect(state.top_rect_contour_points), GetParam().outline);
  EXPECT_EQ(state.selected_pixels.size(), GetParam().kept);
  EXPECT_EQ(state.selected_points.size(), GetParam().kept);
}

const std::size_t kFaceInterior = interior_cells(kFaceAroundCentre);

INSTANTIATE_TEST_SUITE_P(
    Masks, TopFaceCases,
    ::testing::Values(
        FaceCase{"larger_blob_away_from_centre",
                 {{0, 0, 160, 30}, kFaceAroundCentre},
                 {},
                 kFaceAroundCentre,
                 kFaceInterior},
        // Opening removes a stray cell; closing fills a pinhole, whose point stays lost.
        FaceCase{"speckle_and_pinhole",
                 {kFaceAroundCentre, {10, 10, 1, 1}},
                 {{60, 60}},
                 kFaceAroundCentre,
                 kFaceInterior - 1},
        FaceCase{"touching_the_border", {{20, 0, 120, 120}}, {}, {20, 0, 120, 120}, 118 * 118},
        FaceCase{"nothing_selected", {}, {}, {}, 0},
        // The outline's left edge runs through the centre cell.
        FaceCase{"centre_on_the_outline", {{80, 40, 40, 40}}, {}, {}, 0},
        FaceCase{"single_cell_line_through_centre", {{0, 60, 160, 1}}, {}, {}, 0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(ExtractTopFace, TinyFramesWithoutMaskCellsSelectNothing) {
  MeasurementState state;
  state.width = 3;
  state.height = 3;
  state.selected_pixels = {{0, 0}};
  state.selected_points = {{0.0f, 0.0f, 800.0f}};
  extract_top_face(state);
  EXPECT_TRUE(state.selected_pixels.empty());
  EXPECT_TRUE(state.top_rect_contour_points.empty());
}

}  // namespace
}  // namespace boxdim
