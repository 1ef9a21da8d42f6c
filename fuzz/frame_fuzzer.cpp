// Arbitrary bytes as a depth frame of arbitrary size, seen through arbitrary
// intrinsics, go through both engines: the station pipeline (frame
// preparation and the whole measurement) and the precise detector.
//
// Input layout (missing bytes read as 0):
//   byte 0         flags: 1 = size from bytes 1-4, else 640 x 480;
//                         2 = intrinsics from bytes 5-20, else the defaults;
//                         4 = measure the frame a second time on the same engines
//   bytes 1-4      width and height, little-endian 16 bits each, folded to 1..1024
//   bytes 5-20     fx, fy, cx, cy as raw 32-bit floats (any bit pattern)
//   bytes 21-      depth samples, little-endian 16 bits, repeated to fill the frame
// A seed of 21 zero bytes followed by a 640 x 480 raw capture is a camera frame.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "engine/precise_engine.h"
#include "engine/station_engine.h"
#include "quiet_stream.h"

namespace {

constexpr std::size_t kHeaderBytes = 21;
constexpr int kMaxSide = 1024;
constexpr std::uint8_t kSizeFromInput = 1;
constexpr std::uint8_t kIntrinsicsFromInput = 2;
constexpr std::uint8_t kMeasureTwice = 4;

struct Header {
  std::uint8_t flags = 0;
  int width = 640;
  int height = 480;
  boxdim::CameraIntrinsics intrinsics;
};

Header read_header(const std::uint8_t* data, std::size_t size) {
  std::uint8_t bytes[kHeaderBytes] = {};
  std::memcpy(bytes, data, size < kHeaderBytes ? size : kHeaderBytes);
  Header header;
  header.flags = bytes[0];
  if (header.flags & kSizeFromInput) {
    header.width = 1 + (bytes[1] | bytes[2] << 8) % kMaxSide;
    header.height = 1 + (bytes[3] | bytes[4] << 8) % kMaxSide;
  }
  if (header.flags & kIntrinsicsFromInput) {
    float values[4];
    std::memcpy(values, bytes + 5, sizeof values);
    header.intrinsics = {values[0], values[1], values[2], values[3]};
  }
  return header;
}

std::vector<std::uint16_t> read_samples(const std::uint8_t* data, std::size_t size,
                                        std::size_t pixels) {
  std::vector<std::uint16_t> samples(pixels, 0);
  if (size < kHeaderBytes + 2) return samples;
  const std::uint8_t* bytes = data + kHeaderBytes;
  const std::size_t available = (size - kHeaderBytes) / 2;
  for (std::size_t i = 0; i < pixels; ++i) {
    const std::size_t k = i % available;
    samples[i] = static_cast<std::uint16_t>(bytes[2 * k] | bytes[2 * k + 1] << 8);
  }
  return samples;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Header header = read_header(data, size);
  const std::vector<std::uint16_t> samples =
      read_samples(data, size, static_cast<std::size_t>(header.width) * header.height);

  // Fresh engines per input keep every crash reproducible from its input alone.
  boxdim::fuzz::QuietStream quiet;
  boxdim::EngineContext context;
  context.log = &quiet;
  context.error_log = &quiet;
  context.seed_clock = [] { return std::time_t{1}; };
  boxdim::StationEngine station(context);
  boxdim::PreciseEngine precise(context);
  boxdim::DepthFrame frame;
  frame.depth =
      cv::Mat(header.height, header.width, CV_16UC1, const_cast<std::uint16_t*>(samples.data()));
  frame.intrinsics = header.intrinsics;

  const int frames = (header.flags & kMeasureTwice) ? 2 : 1;
  for (int i = 0; i < frames; ++i) {
    station.measure(frame);
    precise.measure(frame);
  }
  return 0;
}
