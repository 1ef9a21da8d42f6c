// The station pipeline's stages say why they gave up in the line they print
// last. This pair of streams passes every byte on to the program's log and
// error log unchanged and keeps that last line, so that a result can carry
// the stage's own message.
#pragma once

#include <ostream>
#include <streambuf>
#include <string>

namespace boxdim {

class LastLineLog {
 public:
  LastLineLog(std::ostream& log, std::ostream& error_log);
  LastLineLog(const LastLineLog&) = delete;
  LastLineLog& operator=(const LastLineLog&) = delete;

  std::ostream& log() { return log_; }
  std::ostream& error_log() { return error_log_; }

  // The last line written to either stream that holds more than spaces,
  // without its leading and trailing spaces; an unfinished line counts.
  std::string last_line() const;
  // Forgets the lines so far.
  void clear();

 private:
  class Tee : public std::streambuf {
   public:
    Tee(std::ostream& target, LastLineLog& owner) : target_(target), owner_(owner) {}

   protected:
    int_type overflow(int_type ch) override;
    std::streamsize xsputn(const char* text, std::streamsize count) override;
    int sync() override;

   private:
    std::ostream& target_;
    LastLineLog& owner_;
  };

  void note(const char* text, std::streamsize count);

  std::string current_;  // the line being written
  std::string last_;     // the last finished line that holds more than spaces
  Tee log_buffer_;
  Tee error_buffer_;
  std::ostream log_;
  std::ostream error_log_;
};

}  // namespace boxdim
