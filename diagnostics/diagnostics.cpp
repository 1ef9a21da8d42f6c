#include "diagnostics/diagnostics.h"

#include <fstream>
#include <opencv2/highgui.hpp>
#include <opencv2/imgproc.hpp>
#include <ostream>

namespace boxdim {

namespace {

constexpr int kHistogramBins = 10;
constexpr int kHistogramRows = 400;
constexpr int kHistogramCols = 512;
const cv::Scalar kHistogramColour(0, 0, 255);  // red
constexpr int kHistogramLineThickness = 2;

constexpr const char* kDistsFile = "dists12.txt";
// GBK (code page 936) on purpose: these messages have always been written in
// that encoding and stay byte for byte as they are.
// "数据已成功保存到dists.txt文件中。" ("The data was saved to the file
// dists.txt."; the file is dists12.txt, the text has always said dists.txt).
constexpr const char* kSavedMessage =
    "\xca\xfd\xbe\xdd\xd2\xd1\xb3\xc9\xb9\xa6\xb1\xa3\xb4\xe6\xb5\xbd"
    "dists.txt"
    "\xce\xc4\xbc\xfe\xd6\xd0\xa1\xa3";
// GBK as well: "无法打开文件！" ("Cannot open the file!").
constexpr const char* kCannotOpenMessage =
    "\xce\xde\xb7\xa8\xb4\xf2\xbf\xaa\xce\xc4\xbc\xfe\xa3\xa1";

// Lists this short are kept whole by the trimming routine.
constexpr std::size_t kTrimMinEntries = 100;
constexpr double kTrimStartFraction = 0.2;
constexpr double kTrimStepFraction = 0.01;
constexpr float kTrimGapMm = 50.0f;

}  // namespace

cv::Mat depth_histogram_image(const std::vector<float>& dists) {
  if (dists.empty()) return {};
  // calcHist only reads its input; the Mat merely wraps the list.
  const cv::Mat values(1, static_cast<int>(dists.size()), CV_32FC1,
                       const_cast<float*>(dists.data()));
  const float range[] = {dists.front(), dists.back()};
  const float* ranges[] = {range};
  const int channels[] = {0};
  const int bins[] = {kHistogramBins};
  cv::Mat hist;
  cv::calcHist(&values, 1, channels, cv::Mat(), hist, 1, bins, ranges, true, false);

  cv::Mat image(kHistogramRows, kHistogramCols, CV_8UC3, cv::Scalar(255, 255, 255));
  const int bin_width = cvRound(static_cast<double>(kHistogramCols) / kHistogramBins);
  cv::normalize(hist, hist, 0, image.rows, cv::NORM_MINMAX, -1, cv::Mat());
  for (int i = 1; i < kHistogramBins; ++i) {
    const cv::Point from(bin_width * (i - 1), kHistogramRows - cvRound(hist.at<float>(i - 1)));
    const cv::Point to(bin_width * i, kHistogramRows - cvRound(hist.at<float>(i)));
    cv::line(image, from, to, kHistogramColour, kHistogramLineThickness, cv::LINE_8, 0);
  }
  return image;
}

void show_depth_histogram(MeasurementState& /*state*/, const std::vector<float>& dists) {
  // Callers must not pass an empty list; if one does, there is nothing to show.
  if (dists.empty()) return;
  cv::imshow("Histogram", depth_histogram_image(dists));
}

bool save_dists(MeasurementState& state, const std::vector<float>& dists) {
  std::ofstream file(kDistsFile, std::ios::out | std::ios::trunc);
  if (!file.is_open()) {
    *state.seams.error_log << kCannotOpenMessage << '\n';
    return true;
  }
  // Plus d: the file holds each point's distance below the top face.
  for (const float value : dists) file << value + state.plane.d << '\n';
  file.close();
  stage_log(state) << kSavedMessage << '\n';
  return true;
}

bool trim_dists(MeasurementState& /*state*/, std::vector<float>& dists) {
  const std::size_t count = dists.size();
  if (count <= kTrimMinEntries) return true;
  const int n = static_cast<int>(count);
  const int start = static_cast<int>(n * kTrimStartFraction);
  const int step = static_cast<int>(n * kTrimStepFraction);
  // The search for the first gap decides nothing: the erase below starts at
  // `step`, not at the gap, so only the first `step` entries survive. That is
  // how the routine has always behaved, and one reason the measurement does
  // not use it; it is kept unchanged so that studies done with it stay
  // comparable.
  for (int i = start; i < n - step; i += step) {
    if (dists[i + step] - dists[i] > kTrimGapMm) break;
  }
  dists.erase(dists.begin() + step, dists.end());
  return true;
}

}  // namespace boxdim
