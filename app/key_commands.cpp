#include "app/key_commands.h"

#include <optional>
#include <vector>

#include "app/globals.h"
#include "app/windows.h"

namespace boxdim {

namespace {

using Corvane::kFrameColor;
using Corvane::kFrameDepth;
using Corvane::kFrameRaw;

constexpr std::int32_t kMedianFilter = 4;
constexpr std::int32_t kIntegralTimeStep = 100;
constexpr int kAlignedStream = 7;

void add_filter(Session& session) {
  for (const Corvane::DeviceInfo& device : session.devices) {
    if (session.succeeded(Corvane::AddFilter(device.id, kMedianFilter), "AddFilter")) {
      session.shell().out << "AddFilter success\n";
    }
  }
}

// The status is not checked: a failed query prints and loads the record's zeros.
void load_intrinsics(Session& session) {
  for (const Corvane::DeviceInfo& device : session.devices) {
    Corvane::Intrinsics record{};
    session.record(Corvane::GetIntric(device.id, kFrameDepth, record));
    session.shell().out << record.fx << " " << record.fy << " " << record.cx << " " << record.cy
                        << "\n";
    g_measurement_state.intrinsics = {record.fx, record.fy, record.cx, record.cy};
    g_interface->SetIntrinsics(static_cast<int>(record.fx), static_cast<int>(record.fy),
                               static_cast<int>(record.cx), static_cast<int>(record.cy));
  }
}

void stop_streams(Session& session) {
  for (const Corvane::DeviceInfo& device : session.devices) {
    session.record(Corvane::StopStreaming(device.id));
  }
}

// A switch the SDK reads and sets: f, i, m and t each flip one.
struct Switch {
  std::int32_t (*get)(std::int32_t, bool&);
  std::int32_t (*set)(std::int32_t, bool);
  const char* get_label;
  const char* set_label;
  const char* value_name;
};

std::optional<Switch> switch_of(int key) {
  switch (key) {
    case 'f':
      return Switch{Corvane::GetFilter, Corvane::SetFilter, "GetFilter", "SetFilter", "bFilter"};
    case 'i':
      return Switch{Corvane::GetFlip, Corvane::SetFlip, "GetFlip", "SetFlip", "bFlip"};
    case 'm':
      return Switch{Corvane::GetMirror, Corvane::SetMirror, "GetMirror", "SetMirror", "bMirror"};
    case 't':
      return Switch{Corvane::GetTrailFilter, Corvane::SetTrailFilter, "GetTrailFilter",
                    "SetTrailFilter", "bFilter"};
    default:
      return std::nullopt;
  }
}

// A failed read still sets the opposite of `false`: the command never retries.
void flip_switch(Session& session, const Switch& sw) {
  for (const Corvane::DeviceInfo& device : session.devices) {
    bool value = false;
    if (session.succeeded(sw.get(device.id, value), sw.get_label)) {
      session.shell().out << sw.get_label << " success, " << sw.value_name << " = "
                          << static_cast<int>(value) << "\n";
    }
    const bool wanted = !value;
    if (session.succeeded(sw.set(device.id, wanted), sw.set_label)) {
      session.shell().out << sw.set_label << " success, " << sw.value_name << " = "
                          << static_cast<int>(wanted) << "\n";
    }
  }
}

// The limit is checked on the current value, so a step may overshoot it by up
// to 99; the SDK decides what to make of that.
void step_integral_time(Session& session, bool up) {
  for (std::size_t i = 0; i < session.devices.size(); ++i) {
    const std::int32_t id = session.devices[i].id;
    std::int32_t& min = session.integral_min[i];
    std::int32_t& max = session.integral_max[i];
    std::int32_t& value = session.integral_time[i];
    if (session.succeeded(Corvane::GetIntegralTimeRange(id, kFrameDepth, min, max),
                          "GetIntegralTimeRange")) {
      session.shell().out << "GetIntegralTimeRange success, Min = " << min << ", Max = " << max
                          << "\n";
    }
    if (session.succeeded(Corvane::GetIntegralTime(id, value), "GetIntegralTime")) {
      session.shell().out << "GetIntegralTime success, nIntegralTime = " << value << "\n";
    }
    if (up && value >= max) {
      session.shell().out << "IntegralTime already be Max\n";
      continue;
    }
    if (!up && value <= min) {
      session.shell().out << "IntegralTime already be Min\n";
      continue;
    }
    const std::int32_t target = value + (up ? kIntegralTimeStep : -kIntegralTimeStep);
    if (session.succeeded(Corvane::SetIntegralTime(id, target), "SetIntegralTime")) {
      value = target;
      session.shell().out << "SetIntegralTime success, nIntegralTime = " << value << "\n";
    }
  }
}

// The high command reports under the low command's labels on purpose: both
// commands leave the same lines in the log.
void change_resolution(Session& session, bool high) {
  for (const Corvane::DeviceInfo& device : session.devices) {
    const auto entry = g_stream_types.find(device.id);
    if (entry == g_stream_types.end()) continue;
    const std::int32_t stream = entry->second.second;
    const bool with_colour = (device.type == 1 || device.type == 2) && stream != kAlignedStream;
    if (!with_colour && device.type != 3) continue;
    session.succeeded(Corvane::SetFrameResolution(device.id, kFrameDepth, high ? 2 : 1),
                      "ChangeFrameResolution Depth Low");
    if (with_colour) {
      session.succeeded(Corvane::SetFrameResolution(device.id, kFrameColor, high ? 4 : 2),
                        "ChangeFrameResolution RGB Low");
    }
    session.succeeded(Corvane::ChangeStreaming(device.id, stream),
                      "ChangeFrameResolution ChangeStreaming");
  }
}

struct ResolutionSetting {
  std::int32_t frame_type;
  std::int32_t resolution;
  const char* label;
};

struct StreamStep {
  std::int32_t next;
  std::vector<ResolutionSetting> settings;  // made in order before the change
};

// Types 1 and 2 step through every stream type; types 3 to 6 cycle through
// their own few and keep any other. Every resolution failure of types 3 to 6
// reads "RAW", also for the depth frame: the established log line.
std::optional<StreamStep> next_stream(std::int32_t device_type, std::int32_t current) {
  const char* raw_label = "SetFrameResolution RAW";
  switch (device_type) {
    case 1:
    case 2:
      if (current == kAlignedStream) return StreamStep{1, {{kFrameRaw, 2, raw_label}}};
      if (current + 1 == kAlignedStream) {
        return StreamStep{kAlignedStream,
                          {{kFrameDepth, 2, "SetFrameResolution Depth"},
                           {kFrameColor, 4, "SetFrameResolution RGB"}}};
      }
      return StreamStep{current + 1, {}};
    case 3:
    case 4:
    case 5: {
      const std::int32_t resolution = device_type == 3 ? 2 : 1;
      if (current == 4) return StreamStep{1, {{kFrameRaw, resolution, raw_label}}};
      if (current == 1) return StreamStep{2, {{kFrameDepth, resolution, raw_label}}};
      if (current == 2) return StreamStep{4, {{kFrameDepth, resolution, raw_label}}};
      return StreamStep{current, {}};
    }
    case 6:
      if (current == 4) return StreamStep{2, {{kFrameDepth, 2, raw_label}}};
      if (current == 2) return StreamStep{4, {{kFrameDepth, 2, raw_label}}};
      return StreamStep{current, {}};
    default:
      return std::nullopt;
  }
}

// The new stream type is stored before anything is tried, so a failed change
// leaves the handler expecting the new layout.
void cycle_stream(Session& session) {
  for (std::size_t i = 0; i < session.devices.size(); ++i) {
    const Corvane::DeviceInfo& device = session.devices[i];
    const auto entry = g_stream_types.find(device.id);
    if (entry == g_stream_types.end()) continue;
    const std::optional<StreamStep> step = next_stream(device.type, entry->second.second);
    if (!step) continue;
    entry->second = {device.id, step->next};
    bool configured = true;
    for (const ResolutionSetting& setting : step->settings) {
      if (!session.succeeded(
              Corvane::SetFrameResolution(device.id, setting.frame_type, setting.resolution),
              setting.label)) {
        configured = false;
        break;
      }
    }
    if (!configured) continue;
    if (session.succeeded(Corvane::ChangeStreaming(device.id, step->next),
                          "ChangeFrameResolution ChangeStreaming")) {
      create_windows(session.shell(), static_cast<int>(i), step->next, true);
    }
  }
}

void flip_flag(const Session& session, std::map<std::int32_t, bool>& flags) {
  for (const Corvane::DeviceInfo& device : session.devices) {
    flags[device.id] = !flags[device.id];
  }
}

}  // namespace

void dispatch_key(Session& session, int key) {
  if (const std::optional<Switch> sw = switch_of(key)) {
    flip_switch(session, *sw);
    return;
  }
  switch (key) {
    case kEscKey:
      session.quit = true;
      break;
    case 'a':
      add_filter(session);
      break;
    case 'b':
      load_intrinsics(session);
      break;
    case 'c':
      stop_streams(session);
      break;
    case 'd':
      step_integral_time(session, false);
      break;
    case 'h':
      change_resolution(session, true);
      break;
    case 'l':
      change_resolution(session, false);
      break;
    case 'p':
      flip_flag(session, g_toggle_p);
      break;
    case 'q':
      flip_flag(session, g_toggle_q);
      break;
    case 's':
      cycle_stream(session);
      break;
    case 'u':
      step_integral_time(session, true);
      break;
    case 'v':
      flip_flag(session, g_save_enabled);
      break;
    default:  // 'e' included: a pass over the devices that does nothing
      break;
  }
}

}  // namespace boxdim
