#include "source/image_header.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>

namespace boxdim {

namespace {

constexpr unsigned char kPngSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
constexpr std::uint16_t kTiffImageWidth = 256;
constexpr std::uint16_t kTiffImageLength = 257;
constexpr std::uint16_t kTiffShort = 3;
constexpr std::uint16_t kTiffLong = 4;
constexpr std::uint16_t kTiffLong8 = 16;
// A directory this long is not a depth image's; the bound keeps a corrupt
// count from walking gigabytes.
constexpr std::uint64_t kMaxTiffEntries = 4096;

bool read_bytes(std::istream& in, unsigned char* out, std::size_t count) {
  in.read(reinterpret_cast<char*>(out), static_cast<std::streamsize>(count));
  return in.gcount() == static_cast<std::streamsize>(count);
}

// Unsigned integer of `bytes` bytes at `p`, in the file's byte order.
std::uint64_t integer(const unsigned char* p, int bytes, bool big_endian) {
  std::uint64_t value = 0;
  for (int i = 0; i < bytes; ++i) {
    const int at = big_endian ? i : bytes - 1 - i;
    value = (value << 8) | p[at];
  }
  return value;
}

std::optional<cv::Size> png_size(std::istream& in) {
  // Signature, then the IHDR chunk: length, type, width, height (big-endian).
  unsigned char header[24];
  if (!read_bytes(in, header, sizeof header)) return std::nullopt;
  if (std::memcmp(header, kPngSignature, 8) != 0 || std::memcmp(header + 12, "IHDR", 4) != 0) {
    return std::nullopt;
  }
  const std::uint64_t width = integer(header + 16, 4, true);
  const std::uint64_t height = integer(header + 20, 4, true);
  if (width > std::numeric_limits<int>::max() || height > std::numeric_limits<int>::max()) {
    return cv::Size(std::numeric_limits<int>::max(), std::numeric_limits<int>::max());
  }
  return cv::Size(static_cast<int>(width), static_cast<int>(height));
}

std::optional<cv::Size> tiff_size(std::istream& in) {
  unsigned char header[16];
  if (!read_bytes(in, header, 8)) return std::nullopt;
  const bool big_endian = header[0] == 'M' && header[1] == 'M';
  if (!big_endian && !(header[0] == 'I' && header[1] == 'I')) return std::nullopt;
  const std::uint64_t version = integer(header + 2, 2, big_endian);
  const bool big_tiff = version == 43;
  if (version != 42 && !big_tiff) return std::nullopt;
  std::uint64_t directory = integer(header + 4, 4, big_endian);
  if (big_tiff) {
    if (!read_bytes(in, header + 8, 8)) return std::nullopt;
    directory = integer(header + 8, 8, big_endian);
  }
  // Entries: tag, type, count, value (2, 2, 4, 4 bytes; BigTIFF 2, 2, 8, 8).
  const int count_bytes = big_tiff ? 8 : 2;
  const int entry_bytes = big_tiff ? 20 : 12;
  const int value_at = big_tiff ? 12 : 8;
  if (directory > static_cast<std::uint64_t>(std::numeric_limits<std::streamoff>::max())) {
    return std::nullopt;
  }
  in.seekg(static_cast<std::streamoff>(directory));
  unsigned char count_field[8];
  if (!in || !read_bytes(in, count_field, count_bytes)) return std::nullopt;
  const std::uint64_t entries = integer(count_field, count_bytes, big_endian);
  if (entries > kMaxTiffEntries) return std::nullopt;
  std::optional<std::uint64_t> width;
  std::optional<std::uint64_t> height;
  std::array<unsigned char, 20> entry{};
  for (std::uint64_t e = 0; e < entries && !(width && height); ++e) {
    if (!read_bytes(in, entry.data(), entry_bytes)) return std::nullopt;
    const std::uint64_t tag = integer(entry.data(), 2, big_endian);
    const std::uint64_t type = integer(entry.data() + 2, 2, big_endian);
    // A short sits in the first bytes of the value field, whatever the byte order.
    const int value_bytes = type == kTiffShort ? 2 : type == kTiffLong ? 4 : 8;
    if (type != kTiffShort && type != kTiffLong && !(big_tiff && type == kTiffLong8)) continue;
    const std::uint64_t value = integer(entry.data() + value_at, value_bytes, big_endian);
    if (tag == kTiffImageWidth) width = value;
    if (tag == kTiffImageLength) height = value;
  }
  if (!width || !height) return std::nullopt;
  const auto side = [](std::uint64_t v) {
    return static_cast<int>(std::min<std::uint64_t>(v, std::numeric_limits<int>::max()));
  };
  return cv::Size(side(*width), side(*height));
}

}  // namespace

std::optional<cv::Size> image_size_from_header(std::istream& in) {
  const std::streampos start = in.tellg();
  if (std::optional<cv::Size> size = png_size(in)) return size;
  in.clear();
  in.seekg(start);
  return tiff_size(in);
}

}  // namespace boxdim
