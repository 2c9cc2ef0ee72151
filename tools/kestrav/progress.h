#ifndef KESTRAV_TOOLS_PROGRESS_H_
#define KESTRAV_TOOLS_PROGRESS_H_

#include <chrono>
#include <cstdio>
#include <string>

#include "os.h"

namespace kestrav::tool {

// One line on the terminal that tells how far a long work is. Shows nothing when standard error is
// no terminal.
class Progress {
 public:
  Progress() : enabled_(IsErrorTerminal()) {}
  ~Progress() { Clear(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  bool IsEnabled() const { return enabled_; }

  // Whether it is time for a new text: a few times a second.
  bool IsDue() const { return enabled_ && std::chrono::steady_clock::now() >= due_; }

  void Show(const std::string& text) {
    due_ = std::chrono::steady_clock::now() + std::chrono::milliseconds(250);
    shown_ = true;
    std::fprintf(stderr, "\r%s\x1b[K", text.c_str());
    std::fflush(stderr);
  }

  void Clear() {
    if (shown_) std::fputs("\r\x1b[K", stderr);
    shown_ = false;
  }

 private:
  const bool enabled_;
  bool shown_ = false;
  std::chrono::steady_clock::time_point due_ = std::chrono::steady_clock::now();
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_PROGRESS_H_
