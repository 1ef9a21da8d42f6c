// One box from its top: the smallest enclosing cuboid's length and width as
// the rectangle of the top's outline on its plane, its height as the highest
// point of the top above the floor, its status and a confidence.
#pragma once

#include <array>
#include <opencv2/core.hpp>
#include <vector>

#include "core/camera_intrinsics.h"
#include "core/measurement_result.h"
#include "precise/frame_points.h"
#include "precise/top_faces.h"

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
  float confidence = 0.0f;  // 0 to 1, from how well the outline and top fit
  const char* reason = "";  // why it is not measured
};

// What a fit reads of the frame.
struct FrameView {
  const cv::Mat1f& heights;  // above the floor, NaN without depth
  const cv::Mat3f& points;
  const cv::Mat1i& regions;  // as TopFaceFinder::regions()
  const CameraIntrinsics& intrinsics;
  const FloorPlane& floor;
};

// Buffers a fit reuses from box to box and frame to frame.
struct FitBuffers {
  cv::Mat1b face;
  cv::Mat2f plane;  // each ROI pixel's ray on the top's plane (in-plane mm)
  cv::Mat1b plane_ok;
  struct Sample {
    float s, t, h;
    bool on;
  };
  std::vector<Sample> samples;
  std::vector<cv::Point2f> outline;
  std::vector<float> values;
  std::vector<float> side;
};

BoxFit fit_box(const FrameView& frame, const TopFace& face, FitBuffers& buffers);

}  // namespace boxdim::precise
