#ifndef KESTRAV_TOOLS_OUTPUT_H_
#define KESTRAV_TOOLS_OUTPUT_H_

#include <cerrno>
#include <cstdio>
#include <string>
#include <utility>

#include "exit_codes.h"
#include "os.h"

namespace kestrav::tool {

// Standard output, or a file, through a buffer. Throws `Failure` when it cannot be written, but not
// when the reader of standard output has gone: then the rest is of no use, and nobody to tell.
class Output {
 public:
  Output() : file_(stdout), name_("standard output") {}
  // Creates the file `path`, or empties it; failures call it `name`.
  Output(const std::string& path, const std::string& name)
      : file_(std::fopen(path.c_str(), "wb")), name_(name) {
    if (file_ == nullptr) throw Failure(name_ + ": " + ErrorText(errno));
  }
  ~Output() {
    if (file_ != stdout && file_ != nullptr) std::fclose(file_);
  }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  // What is to be written goes here.
  std::string& Text() { return text_; }

  // Writes when there is enough to write. false: the reader has gone.
  bool Continue() { return text_.size() < kEnough ? open_ : Flush(); }

  bool Flush() {
    errno = 0;
    const bool written = std::fwrite(text_.data(), 1, text_.size(), file_) == text_.size() &&
                         std::fflush(file_) == 0;
    text_.clear();
    if (!written && (errno != EPIPE || file_ != stdout)) Fail();
    open_ = open_ && written;
    return open_;
  }

  // The end of a file: all is in it.
  void Close() {
    Flush();
    errno = 0;
    if (file_ != stdout && std::fclose(std::exchange(file_, nullptr)) != 0) Fail();
  }

 private:
  static constexpr std::size_t kEnough = 64 * 1024;

  [[noreturn]] void Fail() const { throw Failure(name_ + ": " + ErrorText(errno)); }

  std::FILE* file_;
  const std::string name_;
  std::string text_;
  bool open_ = true;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_OUTPUT_H_
