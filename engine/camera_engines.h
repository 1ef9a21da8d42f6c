// An engine per camera, made when the camera's first frame comes, so that a
// camera's floor, plane, intrinsics and tracks never leak into another's
// measurement.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "engine/engine_factory.h"

namespace boxdim {

class CameraEngines {
 public:
  CameraEngines(std::string name, const EngineContext& context)
      : name_(std::move(name)), context_(context) {}

  Engine& of(int camera);

 private:
  const std::string name_;
  const EngineContext context_;
  std::map<int, std::unique_ptr<Engine>> engines_;
};

}  // namespace boxdim
