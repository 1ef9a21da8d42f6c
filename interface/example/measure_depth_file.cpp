// Measures the boxes in a raw depth file with nothing but interface/interface.h:
// how a program of one's own would use boxdim's detector.
//
//   boxdim-interface-example FILE [WIDTH HEIGHT [FX FY CX CY]]
//
// FILE holds WIDTH x HEIGHT (default 640 x 480) little-endian 16-bit depth
// samples in millimetres, row after row: what `boxdim-cli simulate --out` and
// the station's frame capture write. Exit status: 0 when the image could be
// used, 1 when it could not, 2 for a bad command line or file.
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "interface/interface.h"

namespace {

bool parse_number(const char* text, float& value) {
  try {
    std::size_t used = 0;
    value = std::stof(text, &used);
    return used == std::string(text).size();
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 && argc != 4 && argc != 8) {
    std::cerr << "usage: " << argv[0] << " FILE [WIDTH HEIGHT [FX FY CX CY]]\n";
    return 2;
  }
  float numbers[6] = {640, 480, 0, 0, 0, 0};
  for (int i = 2; i < argc; ++i) {
    if (!parse_number(argv[i], numbers[i - 2])) {
      std::cerr << argv[0] << ": '" << argv[i] << "' is not a number\n";
      return 2;
    }
  }
  const int width = static_cast<int>(numbers[0]);
  const int height = static_cast<int>(numbers[1]);
  if (width < 1 || height < 1 || width > boxdim::Interface::kMaxImageSide ||
      height > boxdim::Interface::kMaxImageSide) {
    std::cerr << argv[0] << ": the size " << width << " x " << height << " is out of range\n";
    return 2;
  }

  std::ifstream file(argv[1], std::ios::binary);
  if (!file) {
    std::cerr << argv[0] << ": cannot open " << argv[1] << "\n";
    return 2;
  }
  const std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(file)),
                                         std::istreambuf_iterator<char>());
  const std::size_t samples = static_cast<std::size_t>(width) * height;
  if (bytes.size() != 2 * samples) {
    std::cerr << argv[0] << ": " << argv[1] << " holds " << bytes.size() << " bytes, not the "
              << 2 * samples << " of a " << width << " x " << height << " depth image\n";
    return 2;
  }
  std::vector<std::uint16_t> depth(samples);
  for (std::size_t i = 0; i < samples; ++i) {
    depth[i] = static_cast<std::uint16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
  }

  const std::unique_ptr<boxdim::Interface> detector(boxdim::Interface::CreateInterface());
  if (argc == 8) detector->SetExactIntrinsics(numbers[2], numbers[3], numbers[4], numbers[5]);
  detector->SetSeed(1);
  const int count = detector->Detect(depth.data(), width, height);
  if (count < 0) {
    std::cerr << argv[0] << ": " << argv[1] << ": " << detector->LastProblem() << "\n";
    return 1;
  }
  std::cout << count << (count == 1 ? " box" : " boxes") << " in " << argv[1] << "\n";
  for (int i = 0; i < count; ++i) {
    boxdim::Detection box;
    detector->GetDetection(i, &box);
    char line[200];
    if (box.status == boxdim::DetectionStatus::kMeasured) {
      std::snprintf(line, sizeof line, "measured %.0f x %.0f x %.0f mm, confidence %.2f",
                    box.length_mm, box.width_mm, box.height_mm, box.confidence);
    } else {
      std::snprintf(line, sizeof line, "%s, size unknown", boxdim::DetectionStatusName(box.status));
    }
    std::printf("box %d: %s, centre (%.0f, %.0f) px\n", i + 1, line, box.center_px[0],
                box.center_px[1]);
  }
  if (count == 0 || *detector->LastProblem() != '\0') {
    std::cout << detector->LastProblem() << "\n";
  }
  return 0;
}
