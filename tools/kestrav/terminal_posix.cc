#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>

#include "exit_codes.h"
#include "os.h"
#include "terminal.h"

namespace kestrav::tool {
namespace {

constexpr char kWakeByte = 'w';
constexpr char kInterruptByte = 'i';

constexpr int kInterrupts[] = {SIGINT, SIGTERM, SIGHUP};
constexpr int kDeaths[] = {SIGQUIT, SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL};

// A signal handler can reach nothing but statics.
int wake_pipe[2] = {-1, -1};
termios cooked;
volatile std::sig_atomic_t is_raw = 0;
std::atomic<bool> was_interrupted{false};  // threads may handle two signals at a time

void Send(char byte) {
  const int before = errno;
  static_cast<void>(!write(wake_pipe[1], &byte, 1));
  errno = before;
}

void Handle(int signal, void (*handler)(int), int flags = 0) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

// Whoever started the program may have chosen that it outlives its terminal.
bool IsIgnored(int signal) {
  struct sigaction action {};
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

// A program in the background must not touch the terminal's settings: that would stop it. Without
// job control there is no background.
bool IsInForeground() {
  const pid_t owner = tcgetpgrp(STDIN_FILENO);
  return owner < 0 || owner == getpgrp();
}

void MakeRaw() {
  if (is_raw != 0 || !IsInForeground() || tcgetattr(STDIN_FILENO, &cooked) != 0) return;
  termios raw = cooked;
  raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  raw.c_cc[VMIN] = 0;
  raw.c_cc[VTIME] = 0;
  is_raw = 1;
  tcsetattr(STDIN_FILENO, TCSANOW, &raw);
  is_raw = 1;  // again: a signal in between may have put it back
}

void PutBack() {
  if (is_raw == 0) return;
  is_raw = 0;
  tcsetattr(STDIN_FILENO, TCSANOW, &cooked);
}

// Out of a signal handler the status line goes too.
void PutBackAndErase() {
  constexpr char kEraseLine[] = "\r\x1b[K";
  if (is_raw != 0) static_cast<void>(!write(STDERR_FILENO, kEraseLine, sizeof(kEraseLine) - 1));
  PutBack();
}

void OnDeath(int signal) {
  PutBackAndErase();
  Handle(signal, SIG_DFL);
  raise(signal);
}

void OnInterrupt(int signal) {
  if (was_interrupted.exchange(true)) OnDeath(signal);
  Send(kInterruptByte);
}

void OnStop(int /*signal*/) {
  const int before = errno;
  PutBackAndErase();
  raise(SIGSTOP);
  errno = before;
}

// The wait for a key ends, and the next one takes the terminal again.
void OnContinue(int /*signal*/) { Send(kWakeByte); }

bool HasPerson() { return isatty(STDIN_FILENO) == 1 && IsErrorTerminal(); }

}  // namespace

bool IsOutputTerminal() { return isatty(STDOUT_FILENO) == 1; }

bool IsOutputPipe() {
  struct stat status {};
  return fstat(STDOUT_FILENO, &status) == 0 && S_ISFIFO(status.st_mode);
}

Terminal::Terminal(bool with_keys) : has_keys_(with_keys && HasPerson()), input_open_(has_keys_) {
  if (pipe2(wake_pipe, O_CLOEXEC | O_NONBLOCK) != 0) throw Failure(ErrorText(errno));
  was_interrupted = false;
  for (const int signal : kInterrupts) {
    if (!IsIgnored(signal)) Handle(signal, OnInterrupt, SA_RESTART);
  }
  if (!has_keys_) return;
  for (const int signal : kDeaths) Handle(signal, OnDeath);
  Handle(SIGTSTP, OnStop, SA_RESTART);
  Handle(SIGCONT, OnContinue, SA_RESTART);
  MakeRaw();
}

Terminal::~Terminal() {
  PutBack();
  for (const int signal : kInterrupts) {
    if (!IsIgnored(signal)) Handle(signal, SIG_DFL);
  }
  if (has_keys_) {
    for (const int signal : kDeaths) Handle(signal, SIG_DFL);
    Handle(SIGTSTP, SIG_DFL);
    Handle(SIGCONT, SIG_DFL);
  }
  for (int& end : wake_pipe) {
    close(end);
    end = -1;
  }
}

bool Terminal::IsInteractive() const { return has_keys_ && IsInForeground(); }

int Terminal::Columns() const {
  constexpr int kUsual = 80;
  winsize size{};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsual;
}

void Terminal::Wake() { Send(kWakeByte); }

int Terminal::WaitForKey(int timeout_ms) {
  const bool keys = input_open_ && IsInteractive();
  if (keys) MakeRaw();
  pollfd waits[] = {{wake_pipe[0], POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
  if (poll(waits, keys ? 2 : 1, timeout_ms) <= 0) return kNoKey;
  char byte = 0;
  if (waits[0].revents != 0) {
    const bool interrupted = read(wake_pipe[0], &byte, 1) == 1 && byte == kInterruptByte;
    return interrupted ? kInterrupt : kNoKey;
  }
  if (read(STDIN_FILENO, &byte, 1) == 1) return static_cast<unsigned char>(byte);
  // A terminal that went away would be ready for ever.
  input_open_ = (waits[1].revents & (POLLHUP | POLLERR | POLLNVAL)) == 0;
  return kNoKey;
}

}  // namespace kestrav::tool
