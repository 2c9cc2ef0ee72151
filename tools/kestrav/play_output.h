#ifndef KESTRAV_TOOLS_PLAY_OUTPUT_H_
#define KESTRAV_TOOLS_PLAY_OUTPUT_H_

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

#include "kestrav/format/log_message.h"
#include "kestrav/types/notification.h"

namespace kestrav::tool {

enum class PlayFormat { kText, kJsonl };

// Prints what a playback does, in the order in which it happens: lines to standard output and, for
// a person at a terminal, a status line below them. May be called from any thread.
class PlayOutput {
 public:
  // `log_start_ms`: the log's start clock. `prompt`: each line is to be seen at once.
  PlayOutput(PlayFormat format, std::uint32_t log_start_ms, bool prompt);
  ~PlayOutput();
  PlayOutput(const PlayOutput&) = delete;
  PlayOutput& operator=(const PlayOutput&) = delete;

  // Wall time counts from here.
  void Begin();

  // false: nobody reads the output any more.
  bool Deliver(const std::string& client, const LogMessage& message);
  void Notify(const NotificationInfo& info);

  // A line for the person at the terminal, kept below the others; empty: none.
  void ShowStatus(const std::string& status);
  // A line between the others, not part of the output.
  void Say(const std::string& line);

  bool IsBroken() const;

 private:
  std::uint32_t WallMs() const;
  void Print(const std::string& line);

  const PlayFormat format_;
  const std::uint32_t log_start_ms_;
  const bool prompt_;
  const bool on_terminal_;  // lines and status share the screen
  mutable std::mutex mutex_;
  std::uint32_t begin_ms_ = 0;
  std::string status_;
  std::string line_;
  bool broken_ = false;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_PLAY_OUTPUT_H_
