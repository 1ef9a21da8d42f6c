// Synthetic time-of-flight depth frames of one cuboid box on a floor, seen
// from above by a pinhole camera, with the ground truth to judge a
// measurement against. Tests, benchmarks, the command-line tool and the
// virtual camera all draw their frames from here.
#pragma once

#include <array>
#include <cstdint>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "core/geometry.h"
#include "scene/carton_top.h"
#include "scene/sensor_model.h"

namespace boxdim {

// Another box on the same floor, placed by its centre's offset (level frame,
// mm: the untilted image's column and row directions) from where the scene's
// main box stands, and turned about the vertical.
struct FloorBox {
  float length_mm = 300.0f;
  float width_mm = 200.0f;
  float height_mm = 150.0f;
  cv::Point2f offset_mm{0.0f, 0.0f};
  float yaw_deg = 0.0f;
  BoxTop top;
};

// Time-of-flight artefacts; all zero gives a clean frame.
struct DepthNoise {
  // Standard deviation of the Gaussian range noise at 1 m, in mm; it grows
  // linearly with the distance.
  float sigma_at_1m_mm = 0.0f;
  // Probability that a pixel on a depth edge becomes a "flying" pixel, a mix
  // of the two surfaces it straddles.
  float flying_pixel_probability = 0.0f;
  // Probability that any pixel reads 0 (no return).
  float dropout_probability = 0.0f;
  // Multipath: the floor right next to a box in the image reads this much
  // farther, fading linearly to nothing over multipath_reach_px pixels.
  float multipath_mm = 0.0f;
  float multipath_reach_px = 10.0f;
  // On a dark top the range noise is this many times larger and dropouts ten
  // times as likely.
  float dark_noise_factor = 2.5f;
};

// The table the boxes stand on, where it is not quite flat (all zero: a
// level plane). It bows by warp_mm at a camera height's distance from the
// point below the camera (positive: away from the camera), and gives under
// each box: dip_mm lower beneath it, fading over dip_radius_mm around it.
// A box stands on the table where it is, so its top goes down with it.
struct TableShape {
  float warp_mm = 0.0f;
  float dip_mm = 0.0f;
  float dip_radius_mm = 150.0f;
};

// The scene: a floor, a box standing on it, a camera above it.
//
// Frames: the camera sits camera_height_mm above the floor. Untilted, it looks
// straight down, image columns and rows running along the floor. tilt_deg
// turns it about its own x axis (positive tilts the optical axis towards
// increasing image rows), roll_deg about its own y axis (positive towards
// increasing columns). The box is placed so that the optical axis passes
// through the centre of its top face, then moved by offset_mm (along the
// floor, in the directions of the untilted image's columns and rows) and
// turned by yaw_deg about the vertical; at yaw 0 its length runs along the
// image columns.
struct SceneParameters {
  float box_length_mm = 400.0f;
  float box_width_mm = 300.0f;
  float box_height_mm = 200.0f;
  float camera_height_mm = 1000.0f;
  float tilt_deg = 0.0f;
  float roll_deg = 0.0f;
  float yaw_deg = 0.0f;
  cv::Point2f offset_mm{0.0f, 0.0f};
  int image_width = 640;
  int image_height = 480;
  CameraIntrinsics intrinsics;
  DepthNoise noise;
  // The physical sensor (pixel footprints, filters, systematic errors) when
  // its footprint_samples exceed 1; the noise's flying pixels and dark
  // factor then come from the light each surface returns instead.
  SensorModel sensor;
  TableShape table;
  std::uint64_t seed = 1;
  BoxTop top;            // the main box's
  bool with_box = true;  // false: the main box is not there (an empty floor)
  std::vector<FloorBox> other_boxes;
};

// What the frame shows of a box, in the camera's coordinates (mm) and pixels.
struct SceneGroundTruth {
  // The smallest enclosing cuboid: box_length is the longer side; a lid that
  // rises above the walls adds to the height, one that sags, a rounded rim,
  // a crack or a notch do not take from it.
  BoxDimensions dimensions;
  // Plane of the top face, unit normal pointing away from the camera (c > 0).
  PlaneEquation top_plane;
  // Top-face corners in camera coordinates and their image projections
  // (x = column, y = row), in order around the face.
  std::array<cv::Point3f, 4> top_corners_camera;
  std::array<cv::Point2f, 4> top_corners_px;
  // Depth (camera z, mm) at which the optical axis meets the top face's plane.
  float top_face_depth_mm = 0.0f;
};

// What a pixel's ray hit, before any noise.
enum SurfaceKind : std::uint8_t { kNoSurface = 0, kFloorSurface = 1, kBoxSurface = 2 };

struct RenderedScene {
  cv::Mat depth;           // CV_16UC1, image_height x image_width, millimetres, 0 = no return
  SceneGroundTruth truth;  // the main box's, also when it is not there
  std::vector<SceneGroundTruth> other_truths;  // index-parallel to other_boxes
  cv::Mat surfaces;  // CV_8UC1, a SurfaceKind per pixel: for colour and infrared pictures
};

// Throws std::invalid_argument naming the offending parameter when the scene
// cannot be rendered (non-positive sizes, a camera not above the box, ...).
void validate_scene(const SceneParameters& scene);

RenderedScene render_scene(const SceneParameters& scene);

// The main box's ground truth of render_scene(scene), without rendering a pixel.
SceneGroundTruth scene_ground_truth(const SceneParameters& scene);
// The other boxes' likewise, index-parallel to other_boxes.
std::vector<SceneGroundTruth> other_ground_truths(const SceneParameters& scene);

}  // namespace boxdim
