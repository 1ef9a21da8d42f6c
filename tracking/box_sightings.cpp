#include "tracking/box_sightings.h"

namespace boxdim::tracking {

void sightings_of(const std::vector<precise::BoxFit>& fits, std::vector<Sighting>& sightings) {
  sightings.resize(fits.size());
  for (std::size_t i = 0; i < fits.size(); ++i) {
    Sighting& sighting = sightings[i];
    sighting.status = fits[i].status;
    sighting.centre_mm = fits[i].centre_mm;
    sighting.dimensions = {fits[i].length_mm, fits[i].width_mm, fits[i].height_mm};
    sighting.corners_px = fits[i].corners_px;
    sighting.top = &fits[i].top;
  }
}

}  // namespace boxdim::tracking
