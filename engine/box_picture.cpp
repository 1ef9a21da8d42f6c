#include "engine/box_picture.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

namespace boxdim {

namespace {

cv::Scalar status_colour(BoxStatus status) {
  switch (status) {
    case BoxStatus::kMeasured:
      return {60, 200, 60};
    case BoxStatus::kPartial:
      return {0, 165, 255};
    case BoxStatus::kIrregular:
      return {200, 60, 200};
    case BoxStatus::kTooSmall:
      return {160, 160, 160};
    case BoxStatus::kUncertain:
      return {40, 220, 220};
  }
  return {255, 255, 255};
}

// Followed boxes green once they have a fused reading, amber before; boxes
// not followed grey.
cv::Scalar colour_of(const BoxMeasurement& box) {
  if (!box.track_id) return {160, 160, 160};
  return box.fused ? cv::Scalar(60, 200, 60) : cv::Scalar(0, 165, 255);
}

}  // namespace

void put_outlined_text(cv::Mat& picture, const std::string& text, cv::Point at, double scale,
                       const cv::Scalar& colour) {
  cv::putText(picture, text, at, cv::FONT_HERSHEY_SIMPLEX, scale, cv::Scalar(0, 0, 0), 3,
              cv::LINE_AA);
  cv::putText(picture, text, at, cv::FONT_HERSHEY_SIMPLEX, scale, colour, 1, cv::LINE_AA);
}

std::string frame_time_text(std::int64_t time_us) {
  // From 2001 on, a time is taken to count from 1970.
  constexpr std::int64_t kEpochLikeUs = 978307200LL * 1000000;
  char text[48];
  if (time_us < kEpochLikeUs) {
    std::snprintf(text, sizeof text, "%.3f s", static_cast<double>(time_us) * 1e-6);
    return text;
  }
  const std::time_t seconds = static_cast<std::time_t>(time_us / 1000000);
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  const std::size_t n = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &utc);
  std::snprintf(text + n, sizeof text - n, ".%03d UTC", static_cast<int>(time_us / 1000 % 1000));
  return text;
}

cv::Mat depth_picture(const cv::Mat& depth) {
  CV_Assert(depth.type() == CV_16UC1);
  // The range of the samples with depth sets the contrast; every fourth
  // pixel of every fourth row tells it well enough.
  cv::Mat coarse;
  cv::resize(depth, coarse, cv::Size((depth.cols + 3) / 4, (depth.rows + 3) / 4), 0, 0,
             cv::INTER_NEAREST);
  double nearest = 0.0;
  double farthest = 0.0;
  cv::minMaxLoc(coarse, &nearest, &farthest, nullptr, nullptr, coarse > 0);
  // Near surfaces dark, far ones bright; a sample without depth falls below
  // the range and saturates to black by itself.
  const double gain = 215.0 / std::max(1.0, farthest - nearest);
  const double shift = 40.0 - gain * nearest;
  cv::Mat grey;
  depth.convertTo(grey, CV_8U, gain, shift);
  cv::Mat picture;
  cv::cvtColor(grey, picture, cv::COLOR_GRAY2BGR);
  return picture;
}

cv::Mat draw_boxes(const cv::Mat& depth, const MeasurementResult& result) {
  cv::Mat picture = depth_picture(depth);
  const double scale = std::max(0.35, picture.cols / 1600.0);
  for (std::size_t b = 0; b < result.boxes.size(); ++b) {
    const BoxMeasurement& box = result.boxes[b];
    if (box.corners_px.size() != 4) continue;
    const cv::Scalar colour = status_colour(box.status);
    const bool primary = result.primary && *result.primary == b;
    std::vector<cv::Point> outline;
    for (const cv::Point2f& c : box.corners_px) outline.emplace_back(cvRound(c.x), cvRound(c.y));
    cv::polylines(picture, outline, true, colour, primary ? 2 : 1, cv::LINE_AA);
    char text[64];
    if (box.status == BoxStatus::kMeasured) {
      std::snprintf(text, sizeof text, "%.0f x %.0f x %.0f", box.dimensions.box_length,
                    box.dimensions.box_width, box.dimensions.box_height);
    } else {
      std::snprintf(text, sizeof text, "%s", box_status_name(box.status));
    }
    int baseline = 0;
    const cv::Size size = cv::getTextSize(text, cv::FONT_HERSHEY_SIMPLEX, scale, 1, &baseline);
    const cv::Point at(cvRound(box.centre_px.x) - size.width / 2,
                       cvRound(box.centre_px.y) + size.height / 2);
    put_outlined_text(picture, text, at, scale, colour);
  }
  return picture;
}

