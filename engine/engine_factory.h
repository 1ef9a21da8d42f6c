// Engines by name: the one place that knows which engines exist.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/engine.h"

namespace boxdim {

// The names create_engine knows, the default first.
const std::vector<std::string>& engine_names();
// The engine the tools measure with unless told otherwise.
const std::string& default_engine_name();

// "unknown engine 'x' (known: station)".
class UnknownEngine : public std::invalid_argument {
 public:
  explicit UnknownEngine(const std::string& name);
};

// A fresh engine of that name; throws UnknownEngine.
std::unique_ptr<Engine> create_engine(const std::string& name, const EngineContext& context = {});

}  // namespace boxdim
