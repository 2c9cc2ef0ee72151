#ifndef KESTRAV_TOOLS_PLAY_OUTPUT_H_
#define KESTRAV_TOOLS_PLAY_OUTPUT_H_

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

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

  // How much room text leaves for the names of the clients.
  void SetClientWidth(std::size_t width) { client_width_ = width; }

  // Wall time counts from here.
  void Begin();

  // false: nobody reads the output any more.
  bool Deliver(const std::string& client, const LogMessage& message);
  void Notify(const NotificationInfo& info);

  // A line for the person at the terminal, kept below the others; empty: none.
  void ShowStatus(const std::string& status);
  // A line between the others, not part of the output.
  void Say(const std::string& line);

  // Whether nothing can be written any more.
  bool IsBroken() const;
  // Everything was printed. Throws `Failure` when it could not be written, but not when its reader
  // has gone: then there is nobody to tell.
  void Finish();

 private:
  std::uint32_t WallMs() const;
  std::string DeliveryText(std::uint32_t wall_ms, const std::string& client,
                           const LogMessage& message) const;
  void Print(const std::string& line);

  const PlayFormat format_;
  const std::uint32_t log_start_ms_;
  const bool prompt_;
  const bool on_terminal_;  // lines and status share the screen
  std::size_t client_width_ = 0;
  mutable std::mutex mutex_;
  std::uint32_t begin_ms_ = 0;
  std::string status_;
  std::string line_;
  int error_ = 0;  // an errno value: why nothing can be written any more
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_PLAY_OUTPUT_H_
