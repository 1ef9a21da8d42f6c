// Tops found on height images painted by hand: each top is one face holding
// all of its pixels, whatever the image's borders and rows do to its runs.
#include "precise/top_faces.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace boxdim::precise {
namespace {

struct Patch {
  cv::Rect area;
  float height_mm;
};

struct ExpectedFace {
  cv::Rect bounds;
  std::size_t pixels;
  float height_mm;
};

struct FacesCase {
  std::string name;
  cv::Size size;
  std::vector<Patch> patches;  // painted in order onto a floor at height 0
  std::vector<ExpectedFace> faces;
};

void PrintTo(const FacesCase& c, std::ostream* os) { *os << c.name; }

class TopFacesTest : public ::testing::TestWithParam<FacesCase> {};

TEST_P(TopFacesTest, EachTopIsOneFaceWithAllItsPixels) {
  const FacesCase& c = GetParam();
  cv::Mat1f heights(c.size, 0.0f);
  for (const Patch& patch : c.patches) heights(patch.area).setTo(patch.height_mm);
  const cv::Mat1b above = heights > 20.0f;
  const cv::Mat depth(c.size, CV_16UC1, cv::Scalar(1000));
  TopFaceFinder finder;
  // Twice: the second find runs on buffers the first one left.
  for (int pass = 0; pass < 2; ++pass) {
    std::vector<TopFace> faces = finder.find(heights, above, depth, 99);
    ASSERT_EQ(faces.size(), c.faces.size()) << "pass " << pass;
    std::sort(faces.begin(), faces.end(), [](const TopFace& a, const TopFace& b) {
      return a.height_mm > b.height_mm || (a.height_mm == b.height_mm && a.bounds.x < b.bounds.x);
    });
    for (std::size_t f = 0; f < faces.size(); ++f) {
      EXPECT_EQ(faces[f].bounds, c.faces[f].bounds) << "face " << f;
      EXPECT_EQ(faces[f].pixel_count, c.faces[f].pixels) << "face " << f;
      EXPECT_NEAR(faces[f].height_mm, c.faces[f].height_mm, 0.01f) << "face " << f;
      // Every pixel of the face is marked as it in the face image.
      for (std::size_t n = 0; n < faces[f].pixel_count; ++n) {
        ASSERT_EQ(finder.faces()(0, faces[f].pixels[n]), faces[f].id);
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Painted, TopFacesTest,
    ::testing::Values(
        FacesCase{"one_box", {60, 40}, {{{10, 10, 20, 15}, 200}}, {{{10, 10, 20, 15}, 300, 200}}},
        // Whole rows: each row's run ends at the last column and the next
        // row's begins at the first.
        FacesCase{
            "across_whole_rows", {30, 20}, {{{0, 5, 30, 10}, 200}}, {{{0, 5, 30, 10}, 300, 200}}},
        FacesCase{
            "the_whole_image", {16, 12}, {{{0, 0, 16, 12}, 150}}, {{{0, 0, 16, 12}, 192, 150}}},
        FacesCase{"two_boxes_apart",
                  {80, 40},
                  {{{5, 5, 20, 20}, 300}, {{40, 10, 30, 20}, 150}},
                  {{{5, 5, 20, 20}, 400, 300}, {{40, 10, 30, 20}, 600, 150}}},
        // A box against a lower one: the surface jumps, two tops.
        FacesCase{"box_against_a_lower_one",
                  {80, 40},
                  {{{10, 10, 30, 20}, 300}, {{40, 10, 30, 20}, 150}},
                  {{{10, 10, 30, 20}, 600, 300}, {{40, 10, 30, 20}, 600, 150}}},
        // Two tops on a block a little lower, which joins them into one
        // region: two tops at one height, and the block's.
        FacesCase{"two_tops_joined_by_a_lower_one",
                  {90, 40},
                  {{{5, 5, 80, 30}, 170}, {{10, 10, 20, 20}, 200}, {{60, 10, 20, 20}, 200}},
                  {{{10, 10, 20, 20}, 400, 200},
                   {{60, 10, 20, 20}, 400, 200},
                   {{5, 5, 80, 30}, 2400 - 800, 170}}},
        // Touching at a corner only: two tops, as a top's pixels join along
        // their sides, never across a corner alone.
        FacesCase{"touching_at_a_corner",
                  {60, 40},
                  {{{5, 5, 10, 10}, 200}, {{15, 15, 10, 10}, 200}},
                  {{{5, 5, 10, 10}, 100, 200}, {{15, 15, 10, 10}, 100, 200}}},
        // The two arms of a U meet only at its bottom, rows after they begin.
        FacesCase{"a_u_shaped_top",
                  {60, 40},
                  {{{10, 10, 30, 20}, 200}, {{18, 10, 14, 14}, 0}},
                  {{{10, 10, 30, 20}, 404, 200}}},
        // On a lower block, two tops meeting at a corner are one top: the
        // block joins them into one region, and within it a top's pixels
        // join across corners.
        FacesCase{"touching_at_a_corner_on_a_block",
                  {60, 40},
                  {{{5, 5, 40, 30}, 170}, {{10, 10, 10, 10}, 200}, {{20, 20, 10, 10}, 200}},
                  {{{10, 10, 20, 20}, 200, 200}, {{5, 5, 40, 30}, 1000, 170}}},
        // Too few pixels to be a top.
        FacesCase{"a_speck", {40, 30}, {{{10, 10, 4, 4}, 200}}, {}}),
    [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace boxdim::precise
