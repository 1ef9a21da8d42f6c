#include "virtual_camera/simulated_device.h"

#include <cstdio>

#include "virtual_camera/frame_formats.h"
#include "virtual_camera/frame_pictures.h"

namespace boxdim::virtual_camera {
namespace {

constexpr int kNoisyPoolSize = 4;
constexpr int kCleanVariant = -1;

bool has_noise(const DepthNoise& noise) {
  return noise.sigma_at_1m_mm > 0.0f || noise.flying_pixel_probability > 0.0f ||
         noise.dropout_probability > 0.0f;
}

bool carries(int stream_type, int kind) {
  for (const int k : stream_kinds(stream_type)) {
    if (k == kind) return true;
  }
  return false;
}

}  // namespace

SimulatedDevice::SimulatedDevice(int id, int type, const SceneParameters& scene,
                                 const SceneMotion& motion)
    : Device(id, type),
      scene_(scene),
      motion_(motion),
      scene_now_(scene),
      pool_size_(has_noise(scene.noise) ? kNoisyPoolSize : 1) {}

std::string SimulatedDevice::serial_number() const {
  char serial[16];
  std::snprintf(serial, sizeof(serial), "VSIM-%04d", id());
  return serial;
}

std::string SimulatedDevice::hardware_version() const {
  return "virtual-1.0 type " + std::to_string(type());
}

const RenderedScene& SimulatedDevice::render(cv::Size size, int variant) {
  // Without noise every variant is the same frame.
  if (pool_size_ == 1) variant = kCleanVariant;
  const auto key = std::make_tuple(size.width, size.height, variant);
  auto found = renders_.find(key);
  if (found == renders_.end()) {
    SceneParameters scene = scene_now_;
    scene.image_width = size.width;
    scene.image_height = size.height;
    scene.intrinsics = scaled_intrinsics(size);
    if (variant == kCleanVariant) {
      scene.noise = DepthNoise{};
    } else {
      scene.seed = scene_now_.seed + static_cast<std::uint64_t>(variant);
    }
    found = renders_.emplace(key, render_scene(scene)).first;
  }
  return found->second;
}

const cv::Mat& SimulatedDevice::colour(cv::Size size) {
  cv::Mat& picture = colours_[{size.width, size.height}];
  if (picture.empty()) {
    // The colour sensor sits beside the depth sensor with the same field of
    // view; it sees no range noise.
    const RenderedScene& clean = render(size, kCleanVariant);
    picture = colour_picture(clean.depth, clean.surfaces);
  }
  return picture;
}

FramePictures SimulatedDevice::pictures(int variant) {
  using namespace Corvane;
  const int stream = stream_type();
  FramePictures pictures;
  if (carries(stream, kFrameRaw)) {
    pictures.raw = raw_picture(render(selected_size(kFrameRaw), variant).depth);
  }
  if (carries(stream, kFrameDepth)) {
    const RenderedScene& scene = render(selected_size(kFrameDepth), variant);
    pictures.depth = scene.depth;
    if (carries(stream, kFrameIr)) {
      pictures.ir = infrared_picture(scene.depth, scene.surfaces, settings().integration_time_us);
    }
  }
  if (carries(stream, kFrameColor)) pictures.colour = colour(selected_size(kFrameColor));
  if (stream == kAlignedStream) pictures.aligned_colour = colour(selected_size(kFrameDepth));
  return pictures;
}

void SimulatedDevice::build_pool() {
  std::vector<FrameSet> pool;
  for (int variant = 0; variant < pool_size_; ++variant) {
    pool.push_back(assemble(pictures(variant)));
  }
  pool_ = std::move(pool);
  pool_stale_ = false;
}

Status SimulatedDevice::prepare_stream() {
  if (motion_.still()) build_pool();
  return kOk;
}

Status SimulatedDevice::produce_set(std::int64_t set_index, FrameSet& set) {
  if (!motion_.still()) {
    scene_now_ =
        scene_at(scene_, motion_, static_cast<double>(set_index) / kFramesPerSecond, set_index);
    renders_.clear();
    colours_.clear();
    set = assemble(pictures(0));
    return kOk;
  }
  if (pool_stale_) build_pool();
  const FrameSet& pooled = pool_[static_cast<std::size_t>(set_index % pool_size_)];
  // Copied, so the caller may keep the set while the pool is rebuilt.
  set.infos = pooled.infos;
  set.samples = pooled.samples;
  set.aligned_depth = pooled.aligned_depth;
  set.aligned_colour = pooled.aligned_colour;
  return kOk;
}

}  // namespace boxdim::virtual_camera
