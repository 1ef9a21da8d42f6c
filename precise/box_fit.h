// One box from its top: the smallest enclosing cuboid's length and width as
// the rectangle of the top's outline on its plane, its height as the highest
// point of the top above the floor, its status and a confidence.
#pragma once

#include <array>
#include <opencv2/core.hpp>
#include <optional>
#include <vector>

#include "core/camera_intrinsics.h"
#include "core/measurement_result.h"
#include "precise/frame_points.h"
#include "precise/top_faces.h"
#include "precise/top_surface.h"

namespace boxdim::precise {

struct BoxFit {
  BoxStatus status = BoxStatus::kIrregular;
  float length_mm = 0.0f;
  float width_mm = 0.0f;
  float height_mm = 0.0f;
  // The top's corners in order around it, at the height of its rim.
  std::array<cv::Point3f, 4> corners_mm{};
  std::array<cv::Point2f, 4> corners_px{};
  cv::Point2f centre_px;
  // The top's centre in the camera's frame (mm): of its visible part until a
  // rectangle is fitted.
  cv::Point3f centre_mm;
  float confidence = 0.0f;  // 0 to 1, from how well the outline and top fit
  // The sums the height was fitted from, x along the top's longer side.
  TopMoments top;
  const char* reason = "";  // why it is not measured
};

// What a fit reads of the frame.
struct FrameView {
  const cv::Mat1f& heights;  // above the floor, NaN without depth
  const cv::Mat& depth;      // CV_16UC1, mm
  const cv::Mat1b& above;    // pixels above the floor
  const cv::Mat1i& regions;  // as TopFaceFinder::regions(), where above
  const cv::Mat1i& faces;    // as TopFaceFinder::faces()
  const CameraIntrinsics& intrinsics;
  const FloorPlane& floor;
};

// Positions across an edge, counted on and off the top in fine steps: the
// edge is where a threshold misclassifies the fewest, the middle of the
// thresholds that tie (the gap between the last pixel on the top and the
// first one off it).
class EdgeCounts {
 public:
  void reset(float low, float step, int steps) {
    low_ = low;
    step_ = step;
    per_step_ = 1.0f / step;
    steps_ = steps;
    counts_.assign(2 * steps, 0);
  }
  void add(float s, bool on) {
    const int k = static_cast<int>((s - low_) * per_step_);
    if (k < 0 || k >= steps_) return;
    counts_[2 * k + on] += 1;
  }
  std::optional<float> edge() const {
    int on_total = 0;
    int off_total = 0;
    for (int k = 0; k < steps_; ++k) {
      off_total += counts_[2 * k];
      on_total += counts_[2 * k + 1];
    }
    if (on_total < 2 || off_total < 1) return std::nullopt;
    // Threshold before step k: on samples from k on and off ones before k err.
    int cost = on_total;
    int best = cost;
    double sum = 0.0;
    int count = 1;
    for (int k = 0; k < steps_; ++k) {
      cost += counts_[2 * k] - counts_[2 * k + 1];
      const double position = k + 1.0;
      if (cost < best) {
        best = cost;
        sum = position;
        count = 1;
      } else if (cost == best) {
        sum += position;
        ++count;
      }
    }
    return static_cast<float>(low_ + step_ * (sum / count));
  }

 private:
  float low_ = 0.0f;
  float step_ = 1.0f;
  float per_step_ = 1.0f;
  int steps_ = 0;
  std::vector<int> counts_;  // per step: off, on
};

// Buffers a fit reuses from box to box and frame to frame.
struct FitBuffers {
  // Canvases of the largest region so far; a fit uses views of its own size.
  cv::Mat1b face, rim, inner, morphology;
  std::vector<cv::Point2f> sorted, hull;  // for the first rectangle
  // A pixel near the outline: its ray on the top's plane (in-plane mm), its
  // height, whether it is on the top, and where it stands on the plane when
  // it may be a point of a side.
  struct RingPixel {
    cv::Point2f q;
    float h = 0.0f;
    bool on = false;
    bool below_valid = false;
    cv::Point2f below;
  };
  std::vector<RingPixel> ring;
  static constexpr int kMaxBins = 12;
  struct Side {
    EdgeCounts across;           // the whole side
    EdgeCounts along[kMaxBins];  // stretch by stretch
    std::vector<cv::Point2f> below;
    int near = 0;
    int missing_near = 0;
  };
  Side sides[4];
  std::vector<cv::Point2f> outline;
  std::vector<cv::Point2f> course;
  std::vector<float> values;
};

BoxFit fit_box(const FrameView& frame, const TopFace& face, FitBuffers& buffers);

}  // namespace boxdim::precise
