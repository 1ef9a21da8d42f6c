// Measures the boxes in a raw depth file with nothing but interface/interface.h:
// how a program of one's own would use boxdim's detector.
//
//   boxdim-interface-example FILE [WIDTH HEIGHT [FX FY CX CY]]
//
// FILE holds WIDTH x HEIGHT (default 640 x 480) little-endian 16-bit depth
// samples in millimetres, row after row: what `boxdim-cli simulate --out` and
// the station's frame capture write. Exit status: 0 when the image could be
// used, 1 when it could not, 2 for a bad command line or file.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "interface/interface.h"

namespace {

// A decimal number, finite: no hexadecimal ("0x280"), no "nan" or "inf".
bool parse_number(const char* text, float& value) {
  const std::string s(text);
  if (s.empty() || s.find_first_not_of("+-.0123456789eE") != std::string::npos) return false;
  try {
    std::size_t used = 0;
    value = std::stof(s, &used);
    return used == s.size() && std::isfinite(value);
  } catch (const std::exception&) {
    return false;
  }
}

// A whole number of pixels, in decimal digits only.
bool parse_side(const char* text, int& value) {
  const std::string s(text);
  if (s.empty() || s.size() > 6 || s.find_first_not_of("0123456789") != std::string::npos) {
    return false;
  }
  value = std::stoi(s);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 && argc != 4 && argc != 8) {
    std::cerr << "usage: " << argv[0] << " FILE [WIDTH HEIGHT [FX FY CX CY]]\n";
    return 2;
  }
  int width = 640;
  int height = 480;
  float numbers[4] = {0, 0, 0, 0};
  for (int i = 2; i < argc; ++i) {
    const bool good = i < 4 ? parse_side(argv[i], i == 2 ? width : height)
                            : parse_number(argv[i], numbers[i - 4]);
    if (!good) {
      std::cerr << argv[0] << ": '" << argv[i] << "' is not " << (i < 4 ? "a whole" : "a")
                << " decimal number\n";
      return 2;
    }
  }
  if (width < 1 || height < 1 || width > boxdim::Interface::kMaxImageSide ||
      height > boxdim::Interface::kMaxImageSide ||
      static_cast<long long>(width) * height > boxdim::Interface::kMaxImagePixels) {
    std::cerr << argv[0] << ": the size " << width << " x " << height << " is out of range\n";
    return 2;
  }

  // A plain file only: a folder cannot be read, and a device or a pipe may
  // never end.
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(argv[1], error);
  if (!std::filesystem::is_regular_file(status)) {
    std::cerr << argv[0] << ": " << argv[1] << ": "
              << (!std::filesystem::exists(status)        ? "no such file"
                  : std::filesystem::is_directory(status) ? "is a directory"
                                                          : "not a regular file")
              << "\n";
    return 2;
  }
  std::ifstream file(argv[1], std::ios::binary);
  if (!file) {
    std::cerr << argv[0] << ": cannot open " << argv[1] << "\n";
    return 2;
  }
  // One byte more than the image needs tells a longer file without reading it all.
  const std::size_t samples = static_cast<std::size_t>(width) * height;
  std::vector<unsigned char> bytes(2 * samples + 1);
  file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  if (bytes.size() != 2 * samples) {
    std::cerr << argv[0] << ": " << argv[1] << " holds "
              << (bytes.size() > 2 * samples ? "more than " + std::to_string(2 * samples)
                                             : std::to_string(bytes.size()))
              << " bytes, not the " << 2 * samples << " of a " << width << " x " << height
              << " depth image\n";
    return 2;
  }
  std::vector<std::uint16_t> depth(samples);
  for (std::size_t i = 0; i < samples; ++i) {
    depth[i] = static_cast<std::uint16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
  }

  const std::unique_ptr<boxdim::Interface> detector(boxdim::Interface::CreateInterface());
  if (argc == 8) detector->SetExactIntrinsics(numbers[0], numbers[1], numbers[2], numbers[3]);
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
