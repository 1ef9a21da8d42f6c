// The camera SDK contract: what boxdim needs of the camera maker's CorvaneSDK
// library. The maker's library or our virtual camera (virtual_camera/)
// implements it; the program is written against this header only.
//
// Every operation returns an int32 status, 0 for success; other values are
// error codes that the caller reports and does not interpret. Queries of
// variable size are made twice: first with a null buffer to learn the count
// or length, then with a buffer of that size.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Corvane {

// Frame kinds, as FrameInfo::kind and as frame types of the resolution calls.
enum FrameKind : std::int32_t {
  kFrameRaw = 1,    // raw sensor frame, 16-bit
  kFrameDepth = 2,  // depth, 16-bit millimetres
  kFrameIr = 3,     // infrared amplitude, 16-bit
  kFrameColor = 4,  // colour, YUYV (two bytes a pixel)
};

struct DeviceInfo {
  std::int32_t id;    // passed to every per-device operation
  std::int32_t type;  // device type 1-7: selects the configuration
  std::int32_t port;
  char name[28];
  std::int32_t vendor_id;
  std::int32_t product_id;
};

struct FrameInfo {
  std::int32_t kind;  // FrameKind
  std::int32_t height;
  std::int32_t width;
};

#pragma pack(push, 1)
// One frame set: frame_count frames back to back in `data`, in the order of
// their FrameInfo records. Owned by the library, valid until the next
// GetLastFrameData of the same device.
struct FrameData {
  std::int32_t frame_count;
  FrameInfo* frame_info;
  unsigned char* data;
};
#pragma pack(pop)

struct Intrinsics {
  std::int32_t width;  // the image size the intrinsics belong to
  std::int32_t height;
  float distortion[5];  // k1, k2, p1, p2, k3
  float fx, fy, cx, cy;  // pixels
};

// An aligned depth and colour pair (stream type 7): both width x height,
// row-major; depth 16-bit millimetres, colour 8-bit BGR, three bytes a pixel.
// Owned by the library, valid until the next GetLastFrameData or GetRGBD of
// the device.
struct RGBDFrame {
  std::int32_t width;
  std::int32_t height;
  const std::uint16_t* depth;
  const unsigned char* color;
};

static_assert(sizeof(DeviceInfo) == 48, "DeviceInfo is 48 bytes");
static_assert(offsetof(DeviceInfo, type) == 4 && offsetof(DeviceInfo, port) == 8 &&
                  offsetof(DeviceInfo, name) == 12 && offsetof(DeviceInfo, vendor_id) == 40 &&
                  offsetof(DeviceInfo, product_id) == 44,
              "DeviceInfo layout");
static_assert(sizeof(FrameInfo) == 12, "FrameInfo is 12 bytes");
static_assert(offsetof(FrameData, frame_info) == 4 && offsetof(FrameData, data) == 12 &&
                  sizeof(FrameData) == 20,
              "FrameData is packed");
static_assert(offsetof(Intrinsics, fx) == 28 && offsetof(Intrinsics, fy) == 32 &&
                  offsetof(Intrinsics, cx) == 36 && offsetof(Intrinsics, cy) == 40,
              "Intrinsics: fx, fy, cx, cy at 28, 32, 36, 40");

// Frame-set notifications. The program polls with GetLastFrameData instead of
// registering one.
class ICRFrameObserver {
 public:
  virtual ~ICRFrameObserver() = default;
  virtual void OnFrameReady(std::int32_t device_id, FrameData* frame_data) = 0;
};

std::int32_t GetSDKVersion(std::int32_t& length, char* buffer);  // works before InitSDK
std::int32_t InitSDK();
std::int32_t UnInitSDK();

std::int32_t FindDevice(std::int32_t& count, DeviceInfo* devices);
std::int32_t OpenDevice(const DeviceInfo& device);
std::int32_t GetDeviceSN(std::int32_t device_id, std::int32_t& length, char* buffer);
std::int32_t GetDeviceHWVersion(std::int32_t device_id, std::int32_t& length, char* buffer);
std::int32_t QueryDeviceSupportFrameType(std::int32_t device_id, std::int32_t& count,
                                         std::int32_t* frame_types);
std::int32_t QueryDeviceSupportResolution(std::int32_t device_id, std::int32_t frame_type,
                                          std::int32_t& count, std::int32_t* resolutions);

// Resolution codes: depth and raw 1 = low, 2 = high; colour 2 = low, 4 = high.
std::int32_t SetFrameResolution(std::int32_t device_id, std::int32_t frame_type,
                                std::int32_t resolution);
// Stream types 1-7: 1 raw, 2 depth, 3 colour, 4 depth + infrared, 5 depth +
// colour, 6 depth + infrared + colour, 7 aligned depth and colour (GetRGBD).
std::int32_t StartStreaming(std::int32_t device_id, std::int32_t stream_type);
std::int32_t ChangeStreaming(std::int32_t device_id, std::int32_t stream_type);
std::int32_t StopStreaming(std::int32_t device_id);
// 0 and the newest frame set when one has arrived since the last call.
std::int32_t GetLastFrameData(std::int32_t device_id, FrameData*& frame);

std::int32_t GetFilter(std::int32_t device_id, bool& enabled);
std::int32_t SetFilter(std::int32_t device_id, bool enabled);
std::int32_t AddFilter(std::int32_t device_id, std::int32_t filter_type);
std::int32_t GetMirror(std::int32_t device_id, bool& enabled);
std::int32_t SetMirror(std::int32_t device_id, bool enabled);
std::int32_t GetFlip(std::int32_t device_id, bool& enabled);
std::int32_t SetFlip(std::int32_t device_id, bool enabled);
std::int32_t GetTrailFilter(std::int32_t device_id, bool& enabled);
std::int32_t SetTrailFilter(std::int32_t device_id, bool enabled);
std::int32_t GetIntegralTimeRange(std::int32_t device_id, std::int32_t frame_type,
                                  std::int32_t& min, std::int32_t& max);
std::int32_t GetIntegralTime(std::int32_t device_id, std::int32_t& value);
std::int32_t SetIntegralTime(std::int32_t device_id, std::int32_t value);
std::int32_t GetIntric(std::int32_t device_id, std::int32_t frame_type, Intrinsics& intrinsics);

// The aligned pair of the device's newest frame set, on stream type 7.
std::int32_t GetRGBD(std::int32_t device_id, RGBDFrame& frame);
// Renders a depth image in colour: writes width * height BGR pixels (three
// bytes each) to `color`.
std::int32_t GetDepthColor(const std::uint16_t* depth, std::int32_t width, std::int32_t height,
                           unsigned char* color);

}  // namespace Corvane
