#ifndef KESTRAV_TOOLS_EXIT_CODES_H_
#define KESTRAV_TOOLS_EXIT_CODES_H_

#include <stdexcept>
#include <string>

namespace kestrav::tool {

enum ExitCode : int {
  kDone = 0,
  kFailed = 1,      // nothing, or not all, was done: no such file, not a log, a full disk
  kWrongUsage = 2,  // nothing was done: the arguments make no sense
  kLost = 3,        // done, but the log is damaged and something in it is lost
  kDifferent = 3,   // done, and what was compared differs
};

// Ends a subcommand. The message is one line that names the file.
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& message, ExitCode exit_code = kFailed)
      : std::runtime_error(message), code(exit_code) {}

  const ExitCode code;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_EXIT_CODES_H_
