// A camera looking at the configured scene. Rendering costs a good part of a frame period,
// so a still scene is rendered as a small pool of frame sets when the stream starts and
// cycled through; a scene that changes is rendered anew for every set, at its time.
#pragma once

#include <map>
#include <tuple>
#include <utility>
#include <vector>

#include "scene/depth_scene.h"
#include "scene/scene_motion.h"
#include "virtual_camera/device.h"

namespace boxdim::virtual_camera {

class SimulatedDevice : public Device {
 public:
  SimulatedDevice(int id, int type, const SceneParameters& scene,
                  const SceneMotion& motion = SceneMotion{});

  std::string serial_number() const override;
  std::string hardware_version() const override;

 protected:
  const char* device_name() const override { return "virtual ToF camera"; }
  Status prepare_stream() override;
  void frames_changed() override { pool_stale_ = true; }
  Status produce_set(std::int64_t set_index, FrameSet& set) override;
  cv::Size frame_size(int kind) const override { return selected_size(kind); }

 private:
  // Variant -1 is the scene without noise; 0, 1, ... are noisy frames drawn
  // with seeds seed, seed + 1, ...
  const RenderedScene& render(cv::Size size, int variant);
  // The colour sensor's picture at a size: the same for every frame.
  const cv::Mat& colour(cv::Size size);
  FramePictures pictures(int variant);
  void build_pool();

  const SceneParameters scene_;
  const SceneMotion motion_;
  SceneParameters scene_now_;  // scene_ at the time of the set being made
  const int pool_size_;
  // Renders outlive pool rebuilds: a settings change re-assembles the
  // frames without rendering them again.
  std::map<std::tuple<int, int, int>, RenderedScene> renders_;
  std::map<std::pair<int, int>, cv::Mat> colours_;
  std::vector<FrameSet> pool_;
  bool pool_stale_ = true;
};

}  // namespace boxdim::virtual_camera
