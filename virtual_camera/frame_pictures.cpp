#include "virtual_camera/frame_pictures.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <opencv2/imgproc.hpp>

#include "scene/depth_scene.h"

namespace boxdim::virtual_camera {
namespace {

// Amplitude of the floor's return at 1 m and nominal integration time: in the
// middle of the range the program displays (half the sample, capped at 255).
constexpr double kFloorAmplitudeAt1m = 240.0;
constexpr double kBoxReflectivity = 1.25;  // relative to the floor
// A 60 MHz modulation repeats its phase every 2.5 m.
constexpr double kUnambiguousRangeMm = 2500.0;
constexpr double kRawFullScale = 4095.0;

const cv::Vec3d kCardboardBgr(96.0, 140.0, 190.0);
const cv::Vec3d kFloorBgr(128.0, 128.0, 128.0);

std::uint8_t clamp_byte(double value) {
  return static_cast<std::uint8_t>(std::clamp(std::lround(value), 0L, 255L));
}

// A tenth brighter per 200 mm nearer than 1 m, within +-20 %: enough to tell
// the box's top from the floor without hiding its colour.
double shading(std::uint16_t depth_mm) {
  if (depth_mm == 0) return 1.0;
  return std::clamp(1.0 + (1000.0 - depth_mm) / 2000.0, 0.8, 1.2);
}

// BT.601 in video range (Y 16-235). OpenCV's COLOR_BGR2YUV is full range
// while its YUYV decoder expects video range: converting here keeps the
// colours through a round trip.
cv::Vec3d video_yuv(const cv::Vec3b& bgr) {
  const double b = bgr[0], g = bgr[1], r = bgr[2];
  return {16.0 + 0.257 * r + 0.504 * g + 0.098 * b, 128.0 - 0.148 * r - 0.291 * g + 0.439 * b,
          128.0 + 0.439 * r - 0.368 * g - 0.071 * b};
}

}  // namespace

cv::Mat infrared_picture(const cv::Mat& depth, const cv::Mat& surfaces, int integration_time_us) {
  CV_Assert(depth.type() == CV_16UC1 && surfaces.type() == CV_8UC1 &&
            depth.size() == surfaces.size());
  const double exposure = integration_time_us / static_cast<double>(kNominalIntegrationTimeUs);
  cv::Mat ir(depth.size(), CV_16UC1);
  for (int v = 0; v < depth.rows; ++v) {
    const auto* d = depth.ptr<std::uint16_t>(v);
    const auto* s = surfaces.ptr<std::uint8_t>(v);
    auto* out = ir.ptr<std::uint16_t>(v);
    for (int u = 0; u < depth.cols; ++u) {
      if (d[u] == 0 || s[u] == kNoSurface) {
        out[u] = 0;
        continue;
      }
      const double metres = d[u] / 1000.0;
      const double reflectivity = s[u] == kBoxSurface ? kBoxReflectivity : 1.0;
      const double amplitude = kFloorAmplitudeAt1m * reflectivity * exposure / (metres * metres);
      out[u] = static_cast<std::uint16_t>(std::min(std::round(amplitude), 65535.0));
    }
  }
  return ir;
}

cv::Mat raw_picture(const cv::Mat& depth) {
  CV_Assert(depth.type() == CV_16UC1);
  cv::Mat raw(depth.size(), CV_16UC1);
  for (int v = 0; v < depth.rows; ++v) {
    const auto* d = depth.ptr<std::uint16_t>(v);
    auto* out = raw.ptr<std::uint16_t>(v);
    for (int u = 0; u < depth.cols; ++u) {
      const double phase = std::fmod(d[u], kUnambiguousRangeMm) / kUnambiguousRangeMm;
      out[u] = static_cast<std::uint16_t>(std::round(phase * kRawFullScale));
    }
  }
  return raw;
}

cv::Mat colour_picture(const cv::Mat& depth, const cv::Mat& surfaces) {
  CV_Assert(depth.type() == CV_16UC1 && surfaces.type() == CV_8UC1 &&
            depth.size() == surfaces.size());
  cv::Mat bgr(depth.size(), CV_8UC3);
  for (int v = 0; v < depth.rows; ++v) {
    const auto* d = depth.ptr<std::uint16_t>(v);
    const auto* s = surfaces.ptr<std::uint8_t>(v);
    auto* out = bgr.ptr<cv::Vec3b>(v);
    for (int u = 0; u < depth.cols; ++u) {
      if (s[u] == kNoSurface) {
        out[u] = cv::Vec3b(0, 0, 0);
        continue;
      }
      const cv::Vec3d base = s[u] == kBoxSurface ? kCardboardBgr : kFloorBgr;
      const double light = shading(d[u]);
      out[u] = cv::Vec3b(clamp_byte(base[0] * light), clamp_byte(base[1] * light),
                         clamp_byte(base[2] * light));
    }
  }
  return bgr;
}

void pack_yuyv(const cv::Mat& bgr, unsigned char* yuyv) {
  CV_Assert(bgr.type() == CV_8UC3 && bgr.cols % 2 == 0);
  for (int v = 0; v < bgr.rows; ++v) {
    const auto* pixel = bgr.ptr<cv::Vec3b>(v);
    for (int u = 0; u < bgr.cols; u += 2, yuyv += 4) {
      const cv::Vec3d left = video_yuv(pixel[u]);
      const cv::Vec3d right = video_yuv(pixel[u + 1]);
      // Y0 U Y1 V: the pair shares the mean of its chroma.
      yuyv[0] = clamp_byte(left[0]);
      yuyv[1] = clamp_byte((left[1] + right[1]) / 2.0);
      yuyv[2] = clamp_byte(right[0]);
      yuyv[3] = clamp_byte((left[2] + right[2]) / 2.0);
    }
  }
}

cv::Mat depth_colour(const cv::Mat& depth) {
  CV_Assert(depth.type() == CV_16UC1);
  const cv::Mat returned = depth > 0;
  double nearest = 0.0;
  double farthest = 0.0;
  cv::minMaxLoc(depth, &nearest, &farthest, nullptr, nullptr, returned);
  const double span = std::max(1.0, farthest - nearest);
  cv::Mat level;
  depth.convertTo(level, CV_8U, -255.0 / span, 255.0 * farthest / span);
  cv::Mat colour;
  cv::applyColorMap(level, colour, cv::COLORMAP_JET);
  colour.setTo(cv::Scalar::all(0), ~returned);
  return colour;
}

}  // namespace boxdim::virtual_camera
