#include "play_output.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "kestrav/host/time/source.h"
#include "os.h"
#include "payload_text.h"
#include "terminal.h"
#include "text.h"

namespace kestrav::tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kEraseLine = "\r\x1b[K";

const char* Name(NotificationIdType id) {
  switch (id) {
    case NotifyLoggingStarted:
      return "NotifyLoggingStarted";
    case NotifyLoggingStopped:
      return "NotifyLoggingStopped";
    case NotifyPlaybackStarted:
      return "NotifyPlaybackStarted";
    case NotifyPlaybackStopped:
      return "NotifyPlaybackStopped";
    case NotifyPlaybackPaused:
      return "NotifyPlaybackPaused";
    case NotifyPlaybackResumed:
      return "NotifyPlaybackResumed";
    case NotifyRewindStarted:
      return "NotifyRewindStarted";
    case NotifyRewindFinished:
      return "NotifyRewindFinished";
    case NotifyEndOfLog:
      return "NotifyEndOfLog";
    case NotifyLoggingFinished:
      return "NotifyLoggingFinished";
    case NotifyRecordingTime:
      return "NotifyRecordingTime";
    case NotifyPlaybackTime:
      return "NotifyPlaybackTime";
    case NotifyPlaybackSpeed:
      return "NotifyPlaybackSpeed";
    case NotifyPeriodicEvent:
      return "NotifyPeriodicEvent";
    case NotifyNone:
      break;
  }
  return "NotifyNone";
}

std::string DeliveryJson(std::uint32_t wall_ms, const std::string& client,
                         const LogMessage& message) {
  std::string hex;
  AppendHex(hex, message.GetDataPointer(), message.GetDataSize());
  const Json line = {{"wall_ms", wall_ms},
                     {"time_ms", message.time_stamp},
                     {"client", client},
                     {"client_id", message.GetClientID()},
                     {"data_id", message.GetDataID()},
                     {"size", message.GetDataSize()},
                     {"payload", hex}};
  return line.dump();
}

std::string NotificationJson(std::uint32_t wall_ms, const NotificationInfo& info) {
  Json clients = Json::array();
  for (std::uint16_t id = 0; id < kClientIdLimit; ++id) {
    if (info.IsClientSelected(id)) clients.push_back(id);
  }
  const Json line = {{"wall_ms", wall_ms},
                     {"notification", static_cast<std::uint32_t>(info.id)},
                     {"name", Name(info.id)},
                     {"value", info.value},
                     {"speed", static_cast<std::int32_t>(info.speed)},
                     {"clients", clients}};
  return line.dump();
}

}  // namespace

PlayOutput::PlayOutput(PlayFormat format, std::uint32_t log_start_ms, bool prompt)
    : format_(format),
      log_start_ms_(log_start_ms),
      prompt_(prompt),
      on_terminal_(IsOutputTerminal() && IsErrorTerminal()) {}

PlayOutput::~PlayOutput() {
  ShowStatus("");
  std::fflush(stdout);
}

void PlayOutput::Begin() { begin_ms_ = WallMs(); }

std::uint32_t PlayOutput::WallMs() const {
  std::uint32_t now_ms = 0;
  return Time::Source().ReadMs(now_ms) ? now_ms - begin_ms_ : 0;
}

bool PlayOutput::Deliver(const std::string& client, const LogMessage& message) {
  const std::lock_guard lock(mutex_);
  const std::uint32_t wall_ms = WallMs();
  if (format_ == PlayFormat::kJsonl) {
    Print(DeliveryJson(wall_ms, client, message));
  } else {
    const auto log_ms = static_cast<std::int32_t>(message.time_stamp - log_start_ms_);
    std::string line = Seconds(wall_ms) + "  " + Seconds(log_ms) + "  " + Printable(client) + "  " +
                       std::to_string(message.GetDataID()) + "  ";
    AppendPayloadText(line, message);
    Print(line);
  }
  return !broken_;
}

void PlayOutput::Notify(const NotificationInfo& info) {
  if (format_ != PlayFormat::kJsonl) return;
  const std::lock_guard lock(mutex_);
  Print(NotificationJson(WallMs(), info));
}

void PlayOutput::Print(const std::string& line) {
  line_.clear();
  if (on_terminal_ && !status_.empty()) line_ += kEraseLine;
  line_ += line;
  line_ += '\n';
  if (on_terminal_) line_ += status_;
  const bool written = std::fwrite(line_.data(), 1, line_.size(), stdout) == line_.size() &&
                       (!prompt_ || std::fflush(stdout) == 0);
  if (!written) broken_ = true;
}

void PlayOutput::ShowStatus(const std::string& status) {
  const std::lock_guard lock(mutex_);
  if (status_.empty() && status.empty()) return;
  status_ = status;
  if (on_terminal_) std::fflush(stdout);
  std::fprintf(stderr, "%s%s", kEraseLine, status.c_str());
  std::fflush(stderr);
}

void PlayOutput::Say(const std::string& line) {
  const std::lock_guard lock(mutex_);
  if (on_terminal_) std::fflush(stdout);
  std::fprintf(stderr, "%s%s\n%s", kEraseLine, line.c_str(), status_.c_str());
  std::fflush(stderr);
}

bool PlayOutput::IsBroken() const {
  const std::lock_guard lock(mutex_);
  return broken_;
}

}  // namespace kestrav::tool
