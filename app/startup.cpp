#include "app/startup.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/globals.h"
#include "app/key_commands.h"
#include "app/main_loop.h"
#include "app/windows.h"
#include "runtime/stop_signals.h"

namespace boxdim {

namespace {

constexpr int kKeyWaitMs = 30;

using TextQuery = std::function<std::int32_t(std::int32_t&, char*)>;
using CodeQuery = std::function<std::int32_t(std::int32_t&, std::int32_t*)>;

// The SDK's two-call pattern for a text: its length first, then the text.
// Nothing when a call fails (reported) or the text is empty.
std::optional<std::string> query_text(Session& session, const TextQuery& query,
                                      const char* first_label, const char* second_label) {
  std::int32_t length = 0;
  if (!session.succeeded(query(length, nullptr), first_label) || length <= 0) return std::nullopt;
  // One byte more than asked for: a text that fills its buffer stays terminated.
  std::vector<char> text(static_cast<std::size_t>(length) + 1, '\0');
  if (!session.succeeded(query(length, text.data()), second_label)) return std::nullopt;
  return std::string(text.data());
}

// The same pattern for a list of codes; empty on failure.
std::vector<std::int32_t> query_codes(Session& session, const CodeQuery& query,
                                      const char* first_label, const char* second_label) {
  std::int32_t count = 0;
  if (!session.succeeded(query(count, nullptr), first_label) || count <= 0) return {};
  std::vector<std::int32_t> codes(static_cast<std::size_t>(count), 0);
  std::int32_t filled = count;
  if (!session.succeeded(query(filled, codes.data()), second_label)) return {};
  codes.resize(static_cast<std::size_t>(std::clamp(filled, 0, count)));
  return codes;
}

void print_sdk_version(Session& session) {
  const std::optional<std::string> version = query_text(
      session,
      [](std::int32_t& length, char* buffer) { return Corvane::GetSDKVersion(length, buffer); },
      "GetSDKVersion", "GetSDKVersion2");
  if (version) session.shell().out << "SDKVersion:" << *version << "\n";
}

// The device list, or nothing when there is none (reported, with status 0
// when the SDK simply found no camera).
bool enumerate(Session& session) {
  std::int32_t count = 0;
  const std::int32_t status = session.record(Corvane::FindDevice(count, nullptr));
  if (status != 0 || count <= 0) {
    print_error(session.shell().out, "FindDevice", status);
    return false;
  }
  session.devices.assign(static_cast<std::size_t>(count), Corvane::DeviceInfo{});
  std::int32_t listed = count;
  if (!session.succeeded(Corvane::FindDevice(listed, session.devices.data()), "FindDevice2")) {
    session.devices.clear();
    return false;
  }
  session.devices.resize(static_cast<std::size_t>(std::clamp(listed, 0, count)));
  return !session.devices.empty();
}

void print_device_texts(Session& session, int index, std::int32_t id) {
  const std::optional<std::string> serial = query_text(
      session,
      [id](std::int32_t& length, char* buffer) { return Corvane::GetDeviceSN(id, length, buffer); },
      "GetDeviceSN", "GetDeviceSN");
  if (serial) session.shell().out << "SN" << index << ":" << *serial << "\n";
  const std::optional<std::string> hardware = query_text(
      session,
      [id](std::int32_t& length, char* buffer) {
        return Corvane::GetDeviceHWVersion(id, length, buffer);
      },
      "GetDeviceHWVersion", "GetDeviceHWVersion2");
  if (hardware) session.shell().out << "HWVersion" << index << ":" << *hardware << "\n";
}

// Printed for the operator only; the configuration below does not consult it.
void print_capabilities(Session& session, std::int32_t id) {
  const std::vector<std::int32_t> frame_types = query_codes(
      session,
      [id](std::int32_t& count, std::int32_t* types) {
        return Corvane::QueryDeviceSupportFrameType(id, count, types);
      },
      "QueryDeviceSupportFrameType", "QueryDeviceSupportFrameType2");
  for (std::size_t j = 0; j < frame_types.size(); ++j) {
    const std::int32_t frame_type = frame_types[j];
    session.shell().out << "FrameType" << j << ":" << frame_type << "\n";
    const std::vector<std::int32_t> resolutions = query_codes(
        session,
        [id, frame_type](std::int32_t& count, std::int32_t* codes) {
          return Corvane::QueryDeviceSupportResolution(id, frame_type, count, codes);
        },
        "QueryDeviceSupportResolution", "QueryDeviceSupportResolution2");
    for (std::size_t k = 0; k < resolutions.size(); ++k) {
      session.shell().out << "FrameType" << j << ":" << frame_type << ",Resolution" << k << ":"
                          << resolutions[k] << "\n";
    }
  }
}

struct ResolutionSetting {
  std::int32_t frame_type;
  std::int32_t resolution;
  const char* label;
};

struct Configuration {
  std::vector<ResolutionSetting> settings;  // made in order; the first failure ends it
  std::int32_t stream_type;
};

const Configuration* configuration_of(std::int32_t device_type) {
  static const Configuration kDepthAndColourHigh{
      {{Corvane::kFrameDepth, 2, "SetFrameResolution Depth"},
       {Corvane::kFrameColor, 4, "SetFrameResolution RGB"}},
      2};
  static const Configuration kDepthIrLow{{{Corvane::kFrameDepth, 1, "SetFrameResolution Depth"}},
                                         4};
  static const Configuration kDepthLow{{{Corvane::kFrameDepth, 1, "SetFrameResolution Depth"}}, 2};
  static const Configuration kDepthHigh{{{Corvane::kFrameDepth, 2, "SetFrameResolution Depth"}}, 2};
  switch (device_type) {
    case 1:
    case 2:
      return &kDepthAndColourHigh;
    case 3:
    case 4:
      return &kDepthIrLow;
    case 5:
      return &kDepthLow;
    case 6:
    case 7:
      return &kDepthHigh;
    default:
      return nullptr;
  }
}

// A device whose configuration fails, or whose type is unknown, stays closed:
// listed, but never polled and without windows.
void configure_and_start(Session& session, int index) {
  const Corvane::DeviceInfo& device = session.devices[index];
  const Configuration* configuration = configuration_of(device.type);
  if (configuration == nullptr) return;
  for (const ResolutionSetting& setting : configuration->settings) {
    if (!session.succeeded(
            Corvane::SetFrameResolution(device.id, setting.frame_type, setting.resolution),
            setting.label)) {
      return;
    }
  }
  const std::int32_t stream_type = configuration->stream_type;
  if (!session.succeeded(Corvane::StartStreaming(device.id, stream_type), "StartStreaming")) return;
  g_stream_types[device.id] = {device.id, stream_type};
  session.opened[index] = true;
  create_windows(session.shell(), index, stream_type, false);
}

void set_up_device(Session& session, int index) {
  const std::int32_t id = session.devices[index].id;
  if (!session.succeeded(Corvane::OpenDevice(session.devices[index]), "OpenDevice")) return;
  print_device_texts(session, index, id);
  print_capabilities(session, id);
  configure_and_start(session, index);
}

}  // namespace

bool start_up(Session& session) {
  session.shell().out << "CorvaneSDK Test Demo\n";
  print_sdk_version(session);
  // A failed initialisation is only reported: enumeration tells what works.
  session.succeeded(Corvane::InitSDK(), "InitSDK");
  if (!enumerate(session)) return false;
  session.reset_device_arrays();
  for (std::size_t i = 0; i < session.devices.size(); ++i) {
    set_up_device(session, static_cast<int>(i));
  }
  start_fps_ticker(session.shell());
  return true;
}

// A device that never streamed repeats the report of the status before it.
void stop_streams(Session& session) {
  for (std::size_t i = 0; i < session.devices.size(); ++i) {
    if (session.opened[i]) session.record(Corvane::StopStreaming(session.devices[i].id));
    if (session.status == 0) {
      session.shell().out << "StopStreaming Success\n";
    } else {
      print_error(session.shell().out, "StopStreaming", session.status);
    }
  }
  session.opened.clear();
  session.integral_min.clear();
  session.integral_max.clear();
  session.integral_time.clear();
  session.devices.clear();
}

void shut_down(Session& session) {
  // Reported under the initialiser's label, on purpose.
  session.succeeded(Corvane::UnInitSDK(), "InitSDK");
  stop_fps_ticker();
  // Keeps the console open until the operator has read it; a stop signal
  // means nobody is there to read it.
  while (StopSignals::requested() == 0 &&
         wait_for_key(session.shell().display, kKeyWaitMs) != kEscKey) {
  }
}

}  // namespace boxdim
