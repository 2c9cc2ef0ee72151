#ifndef KESTRAV_TOOLS_OS_H_
#define KESTRAV_TOOLS_OS_H_

#include <cstddef>
#include <cstdint>
#include <string>

// What the tool asks of the operating system itself: terminals, signals, live input.

namespace kestrav::tool {

// Gives the standard streams that are closed a place, so that no file takes theirs.
void OpenStandardStreams();

std::string ProcessId();

// Removes a file when the user interrupts the program, which then ends. At most one at a time.
class RemoveOnInterrupt {
 public:
  explicit RemoveOnInterrupt(const std::string& path);
  ~RemoveOnInterrupt();
  RemoveOnInterrupt(const RemoveOnInterrupt&) = delete;
  RemoveOnInterrupt& operator=(const RemoveOnInterrupt&) = delete;
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

// Standard input as it comes in, until it ends or the user interrupts (Ctrl-C, or a request to
// terminate). While such an object exists, the first interrupt ends the input, not the program; a
// second one ends the program. At most one object at a time.
class LiveInput {
 public:
  enum class Result { kData, kNothingYet, kEnd, kInterrupted, kError };

  LiveInput();
  ~LiveInput();
  LiveInput(const LiveInput&) = delete;
  LiveInput& operator=(const LiveInput&) = delete;

  // Waits for input, at most `timeout_ms` (negative: no limit), and reads up to `room` bytes into
  // `data`; `size` says how many. kError: `error` holds the errno value.
  Result Read(char* data, std::size_t room, int timeout_ms, std::size_t& size);

  int error = 0;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_OS_H_