cv::Mat draw_proof(const cv::Mat& depth, const TrackEvent& event, int camera_id) {
  cv::Mat picture = depth_picture(depth);
  const cv::Scalar colour = status_colour(BoxStatus::kMeasured);
  std::vector<cv::Point> outline;
  for (const cv::Point2f& c : event.corners_px) outline.emplace_back(cvRound(c.x), cvRound(c.y));
  cv::polylines(picture, outline, true, colour, 2, cv::LINE_AA);
  const double scale = std::max(0.4, picture.cols / 1280.0);
  const int line = cvRound(28 * scale / 0.5);
  const BoxDimensions& d = event.reading.dimensions;
  char text[3][96];
  std::snprintf(text[0], sizeof text[0], "box %d", event.track_id);
  std::snprintf(text[1], sizeof text[1], "%.1f x %.1f x %.1f mm (+/- %.1f mm, %d frames)",
                d.box_length, d.box_width, d.box_height, event.reading.uncertainty_mm,
                event.reading.frames);
  std::snprintf(text[2], sizeof text[2], "camera %d, %s", camera_id,
                frame_time_text(event.time_us).c_str());
  for (int i = 0; i < 3; ++i) {
    put_outlined_text(picture, text[i], cv::Point(line / 2, line * (i + 1)), scale, colour);
  }
  // The track's number on the box itself, so that the picture says which box.
  cv::Point2f centre(0.0f, 0.0f);
  for (const cv::Point2f& c : event.corners_px) centre += 0.25f * c;
  put_outlined_text(picture, std::to_string(event.track_id),
                    cv::Point(cvRound(centre.x), cvRound(centre.y)), 2 * scale, colour);
  return picture;
}

cv::Mat draw_followed_boxes(const DepthFrame& frame, const MeasurementResult& result) {
  cv::Mat picture = depth_picture(frame.depth);
  const double scale = std::max(0.4, picture.cols / 1280.0);
  int followed = 0;
  for (const BoxMeasurement& box : result.boxes) {
    if (box.corners_px.size() != 4) continue;
    const cv::Scalar colour = colour_of(box);
    std::vector<cv::Point> outline;
    for (const cv::Point2f& c : box.corners_px) outline.emplace_back(cvRound(c.x), cvRound(c.y));
    cv::polylines(picture, outline, true, colour, 2, cv::LINE_AA);
    char label[96];
    if (box.track_id && box.fused) {
      const BoxDimensions& d = box.fused->dimensions;
      std::snprintf(label, sizeof label, "#%d %.0f x %.0f x %.0f", *box.track_id, d.box_length,
                    d.box_width, d.box_height);
    } else if (box.track_id) {
      std::snprintf(label, sizeof label, "#%d %s", *box.track_id, box_status_name(box.status));
    } else {
      std::snprintf(label, sizeof label, "%s", box_status_name(box.status));
    }
    followed += box.track_id.has_value();
    int baseline = 0;
    const cv::Size size = cv::getTextSize(label, cv::FONT_HERSHEY_SIMPLEX, scale, 1, &baseline);
    put_outlined_text(picture, label,
                      cv::Point(cvRound(box.centre_px.x) - size.width / 2,
                                cvRound(box.centre_px.y) + size.height / 2),
                      scale, colour);
  }
  char header[128];
  std::snprintf(header, sizeof header, "camera %d  %s  %d boxes followed", frame.camera_id,
                frame_time_text(frame.timestamp_us).c_str(), followed);
  put_outlined_text(picture, header, cv::Point(10, cvRound(30 * scale / 0.5)), scale,
                    cv::Scalar(255, 255, 255));
  return picture;
}

}  // namespace boxdim
