// An output stream that formats everything and keeps nothing: the stages'
// console lines still run their code under the fuzzer without filling memory.
#pragma once

#include <ostream>
#include <streambuf>

namespace boxdim::fuzz {

class DiscardingBuffer : public std::streambuf {
 protected:
  int_type overflow(int_type ch) override { return traits_type::not_eof(ch); }
  std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

class QuietStream : public std::ostream {
 public:
  QuietStream() : std::ostream(&buffer_) {}

 private:
  DiscardingBuffer buffer_;
};

}  // namespace boxdim::fuzz
