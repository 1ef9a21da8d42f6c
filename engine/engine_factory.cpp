#include "engine/engine_factory.h"

#include "engine/precise_engine.h"
#include "engine/station_engine.h"

namespace boxdim {

namespace {

std::string known_names() {
  std::string names;
  for (const std::string& name : engine_names()) names += (names.empty() ? "" : ", ") + name;
  return names;
}

}  // namespace

const std::vector<std::string>& engine_names() {
  static const std::vector<std::string> names = {PreciseEngine::kName, StationEngine::kName};
  return names;
}

const std::string& default_engine_name() { return engine_names().front(); }

UnknownEngine::UnknownEngine(const std::string& name)
    : std::invalid_argument("unknown engine '" + name + "' (known: " + known_names() + ")") {}

std::unique_ptr<Engine> create_engine(const std::string& name, const EngineContext& context) {
  if (name == StationEngine::kName) return std::make_unique<StationEngine>(context);
  if (name == PreciseEngine::kName) return std::make_unique<PreciseEngine>(context);
  throw UnknownEngine(name);
}

}  // namespace boxdim
