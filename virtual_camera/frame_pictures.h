// The pictures a time-of-flight camera delivers besides depth, derived from a
// rendered scene, and the colour encodings the SDK hands out.
#pragma once

#include <opencv2/core.hpp>

namespace boxdim::virtual_camera {

// Integration time (microseconds) at which the infrared picture has its
// nominal brightness.
constexpr int kNominalIntegrationTimeUs = 650;

// Infrared amplitude, CV_16UC1: returned light falls with the square of the
// distance and grows with the integration time; the box's cardboard reflects
// a little more than the floor. depth CV_16UC1 (mm), surfaces CV_8UC1 of
// SurfaceKind; no return reads 0.
cv::Mat infrared_picture(const cv::Mat& depth, const cv::Mat& surfaces, int integration_time_us);

// The phase of the returned light as a 12-bit value, CV_16UC1: depth modulo
// the modulation's unambiguous range, scaled to 0..4095.
cv::Mat raw_picture(const cv::Mat& depth);

// Colour, CV_8UC3 BGR: cardboard-brown box, grey floor, nearer surfaces a
// little brighter; black where the ray hit nothing.
cv::Mat colour_picture(const cv::Mat& depth, const cv::Mat& surfaces);

// Packs a BGR picture of even width as YUYV 4:2:2 (BT.601, video range, as
// OpenCV's COLOR_YUV2BGR_YUYV decodes it) into width * height * 2 bytes.
void pack_yuyv(const cv::Mat& bgr, unsigned char* yuyv);

// A depth picture in false colour, CV_8UC3 BGR: JET over the frame's own
// depth range, nearest red, farthest blue, no return black.
cv::Mat depth_colour(const cv::Mat& depth);

}  // namespace boxdim::virtual_camera
