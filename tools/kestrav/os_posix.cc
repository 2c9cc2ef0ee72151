#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <string>
#include <system_error>
#include <vector>

#include "exit_codes.h"
#include "os.h"

namespace kestrav::tool {
namespace {

int interrupt_pipe[2] = {-1, -1};  // a signal handler can reach nothing but statics

void OnInterrupt(int /*signal*/) {
  const int before = errno;
  const char byte = 0;
  static_cast<void>(!write(interrupt_pipe[1], &byte, 1));
  errno = before;
}

std::vector<std::string> unfinished;  // changed only while its handlers wait

void RemoveUnfinished() {
  for (const std::string& path : unfinished) unlink(path.c_str());
}

void OnInterruptRemove(int signal) {
  RemoveUnfinished();
  raise(signal);  // by now its handler is the default one
}

std::string bus_error_message;  // set before its handler is

void OnBusError(int /*signal*/) {
  constexpr char kClearLine[] = "\r\x1b[K";  // of the progress shown
  if (isatty(STDERR_FILENO) == 1) {
    static_cast<void>(!write(STDERR_FILENO, kClearLine, sizeof(kClearLine) - 1));
  }
  static_cast<void>(!write(STDERR_FILENO, bus_error_message.data(), bus_error_message.size()));
  RemoveUnfinished();
  _exit(kFailed);
}

constexpr int kInterrupts[] = {SIGINT, SIGTERM, SIGHUP};

void Handle(int signal, void (*handler)(int), unsigned flags) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = static_cast<int>(flags);
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

// Interrupts of this thread wait until its end.
class HeldInterrupts {
 public:
  HeldInterrupts() {
    sigset_t held;
    sigemptyset(&held);
    for (const int signal : kInterrupts) sigaddset(&held, signal);
    pthread_sigmask(SIG_BLOCK, &held, &before_);
  }
  ~HeldInterrupts() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  HeldInterrupts(const HeldInterrupts&) = delete;
  HeldInterrupts& operator=(const HeldInterrupts&) = delete;

 private:
  sigset_t before_;
};

}  // namespace

void OpenStandardStreams() {
  int opened = 0;
  while (opened >= 0 && opened <= STDERR_FILENO) opened = open("/dev/null", O_RDWR);
  if (opened > STDERR_FILENO) close(opened);
}

std::string ProcessId() { return std::to_string(getpid()); }

std::optional<FileIdentity> IdentifyFile(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return std::nullopt;
  return FileIdentity{status.st_dev, status.st_ino};
}

RemoveOnInterrupt::RemoveOnInterrupt(const std::string& path) : path_(path) {
  const HeldInterrupts held;
  unfinished.push_back(path);
  for (const int signal : kInterrupts) Handle(signal, OnInterruptRemove, SA_RESETHAND | SA_NODEFER);
}

RemoveOnInterrupt::~RemoveOnInterrupt() {
  const HeldInterrupts held;
  unfinished.erase(std::find(unfinished.begin(), unfinished.end(), path_));
  if (!unfinished.empty()) return;
  for (const int signal : kInterrupts) Handle(signal, SIG_DFL, 0);
}

EndOnBusError::EndOnBusError(const std::string& message) {
  bus_error_message = message;
  Handle(SIGBUS, OnBusError, SA_RESETHAND);
}

EndOnBusError::~EndOnBusError() { Handle(SIGBUS, SIG_DFL, 0); }

void IgnoreWriteSignals() {
  for (const int signal : {SIGPIPE, SIGXFSZ}) Handle(signal, SIG_IGN, 0);
}

bool IsErrorTerminal() { return isatty(STDERR_FILENO) == 1; }

bool IsOutputFile() {
  struct stat status {};
  return fstat(STDOUT_FILENO, &status) == 0 && S_ISREG(status.st_mode);
}

std::string ErrorText(int error) { return std::generic_category().message(error); }

Interrupts::Interrupts() {
  if (pipe2(interrupt_pipe, O_CLOEXEC | O_NONBLOCK) != 0) throw Failure(ErrorText(errno));
  for (const int signal : kInterrupts) Handle(signal, OnInterrupt, SA_RESTART | SA_RESETHAND);
}

Interrupts::~Interrupts() {
  for (const int signal : kInterrupts) Handle(signal, SIG_DFL, 0);
  for (int& end : interrupt_pipe) {
    close(end);
    end = -1;
  }
}

Interrupts::Event Interrupts::Wait(int timeout_ms) const {
  pollfd waits[] = {{interrupt_pipe[0], POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
  if (poll(waits, 2, timeout_ms) <= 0) return Event::kNone;
  if (waits[0].revents != 0) return Event::kInterrupt;
  return Event::kReaderGone;
}

LiveInput::Result LiveInput::Read(char* data, std::size_t room, int timeout_ms, std::size_t& size) {
  size = 0;
  pollfd waits[] = {{interrupt_pipe[0], POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
  const int ready = poll(waits, 2, timeout_ms);
  if (ready == 0 || (ready < 0 && errno == EINTR)) return Result::kNothingYet;
  if (ready > 0 && waits[0].revents != 0) return Result::kInterrupted;
  const ssize_t got = ready < 0 ? -1 : read(STDIN_FILENO, data, room);
  if (got == 0) return Result::kEnd;
  if (got < 0) {
    if (errno == EINTR || errno == EAGAIN) return Result::kNothingYet;
    error = errno;
    return Result::kError;
  }
  size = static_cast<std::size_t>(got);
  return Result::kData;
}

}  // namespace kestrav::tool
