// How the depth camera turns what it sees into samples, beyond the pinhole:
// each pixel's footprint, the light each surface returns, the camera's own
// filters, the steps of its depth values, and the errors it repeats in every
// frame. The defaults are the ideal sensor: each pixel reads its centre.
#pragma once

namespace boxdim {

enum class DepthSensing {
  // Time of flight: a pixel reads the phase of all the light it gathers, so
  // a pixel on an edge reads the amplitude-weighted mix of the depths it sees.
  kTimeOfFlight,
  // Structured light or stereo: depth from disparity, which is quantised
  // (depth steps grow with the distance squared) and blurred over a few pixels.
  kStructuredLight,
};

// Time-of-flight cameras blank pixels that differ strongly from a neighbour
// (the "flying pixels" along depth edges), on both sides of the edge.
enum class FlyingPixelFilter {
  kOff,
  kWeak,    // 4 neighbours, a difference of 5 % of the depth
  kStrong,  // 8 neighbours, 2 % of the depth
};

struct SensorModel {
  // Samples per pixel side over the pixel's footprint. 1: each pixel reads
  // the surface at its centre with the classic noise model (everything below
  // unused). N > 1: the physical sensor, pixels on a depth edge integrating
  // N x N samples.
  int footprint_samples = 1;
  DepthSensing sensing = DepthSensing::kTimeOfFlight;
  FlyingPixelFilter flying_filter = FlyingPixelFilter::kOff;
  // The camera smooths each pixel with its 3 x 3 neighbours of about its
  // depth (an edge-preserving filter): the rim of a top reads a little low.
  bool edge_smoothing = false;
  // Structured light: the depth step at 1 m (mm); it grows with the distance
  // squared. And the blur of the depth across edges (standard deviation, px).
  float depth_step_at_1m_mm = 2.5f;
  float edge_blur_px = 1.0f;
  // Pixels return no depth when their light is weaker than this share of
  // what white paper returns head-on from 1 m.
  float min_amplitude = 0.004f;
  // The range reads this much farther per halving of the light a surface
  // returns (dark board reads a little far, labels a little near), mm.
  float reflectivity_bias_mm = 0.0f;
  // Glossy tape reflects the light away: this share of its pixels read nothing.
  float glossy_dropout = 0.15f;
  // Errors repeated in every frame, mm. A smooth pattern over the image: a
  // bowl reaching fixed_pattern_mm at the image's corners, and a ramp across
  // its columns and rows (from one border to the other).
  float fixed_pattern_mm = 0.0f;
  float fixed_ramp_x_mm = 0.0f;
  float fixed_ramp_y_mm = 0.0f;
  // An error that varies periodically with the distance (the modulation's
  // harmonics): amplitude, period and phase.
  float wiggle_mm = 0.0f;
  float wiggle_period_mm = 1875.0f;
  float wiggle_phase_rad = 0.0f;

  bool physical() const { return footprint_samples > 1; }
};

// Throws std::invalid_argument naming the offending item.
void validate_sensor(const SensorModel& sensor);

}  // namespace boxdim
