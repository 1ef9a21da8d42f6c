#include "cli/simulate_command.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "cli/json_line.h"
#include "cli/json_number.h"
#include "cli/output.h"
#include "cli/output_paths.h"
#include "source/depth_file.h"

namespace boxdim {

namespace {

constexpr int kExitBadInput = 2;

// Near surfaces bright, far ones dark, no return black.
cv::Mat preview_image(const cv::Mat& depth) {
  double nearest = 0.0;
  double farthest = 0.0;
  cv::minMaxLoc(depth, &nearest, &farthest, nullptr, nullptr, depth > 0);
  cv::Mat preview(depth.size(), CV_8UC1, cv::Scalar(0));
  const double span = std::max(1.0, farthest - nearest);
  depth.convertTo(preview, CV_8U, -215.0 / span, 255.0 + 215.0 * nearest / span);
  preview.setTo(0, depth == 0);
  return preview;
}

nlohmann::json ground_truth_json(const SimulateOptions& options, const SceneGroundTruth& truth) {
  const SceneParameters& s = options.scene;
  nlohmann::json corners = nlohmann::json::array();
  for (const cv::Point2f& c : truth.top_corners_px) {
    corners.push_back({json_number(c.x), json_number(c.y)});
  }
  const PlaneEquation& p = truth.top_plane;
  return {
      {"file", options.out_path},
      {"size", {s.image_width, s.image_height}},
      {"length_mm", json_number(truth.dimensions.box_length)},
      {"width_mm", json_number(truth.dimensions.box_width)},
      {"height_mm", json_number(truth.dimensions.box_height)},
      {"corners_px", corners},
      {"top_plane", {json_number(p.a), json_number(p.b), json_number(p.c), json_number(p.d)}},
      {"top_face_depth_mm", json_number(truth.top_face_depth_mm)},
      {"camera_height_mm", json_number(s.camera_height_mm)},
      {"tilt_deg", json_number(s.tilt_deg)},
      {"roll_deg", json_number(s.roll_deg)},
      {"yaw_deg", json_number(s.yaw_deg)},
      {"offset_mm", {json_number(s.offset_mm.x), json_number(s.offset_mm.y)}},
      {"intrinsics",
       {json_number(s.intrinsics.fx), json_number(s.intrinsics.fy), json_number(s.intrinsics.cx),
        json_number(s.intrinsics.cy)}},
      {"noise_mm_at_1m", json_number(s.noise.sigma_at_1m_mm)},
      {"flying", json_number(s.noise.flying_pixel_probability)},
      {"dropout", json_number(s.noise.dropout_probability)},
      {"seed", s.seed},
  };
}

}  // namespace

int run_simulate(const SimulateOptions& options, std::ostream& out, std::ostream& err) {
  if (!options.png_path.empty() && find_path_clash({}, {options.out_path, options.png_path})) {
    err << "boxdim-cli: --out and --png name the same file: " << options.png_path << '\n';
    return kExitBadInput;
  }
  RenderedScene rendered;
  try {
    rendered = render_scene(options.scene);
  } catch (const std::invalid_argument& e) {
    err << "boxdim-cli simulate: " << e.what() << '\n';
    return kExitBadInput;
  }
  try {
    write_file(options.out_path, raw_depth_bytes(rendered.depth));
    if (!options.png_path.empty()) write_png(options.png_path, preview_image(rendered.depth));
    write_line(out, json_line(ground_truth_json(options, rendered.truth)), kStandardOutput);
  } catch (const OutputError& e) {
    err << "boxdim-cli: " << e.what() << '\n';
    return kExitOutputFailed;
  }
  return 0;
}

}  // namespace boxdim
