#include "cli/cli_app.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "cli/decimal_number.h"
#include "cli/evaluate_command.h"
#include "cli/intrinsics_fit.h"
#include "cli/live_command.h"
#include "cli/measure_command.h"
#include "cli/serve_command.h"
#include "cli/simulate_command.h"
#include "engine/engine_factory.h"

namespace boxdim {

namespace {

constexpr int kExitUsage = 2;

// A bad value of one option; the message names the option.
class UsageError : public std::runtime_error {
 public:
  UsageError(const std::string& option, const std::string& reason)
      : std::runtime_error(option + ": " + reason) {}
};

// "a<sep>b<sep>c" with exactly `count` finite decimal numbers.
std::vector<float> parse_numbers(const std::string& option, const std::string& text, char sep,
                                 std::size_t count, const std::string& form) {
  std::vector<float> values;
  std::stringstream parts(text);
  std::string part;
  while (std::getline(parts, part, sep)) {
    const std::optional<float> value = parse_decimal<float>(part);
    if (!value) throw UsageError(option, "'" + text + "' is not of the form " + form);
    values.push_back(*value);
  }
  if (values.size() != count || (!text.empty() && text.back() == sep)) {
    throw UsageError(option, "'" + text + "' is not of the form " + form);
  }
  return values;
}

CameraIntrinsics parse_intrinsics(const std::string& text) {
  const auto v = parse_numbers("--intrinsics", text, ',', 4, "fx,fy,cx,cy");
  if (v[0] <= 0.0f || v[1] <= 0.0f) {
    throw UsageError("--intrinsics", "focal lengths must be positive");
  }
  return {v[0], v[1], v[2], v[3]};
}

// The station's division, for every command that measures.
void add_division_option(CLI::App* cmd, float& division_mm) {
  cmd->add_option("--division", division_mm,
                  "The station's division in mm: a box whose size cannot be told within it is "
                  "reported uncertain, without numbers")
      ->type_name("MM")
      ->check(decimal_in<float>(0.1f, 1000.0f))
      ->capture_default_str();
}

// Seeds are whole numbers from 0 to 2^64 - 1.
constexpr std::uint64_t kMaxSeed = std::numeric_limits<std::uint64_t>::max();

// The --engine option of a command: one of the engines the factory knows.
void add_engine_option(CLI::App* cmd, std::string& engine,
                       const std::string& description = "Measurement engine") {
  cmd->add_option("--engine", engine, description)
      ->check(CLI::Validator(
          [](std::string& name) -> std::string {
            const auto& names = engine_names();
            if (std::find(names.begin(), names.end(), name) != names.end()) return "";
            return UnknownEngine(name).what();
          },
          "NAME"))
      ->capture_default_str();
}

struct MeasureArguments {
  std::string size;
  std::string intrinsics;
  std::uint64_t seed = 0;
  MeasureOptions options;
};

struct SimulateArguments {
  std::string box;
  std::string offset;
  SimulateOptions options;
};

void add_measure_command(CLI::App& app, MeasureArguments& args) {
  CLI::App* cmd = app.add_subcommand("measure", "Measure the box in depth frame files");
  cmd->add_option("--size", args.size, "Frame size WxH of raw files");
  cmd->add_option("--intrinsics", args.intrinsics, "Camera intrinsics fx,fy,cx,cy in pixels");
  cmd->add_option("--seed", args.seed, "Seed both random generators with N instead of the clock")
      ->check(decimal_in<std::uint64_t>(0, kMaxSeed));
  cmd->add_flag("--json", args.options.json, "One JSON object per file on standard output");
  add_engine_option(cmd, args.options.engine);
  add_division_option(cmd, args.options.division_mm);
  cmd->add_option("--annotate", args.options.annotate_dir,
                  "Write each frame's picture as DIR/<file stem>.png");
  cmd->add_option("FILE", args.options.files, "Depth frames: raw 16-bit, or 16-bit PNG/TIFF")
      ->required();
}

void add_simulate_command(CLI::App& app, SimulateArguments& args) {
  SceneParameters& scene = args.options.scene;
  CLI::App* cmd = app.add_subcommand("simulate", "Render a synthetic box scene to a depth file");
  cmd->add_option("--box", args.box, "Box size LxWxH in mm")->required();
  cmd->add_option("--camera-height", scene.camera_height_mm, "Camera height above the floor, mm")
      ->required()
      ->check(finite_decimal());
  cmd->add_option("--tilt", scene.tilt_deg, "Camera tilt about its x axis, degrees")
      ->check(finite_decimal());
  cmd->add_option("--roll", scene.roll_deg, "Camera roll about its y axis, degrees")
      ->check(finite_decimal());
  cmd->add_option("--yaw", scene.yaw_deg, "Box turn about the vertical, degrees")
      ->check(finite_decimal());
  cmd->add_option("--offset", args.offset, "Box offset DX,DY along the floor, mm");
  cmd->add_option("--noise", scene.noise.sigma_at_1m_mm, "Range noise sigma at 1 m, mm")
      ->check(finite_decimal());
  cmd->add_option("--flying", scene.noise.flying_pixel_probability,
                  "Probability of a flying pixel on a depth edge")
      ->check(finite_decimal());
  cmd->add_option("--dropout", scene.noise.dropout_probability,
                  "Probability of a pixel without depth")
      ->check(finite_decimal());
  cmd->add_option("--seed", scene.seed, "Noise seed")
      ->check(decimal_in<std::uint64_t>(0, kMaxSeed));
  cmd->add_option("--out", args.options.out_path, "Raw depth file to write")->required();
  cmd->add_option("--png", args.options.png_path, "8-bit preview picture to write");
}

struct EvaluateArguments {
  std::string family = "all";
  std::string engine;
  EvaluateOptions options;
};

struct ServeArguments {
  std::string listen = "127.0.0.1:8080";
  ServeOptions options;
};

struct LiveArguments {
  long long frames = 0;
  LiveOptions options;
};

constexpr int kMaxScenesPerFamily = 10000;
constexpr int kMaxSequencesPerKind = 1000;
constexpr long long kMaxLiveFrames = 1000000000;

void add_evaluate_command(CLI::App& app, EvaluateArguments& args) {
  CLI::App* cmd = app.add_subcommand(
      "evaluate", "Measure rendered scenes of known size and report the success rate and errors");
  cmd->add_option("--scenes", args.options.scenes, "Scenes per family")
      ->check(decimal_in(1, kMaxScenesPerFamily))
      ->capture_default_str();
  cmd->add_option("--seed", args.options.seed, "Seed of the scene sampling")
      ->check(decimal_in<std::uint64_t>(0, kMaxSeed))
      ->capture_default_str();
  std::vector<std::string> families;
  for (const SceneFamily& family : accuracy_families()) families.push_back(family.name);
  families.push_back("all");
  cmd->add_option("--family", args.family, "Scene family")
      ->check(CLI::IsMember(families))
      ->capture_default_str();
  add_engine_option(cmd, args.engine, "Measure with this engine only (default: every engine)");
  add_division_option(cmd, args.options.division_mm);
  cmd->add_option("--csv", args.options.csv_path, "Write one row per scene and engine to FILE");
  cmd->add_option("--plot", args.options.plot_path,
                  "Draw the errors against camera tilt and distance into FILE.png");
  cmd->add_flag("--sides", args.options.sides,
                "Also judge each side of the boxes the precise engine measures against the true "
                "side, by how the side was placed");
  cmd->add_option("--sequences", args.options.sequences,
                  "Instead of scenes, film N rendered sequences of each kind (placed, two-boxes, "
                  "carried, empty) and judge the precise engine's tracker")
      ->check(decimal_in(1, kMaxSequencesPerKind));
}

void add_live_command(CLI::App& app, LiveArguments& args) {
  CLI::App* cmd = app.add_subcommand(
      "live", "Measure every depth frame of every camera, headless, until interrupted");
  cmd->add_option("--frames", args.frames, "Stop after N measured frames")
      ->check(decimal_in(1LL, kMaxLiveFrames));
  cmd->add_flag("--json", args.options.json, "One JSON object per frame on standard output");
  add_engine_option(cmd, args.options.engine);
  add_division_option(cmd, args.options.division_mm);
  cmd->add_flag("--events", args.options.events,
                "Print the tracker's events (placed, measured, removed) instead of a line per "
                "frame; runs the precise engine");
  cmd->add_option("--proof", args.options.proof_dir,
                  "With --events, write a PNG proof picture of every measured box into DIR")
      ->type_name("DIR");
  cmd->add_flag("--view", args.options.view,
                "Show each camera's frames in a window with every box followed, its track id and "
                "fused dimensions (Esc or q in the window stops)");
  cmd->add_option("--capture", args.options.capture_dir,
                  "Record every frame the cameras deliver into DIR, as BOXDIM_CAMERA=replay:DIR "
                  "plays it back")
      ->type_name("DIR");
}

void add_serve_command(CLI::App& app, ServeArguments& args) {
  CLI::App* cmd = app.add_subcommand(
      "serve",
      "Measure every camera with the precise engine and serve the measurements over HTTP: a JSON "
      "API, an event stream and a web page, with a history kept on disk");
  cmd->add_option("--listen", args.listen,
                  "Address and port to listen on (port 0: any free one); an address other than "
                  "this machine's own needs --token")
      ->type_name("ADDR:PORT")
      ->capture_default_str();
  cmd->add_option("--data", args.options.data_dir,
                  "Folder of the measurement history and its proof pictures")
      ->type_name("DIR")
      ->capture_default_str();
  cmd->add_option("--token", args.options.token,
                  "Every API request must carry 'Authorization: Bearer TOKEN' (12 characters at "
                  "least); without one, only requests to this machine's loopback names are "
                  "answered");
  cmd->add_option("--max-connections", args.options.max_connections,
                  "Connections served at once; more wait")
      ->check(CLI::Range(4, 4096))
      ->capture_default_str();
  cmd->add_option("--max-listeners", args.options.max_listeners,
                  "Event-stream listeners at once; more are answered 503 (at most half the "
                  "connections)")
      ->check(CLI::Range(1, 2048))
      ->capture_default_str();
  cmd->add_option("--request-timeout", args.options.request_timeout_s,
                  "Seconds a connection may stay silent while its request is read")
      ->type_name("S")
      ->check(CLI::Range(1, 300))
      ->capture_default_str();
  cmd->add_option("--max-ranges", args.options.max_ranges,
                  "Ranges one request may ask for (Range: bytes=...); more are answered 416")
      ->check(CLI::Range(1, 64))
      ->capture_default_str();
  add_engine_option(cmd, args.options.engine);
  add_division_option(cmd, args.options.division_mm);
}

ServeOptions finish_serve(const CLI::App& app, ServeArguments& args) {
  const CLI::App* cmd = app.get_subcommand("serve");
  ServeOptions options = args.options;
  try {
    parse_listen_address(args.listen, options.host, options.port);
  } catch (const std::invalid_argument& e) {
    throw UsageError("--listen", e.what());
  }
  if (cmd->count("--token") > 0 && options.token.empty()) {
    throw UsageError("--token", "must not be empty");
  }
  // A token is a secret only when it cannot be guessed: long enough, and
  // free of what a header could not carry as it is.
  if (!options.token.empty()) {
    if (options.token.size() < kMinTokenLength) {
      throw UsageError("--token", "needs at least " + std::to_string(kMinTokenLength) +
                                      " characters (a guessable one protects nothing)");
    }
    for (const char c : options.token) {
      if (c <= ' ' || c == 0x7f) {
        throw UsageError("--token", "must not hold spaces or control characters");
      }
    }
  }
  // Listeners hold their connection: half of them at most leaves the rest
  // of the API its own.
  if (options.max_listeners * 2 > options.max_connections) {
    throw UsageError("--max-listeners", "may be at most half of --max-connections (" +
                                            std::to_string(options.max_connections) + ")");
  }
  // Only the precise engine follows boxes: the history records its measured boxes.
  if (options.engine != "precise") {
    throw UsageError("--engine", "serve records the precise engine's measured boxes; '" +
                                     options.engine + "' gives none");
  }
  if (!is_loopback(options.host) && options.token.empty()) {
    throw UsageError("--listen",
                     "'" + args.listen + "' can be reached from other machines: give a --token");
  }
  if (options.data_dir.empty()) throw UsageError("--data", "needs a folder");
  return options;
}

EvaluateOptions finish_evaluate(const CLI::App& app, EvaluateArguments& args) {
  const CLI::App* cmd = app.get_subcommand("evaluate");
  if (cmd->count("--sequences") > 0) {
    // Sequences judge the precise engine's tracker over kinds of their own.
    for (const char* option : {"--scenes", "--family", "--engine", "--csv", "--plot", "--sides"}) {
      if (cmd->count(option) > 0) throw UsageError(option, "does not go with --sequences");
    }
  }
  EvaluateOptions options = args.options;
  options.engines = args.engine.empty() ? engine_names() : std::vector<std::string>{args.engine};
  for (const SceneFamily& family : accuracy_families()) {
    if (args.family == "all" || args.family == family.name) options.families.push_back(family);
  }
  return options;
}

LiveOptions finish_live(const CLI::App& app, LiveArguments& args) {
  const CLI::App* cmd = app.get_subcommand("live");
  LiveOptions options = args.options;
  if (cmd->count("--frames") > 0) options.frames = args.frames;
  if (options.events) {
    // Events come from the precise engine's tracker.
    if (cmd->count("--engine") > 0 && options.engine != "precise") {
      throw UsageError("--events", "needs the precise engine, whose tracker makes the events");
    }
    options.engine = "precise";
  }
  if (cmd->count("--proof") > 0 && !options.events) {
    throw UsageError("--proof", "needs --events: a proof belongs to a measured event");
  }
  if (cmd->count("--proof") > 0 && options.proof_dir.empty()) {
    throw UsageError("--proof", "needs a folder");
  }
  if (cmd->count("--capture") > 0 && options.capture_dir.empty()) {
    throw UsageError("--capture", "needs a folder");
  }
  return options;
}

MeasureOptions finish_measure(const CLI::App& app, MeasureArguments& args) {
  const CLI::App* cmd = app.get_subcommand("measure");
  MeasureOptions options = args.options;
  if (cmd->count("--size") > 0) {
    try {
      options.size = parse_frame_size(args.size);
    } catch (const std::invalid_argument& e) {
      throw UsageError("--size", e.what());
    }
  }
  if (cmd->count("--intrinsics") > 0) {
    options.intrinsics = parse_intrinsics(args.intrinsics);
    if (options.size) {
      const std::string misfit = intrinsics_misfit(*options.intrinsics, *options.size);
      if (!misfit.empty()) throw UsageError("--intrinsics", misfit);
    }
  }
  // Seeds above 2^63 - 1 wrap into the clock's signed range; any seed repeats a run.
  if (cmd->count("--seed") > 0) options.seed = static_cast<std::time_t>(args.seed);
  return options;
}

SimulateOptions finish_simulate(const CLI::App& app, SimulateArguments& args) {
  const CLI::App* cmd = app.get_subcommand("simulate");
  SimulateOptions options = args.options;
  const auto box = parse_numbers("--box", args.box, 'x', 3, "LxWxH");
  options.scene.box_length_mm = box[0];
  options.scene.box_width_mm = box[1];
  options.scene.box_height_mm = box[2];
  if (cmd->count("--offset") > 0) {
    const auto offset = parse_numbers("--offset", args.offset, ',', 2, "DX,DY");
    options.scene.offset_mm = {offset[0], offset[1]};
  }
  return options;
}

}  // namespace

int run_cli(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
  CLI::App app(
      "Measures boxes in time-of-flight depth frames and live cameras, renders test scenes, and "
      "evaluates the accuracy on them.",
      "boxdim-cli");
  app.require_subcommand(1);
  MeasureArguments measure_args;
  SimulateArguments simulate_args;
  EvaluateArguments evaluate_args;
  LiveArguments live_args;
  ServeArguments serve_args;
  add_measure_command(app, measure_args);
  add_simulate_command(app, simulate_args);
  add_evaluate_command(app, evaluate_args);
  add_live_command(app, live_args);
  add_serve_command(app, serve_args);

  // CLI11 would only say that a subcommand is required; name the word it got.
  const auto named = [&](CLI::App* sub) { return argc > 1 && sub->check_name(argv[1]); };
  if (argc > 1 && argv[1][0] != '-' && app.get_subcommands(named).empty()) {
    err << "boxdim-cli: unknown command '" << argv[1]
        << "' (commands: measure, simulate, evaluate, live, serve)\n";
    return kExitUsage;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const int code = app.exit(e, out, err);
    return code == 0 ? 0 : kExitUsage;
  }

  try {
    if (app.got_subcommand("measure")) {
      return run_measure(finish_measure(app, measure_args), out, err);
    }
    if (app.got_subcommand("evaluate")) {
      return run_evaluate(finish_evaluate(app, evaluate_args), out, err);
    }
    if (app.got_subcommand("live")) return run_live(finish_live(app, live_args), out, err);
    if (app.got_subcommand("serve")) return run_serve(finish_serve(app, serve_args), out, err);
    return run_simulate(finish_simulate(app, simulate_args), out, err);
  } catch (const UsageError& e) {
    err << "boxdim-cli: " << e.what() << '\n';
    return kExitUsage;
  }
}

}  // namespace boxdim
