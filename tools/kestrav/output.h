#ifndef KESTRAV_TOOLS_OUTPUT_H_
#define KESTRAV_TOOLS_OUTPUT_H_

#include <cerrno>
#include <cstdio>
#include <string>

#include "exit_codes.h"
#include "os.h"

namespace kestrav::tool {

// Standard output through a buffer. Throws `Failure` when it cannot be written, but not when its
// reader has gone: then the rest is of no use, and nobody to tell.
class Output {
 public:
  // What is to be written goes here.
  std::string& Text() { return text_; }

  // Writes when there is enough to write. false: the reader has gone.
  bool Continue() { return text_.size() < kEnough ? open_ : Flush(); }

  bool Flush() {
    errno = 0;
    const bool written = std::fwrite(text_.data(), 1, text_.size(), stdout) == text_.size() &&
                         std::fflush(stdout) == 0;
    text_.clear();
    if (!written && errno != EPIPE) throw Failure("standard output: " + ErrorText(errno));
    open_ = open_ && written;
    return open_;
  }

 private:
  static constexpr std::size_t kEnough = 64 * 1024;

  std::string text_;
  bool open_ = true;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_OUTPUT_H_
