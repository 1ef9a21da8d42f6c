// `boxdim-cli evaluate --sequences`: rendered sequences of each kind through
// the precise engine, and how right its tracker's events and fused readings
// are beside single frames.
#pragma once

#include <cstdint>
#include <ostream>

namespace boxdim {

// `count` sequences per kind from `seed`: a progress bar on `err`, the table
// on `out`. Exit status 0, or 2 when `out` cannot be written.
int run_sequence_evaluation(int count, std::uint64_t seed, std::ostream& out, std::ostream& err);

}  // namespace boxdim
