#ifndef KESTRAV_TOOLS_GROWING_LOG_H_
#define KESTRAV_TOOLS_GROWING_LOG_H_

#include <optional>
#include <string>

#include "log_file.h"
#include "log_walk.h"
#include "os.h"

namespace kestrav::tool {

// A log that may still be written, read as it grows.
class GrowingLog {
 public:
  // What may end the wait for more.
  enum class State {
    kGrowing,
    kFinished,     // its recording: all that there will ever be has been read
    kTruncated,    // what was read is gone, or is another log
    kReplaced,     // another file has its name, or none
    kInterrupted,  // by the user
    kReaderGone,   // of standard output
  };

  // Waits until the file holds a stream header, unless it cannot become a log. Any state but
  // kGrowing: nothing may be asked of the log.
  static State WaitForHeader(const std::string& path, const Interrupts& interrupts);

  // Throws `Failure` as `LogFile` does.
  GrowingLog(const std::string& path, const Interrupts& interrupts);

  LogFile& File() { return log_; }
  const LogWalk& Walk() const { return walk_; }

  // Steps to the next whole record. false: there is none yet, and the next call tries again.
  bool Next();
  // Returns when the log has grown, or with what ends it.
  State Wait();

 private:
  bool IsFinished() const;
  bool IsSameLog(const BinaryLogStreamHeader& header) const;
  State Look();

  const Interrupts& interrupts_;
  LogFile log_;
  LogWalk walk_;
  const std::optional<FileIdentity> identity_;
  BinaryLogStreamHeader header_;  // as it was last seen
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_GROWING_LOG_H_
