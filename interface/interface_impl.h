// The one implementation of Interface: the precise engine's detector and
// tracker behind the exported class.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/camera_intrinsics.h"
#include "interface/interface.h"
#include "tracking/tracked_detector.h"

namespace boxdim {

class InterfaceImpl : public Interface {
 public:
  InterfaceImpl();

  void SetIntrinsics(int fx, int fy, int cx, int cy) override;
  int fx() const override { return fx_; }
  int fy() const override { return fy_; }
  int cx() const override { return cx_; }
  int cy() const override { return cy_; }
  void SetExactIntrinsics(float fx, float fy, float cx, float cy) override;
  void SetSeed(std::uint32_t seed) override { seed_ = seed; }
  bool SetDivision(float division_mm) override;

  int Detect(const std::uint16_t* depth, int width, int height, int row_stride) override {
    return DetectAt(depth, width, height, 0, row_stride);
  }
  int DetectAt(const std::uint16_t* depth, int width, int height, std::int64_t time_us,
               int row_stride) override;
  int DetectionCount() const override { return static_cast<int>(detections_.size()); }
  bool GetDetection(int index, Detection* detection) const override;
  const char* LastProblem() const override { return problem_.c_str(); }
  int EventCount() const override { return static_cast<int>(events_.size()); }
  bool GetEvent(int index, Event* event) const override;
  void ResetTracks() override { boxes_.reset_tracks(); }

  bool GetFloor(float normal[3], float* offset) const override;
  void ResetFloor() override { boxes_.reset_floor(); }

 private:
  int fx_ = 0;
  int fy_ = 0;
  int cx_ = 0;
  int cy_ = 0;
  CameraIntrinsics intrinsics_;
  std::optional<std::uint32_t> seed_;
  tracking::TrackedDetector boxes_;
  std::vector<Detection> detections_;
  std::vector<Event> events_;
  std::string problem_;
};

}  // namespace boxdim
