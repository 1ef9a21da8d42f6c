// Writing frames to disk while saving is on for a device: bare 16-bit samples,
// one file per frame, in a folder per frame kind under the working directory.
#pragma once

#include <string>

namespace boxdim {

// path_out = working directory + "/" + name + "/"; creates that folder, or
// reuses it when it exists. The working directory counts as empty when it
// cannot be read.
void make_folder(std::string& path_out, const std::string& name);

// Writes width * height samples of 2 bytes, without header, to
// <kind word>/<device_id + 1>_<W>x<H>-<kind word>_<seconds since epoch>.raw,
// with kind word raw (1), depth (2), ir (3), empty otherwise. A file that
// cannot be created is skipped silently; one that cannot be written whole
// (a full disk) is removed, and the first of a run of such failures is
// reported on standard error.
void save_frame(int device_id, const void* samples, int kind, int width, int height);

}  // namespace boxdim
