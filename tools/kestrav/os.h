#ifndef KESTRAV_TOOLS_OS_H_
#define KESTRAV_TOOLS_OS_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

// What the tool asks of the operating system itself: terminals, signals, live input.

namespace kestrav::tool {

// Gives the standard streams that are closed a place, so that no file takes theirs.
void OpenStandardStreams();

std::string ProcessId();

// A file whatever its name is at the moment.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t number = 0;

  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};
// Empty: there is no file of this name.
std::optional<FileIdentity> IdentifyFile(const std::string& path);

// Removes a file when the user interrupts the program, which then ends.
class RemoveOnInterrupt {
 public:
  explicit RemoveOnInterrupt(const std::string& path);
  ~RemoveOnInterrupt();
  RemoveOnInterrupt(const RemoveOnInterrupt&) = delete;
  RemoveOnInterrupt& operator=(const RemoveOnInterrupt&) = delete;

 private:
  const std::string path_;
};

// Where a mapped file can no longer be read the system raises a signal. The program then writes
// `message`, removes what `RemoveOnInterrupt` names and fails. At most one at a time.
class EndOnBusError {
 public:
  explicit EndOnBusError(const std::string& message);
  ~EndOnBusError();
  EndOnBusError(const EndOnBusError&) = delete;
  EndOnBusError& operator=(const EndOnBusError&) = delete;
};

// Writing into a pipe that nobody reads, or beyond the largest file that the user may write, then
// fails instead of ending the program.
void IgnoreWriteSignals();

bool IsErrorTerminal();  // whether standard error is one
bool IsOutputFile();     // whether standard output goes to a file

// The system's words for an errno value.
std::string ErrorText(int error);

// While such an object exists, the first interrupt (Ctrl-C, or a request to terminate) is only
// noted; a second one ends the program. At most one object at a time.
class Interrupts {
 public:
  Interrupts();
  ~Interrupts();
  Interrupts(const Interrupts&) = delete;
  Interrupts& operator=(const Interrupts&) = delete;

  enum class Event { kNone, kInterrupt, kReaderGone };
  // Waits for an interrupt, or for the reader of standard output to go, at most `timeout_ms`.
  Event Wait(int timeout_ms) const;
};

// Standard input as it comes in, until it ends or the user interrupts: the first interrupt ends the
// input, not the program. At most one object at a time.
class LiveInput {
 public:
  enum class Result { kData, kNothingYet, kEnd, kInterrupted, kError };

  // Waits for input, at most `timeout_ms` (negative: no limit), and reads up to `room` bytes into
  // `data`; `size` says how many. kError: `error` holds the errno value.
  Result Read(char* data, std::size_t room, int timeout_ms, std::size_t& size);

  int error = 0;

 private:
  const Interrupts interrupts_;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_OS_H_
