#include "engine/camera_engines.h"

namespace boxdim {

Engine& CameraEngines::of(int camera) {
  std::unique_ptr<Engine>& engine = engines_[camera];
  if (!engine) engine = create_engine(name_, context_);
  return *engine;
}

}  // namespace boxdim
