#include "diagnostics/diagnostics.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/scratch_working_directory.h"
#include "support/test_frames.h"

namespace boxdim {
namespace {

using DiagnosticsTest = testing::StageTest;

TEST_F(DiagnosticsTest, TrimmingKeepsTheFirstStepEntriesWhereverTheGapIs) {
  // A spacing of 100 puts a gap of more than 50 mm at every step.
  struct {
    int count;
    float spacing;
    std::size_t kept;
  } cases[] = {{100, 1, 100}, {100, 100, 100}, {101, 1, 1},
               {101, 100, 1}, {250, 1, 2},     {1000, 100, 10}};
  for (const auto& c : cases) {
    std::vector<float> dists;
    for (int i = 0; i < c.count; ++i) dists.push_back(c.spacing * i);
    const std::vector<float> before = dists;
    EXPECT_TRUE(trim_dists(state, dists));
    EXPECT_EQ(dists, std::vector<float>(before.begin(), before.begin() + c.kept)) << c.count;
  }
}

// save_dists writes into the working directory: run it in a scratch one.
class SaveDistsTest : public DiagnosticsTest {
 protected:
  testing::ScratchWorkingDirectory scratch;
};

// Both messages are GBK: "数据已成功保存到dists.txt文件中。" and "无法打开文件！".
TEST_F(SaveDistsTest, WritesDistancesBelowTheTopFaceOrReportsAndIsTrueEitherWay) {
  state.plane.d = -800.0f;
  EXPECT_TRUE(save_dists(state, {1000.0f, 1000.25f, 1234.5678f}));
  std::stringstream content;
  content << std::ifstream("dists12.txt").rdbuf();
  EXPECT_EQ(content.str(), "200\n200.25\n434.568\n");
  EXPECT_EQ(log.str(),
            "\xca\xfd\xbe\xdd\xd2\xd1\xb3\xc9\xb9\xa6\xb1\xa3\xb4\xe6\xb5\xbd"
            "dists.txt\xce\xc4\xbc\xfe\xd6\xd0\xa1\xa3\n");
  EXPECT_EQ(errors.str(), "");

  log.str("");
  std::filesystem::remove("dists12.txt");
  std::filesystem::create_directory("dists12.txt");
  EXPECT_TRUE(save_dists(state, {1.0f}));
  EXPECT_EQ(errors.str(), "\xce\xde\xb7\xa8\xb4\xf2\xbf\xaa\xce\xc4\xbc\xfe\xa3\xa1\n");
  EXPECT_EQ(log.str(), "");
}

TEST_F(DiagnosticsTest, AHistogramOfNoDistancesIsNoPicture) {
  EXPECT_TRUE(depth_histogram_image({}).empty());
  show_depth_histogram(state, {});  // must not reach the empty list's ends
}

}  // namespace
}  // namespace boxdim
