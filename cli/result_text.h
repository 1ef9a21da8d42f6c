// One measurement in words, as the command-line tool prints it after a file
// name or a camera's frame number.
#pragma once

#include <iomanip>
#include <sstream>
#include <string>

#include "measure/measurement_state.h"
#include "pipeline/station_pipeline.h"

namespace boxdim {

// "length 400.0 mm, width 300.0 mm, height 200.0 mm", or "not measured (<stage> failed)".
inline std::string result_text(const MeasurementOutcome& outcome, const BoxDimensions& dimensions) {
  std::ostringstream text;
  if (outcome.ok) {
    text << std::fixed << std::setprecision(1) << "length " << dimensions.box_length
         << " mm, width " << dimensions.box_width << " mm, height " << dimensions.box_height
         << " mm";
  } else {
    text << "not measured (" << outcome.failed_stage << " failed)";
  }
  return text.str();
}

}  // namespace boxdim
