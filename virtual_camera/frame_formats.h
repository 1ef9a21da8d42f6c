// The frames the virtual camera streams: the kinds of each stream type in order, the size of
// each resolution code, and the intrinsics a frame of a given size is rendered with.
#pragma once

#include <cstddef>
#include <opencv2/core.hpp>
#include <optional>
#include <vector>

#include "app/camera_sdk/corvane_sdk.h"
#include "core/geometry.h"

namespace boxdim::virtual_camera {

// The stream whose depth and colour also come as an aligned pair (GetRGBD).
constexpr int kAlignedStream = 7;

// Infrared frames are the depth sensor's own exposure: they take the depth
// resolution and intrinsics. Every other kind answers for itself.
int sensor_kind(int kind);

// Pixel size of a frame kind at a resolution code; nullopt when the kind has
// no such code. Infrared has no codes of its own: it takes the depth sizes.
std::optional<cv::Size> resolution_size(int kind, int resolution);

// The kinds of a stream type's frame set in delivery order; empty for an
// unknown stream type. Depth always comes first and colour last: the program
// finds its depth copy at the start of the buffer, and its short advance over
// a colour frame only stays inside the buffer when nothing follows it.
const std::vector<int>& stream_kinds(int stream_type);

// Every kind is two bytes a pixel: 16-bit samples, or YUYV for colour.
std::size_t frame_bytes(cv::Size size);

// The camera's 640 x 480 intrinsics carried over to a frame of `size`, so
// that a pixel keeps seeing the same ray at every resolution.
CameraIntrinsics scaled_intrinsics(cv::Size size);

}  // namespace boxdim::virtual_camera
