#ifndef KESTRAV_TESTS_TOOL_PTY_H_
#define KESTRAV_TESTS_TOOL_PTY_H_

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <string>

namespace kestrav::test {

// A pseudo terminal with a person at it, who reads the screen and presses keys.
class Pty {
 public:
  explicit Pty(unsigned short columns = 100) {
    EXPECT_EQ(grantpt(person_), 0);
    EXPECT_EQ(unlockpt(person_), 0);
    tool_ = open(ptsname(person_), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_GE(tool_, 0);
    winsize size{};
    size.ws_row = 24;
    size.ws_col = columns;
    EXPECT_EQ(ioctl(tool_, TIOCSWINSZ, &size), 0);
  }
  ~Pty() {
    close(person_);
    close(tool_);
  }
  Pty(const Pty&) = delete;
  Pty& operator=(const Pty&) = delete;

  // The end that becomes the tool's terminal.
  int Tool() const { return tool_; }

  void Press(char key) const { EXPECT_EQ(write(person_, &key, 1), 1); }

  // Reads on until `text` appears. What has been read is in `Screen`.
  bool ShowsNext(const std::string& text) {
    for (;;) {
      const std::size_t found = screen_.find(text, seen_);
      if (found != std::string::npos) {
        seen_ = found + text.size();
        return true;
      }
      if (!ReadMore(kPatienceMs)) return false;
    }
  }

  // All that has been written to it so far.
  const std::string& Screen() {
    while (ReadMore(0)) {
    }
    return screen_;
  }

  bool EchoesAndWaitsForLines() const {
    termios settings{};
    EXPECT_EQ(tcgetattr(tool_, &settings), 0);
    return (settings.c_lflag & (ICANON | ECHO)) == (ICANON | ECHO);
  }

  // All its settings, to be compared.
  std::string Settings() const {
    termios settings{};
    EXPECT_EQ(tcgetattr(tool_, &settings), 0);
    std::string text(reinterpret_cast<const char*>(settings.c_cc), sizeof(settings.c_cc));
    for (const tcflag_t flags :
         {settings.c_iflag, settings.c_oflag, settings.c_cflag, settings.c_lflag}) {
      text += std::to_string(flags) + " ";
    }
    return text;
  }

 private:
  static constexpr int kPatienceMs = 20'000;

  bool ReadMore(int timeout_ms) {
    pollfd wait{person_, POLLIN, 0};
    char buffer[4096];
    if (poll(&wait, 1, timeout_ms) <= 0) return false;
    const ssize_t got = read(person_, buffer, sizeof(buffer));
    if (got > 0) screen_.append(buffer, static_cast<std::size_t>(got));
    return got > 0;
  }

  int person_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  int tool_ = -1;
  std::string screen_;
  std::size_t seen_ = 0;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_TOOL_PTY_H_
