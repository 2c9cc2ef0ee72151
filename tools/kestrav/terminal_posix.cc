#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "exit_codes.h"
#include "os.h"
#include "terminal.h"

namespace kestrav::tool {
namespace {

constexpr char kWakeByte = 'w';
constexpr char kInterruptByte = 'i';

// A signal handler can reach nothing but statics.
int wake_pipe[2] = {-1, -1};
termios cooked;
termios raw;
bool is_raw = false;

void Send(char byte) {
  const int before = errno;
  static_cast<void>(!write(wake_pipe[1], &byte, 1));
  errno = before;
}

void OnInterrupt(int /*signal*/) { Send(kInterruptByte); }

void OnDeath(int signal) {
  if (is_raw) tcsetattr(STDIN_FILENO, TCSANOW, &cooked);
  raise(signal);
}

// A stop by Ctrl-Z gives the shell its terminal back, and a continuation takes it again.
void OnStop(int /*signal*/) {
  if (is_raw) tcsetattr(STDIN_FILENO, TCSANOW, &cooked);
  raise(SIGSTOP);
}

void OnContinue(int /*signal*/) {
  if (is_raw) tcsetattr(STDIN_FILENO, TCSANOW, &raw);
}

void Handle(int signal, void (*handler)(int), int flags) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

constexpr int kInterrupts[] = {SIGINT, SIGTERM, SIGHUP};
constexpr int kDeaths[] = {SIGQUIT, SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL};

void MakeRaw() {
  if (tcgetattr(STDIN_FILENO, &cooked) != 0) return;
  raw = cooked;
  raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  raw.c_cc[VMIN] = 0;
  raw.c_cc[VTIME] = 0;
  for (const int signal : kDeaths) Handle(signal, OnDeath, SA_RESETHAND | SA_NODEFER);
  Handle(SIGTSTP, OnStop, SA_RESTART);
  Handle(SIGCONT, OnContinue, SA_RESTART);
  is_raw = tcsetattr(STDIN_FILENO, TCSANOW, &raw) == 0;
}

}  // namespace

bool IsOutputTerminal() { return isatty(STDOUT_FILENO) == 1; }

Terminal::Terminal()
    : interactive_(isatty(STDIN_FILENO) == 1 && IsErrorTerminal()), input_open_(interactive_) {
  if (pipe2(wake_pipe, O_CLOEXEC | O_NONBLOCK) != 0) throw Failure(ErrorText(errno));
  for (const int signal : kInterrupts) Handle(signal, OnInterrupt, SA_RESTART);
  if (interactive_) MakeRaw();
}

Terminal::~Terminal() {
  if (is_raw) tcsetattr(STDIN_FILENO, TCSANOW, &cooked);
  is_raw = false;
  for (const int signal : kInterrupts) Handle(signal, SIG_DFL, 0);
  for (const int signal : kDeaths) Handle(signal, SIG_DFL, 0);
  Handle(SIGTSTP, SIG_DFL, 0);
  Handle(SIGCONT, SIG_DFL, 0);
  for (int& end : wake_pipe) {
    close(end);
    end = -1;
  }
}

void Terminal::Wake() { Send(kWakeByte); }

int Terminal::WaitForKey(int timeout_ms) {
  pollfd waits[] = {{wake_pipe[0], POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
  if (poll(waits, input_open_ ? 2 : 1, timeout_ms) <= 0) return kNoKey;
  char byte = 0;
  if (waits[0].revents != 0) {
    const bool interrupted = read(wake_pipe[0], &byte, 1) == 1 && byte == kInterruptByte;
    return interrupted ? kInterrupt : kNoKey;
  }
  const ssize_t got = read(STDIN_FILENO, &byte, 1);
  if (got == 1) return static_cast<unsigned char>(byte);
  // A terminal that went away would be ready for ever.
  input_open_ = got < 0 && (errno == EINTR || errno == EAGAIN);
  return kNoKey;
}

}  // namespace kestrav::tool
