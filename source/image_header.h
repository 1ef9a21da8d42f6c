// The pixel size of a PNG or TIFF file, read from its header alone, so that a
// small file that claims a huge image is refused before it is decoded.
#pragma once

#include <istream>
#include <opencv2/core.hpp>
#include <optional>

namespace boxdim {

// The size in the PNG header or the first TIFF directory (classic or
// BigTIFF) of the file read from `in`; nothing when `in` holds neither or its
// header is cut short.
std::optional<cv::Size> image_size_from_header(std::istream& in);

}  // namespace boxdim
