#include "play_output.h"

#include <cerrno>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "exit_codes.h"
#include "kestrav/host/time/source.h"
#include "os.h"
#include "payload_text.h"
#include "terminal.h"
#include "text.h"

namespace kestrav::tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kEraseLine = "\r\x1b[K";
constexpr const char* kEraseRest = "\x1b[K";

// A name out of a damaged log need not be valid text.
std::string Dump(const Json& line) {
  return line.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void AppendRight(std::string& out, const std::string& text, std::size_t width) {
  if (text.size() < width) out.append(width - text.size(), ' ');
  out += text;
}

void AppendLeft(std::string& out, const std::string& text, std::size_t width) {
  out += text;
  if (text.size() < width) out.append(width - text.size(), ' ');
}

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
  return Dump(line);
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
  return Dump(line);
}

}  // namespace

PlayOutput::PlayOutput(PlayFormat format, std::uint32_t log_start_ms, bool prompt)
    : format_(format),
      log_start_ms_(log_start_ms),
      prompt_(prompt),
      on_terminal_(IsOutputTerminal() && IsErrorTerminal()) {}

PlayOutput::~PlayOutput() { ShowStatus(""); }

void PlayOutput::Begin() { begin_ms_ = WallMs(); }

std::uint32_t PlayOutput::WallMs() const {
  std::uint32_t now_ms = 0;
  return Time::Source().ReadMs(now_ms) ? now_ms - begin_ms_ : 0;
}

bool PlayOutput::Deliver(const std::string& client, const LogMessage& message) {
  const std::lock_guard lock(mutex_);
  const std::uint32_t wall_ms = WallMs();
  Print(format_ == PlayFormat::kJsonl ? DeliveryJson(wall_ms, client, message)
                                      : DeliveryText(wall_ms, client, message));
  return error_ == 0;
}

std::string PlayOutput::DeliveryText(std::uint32_t wall_ms, const std::string& client,
                                     const LogMessage& message) const {
  constexpr std::size_t kTimeWidth = 10;
  constexpr std::size_t kDataIdWidth = 5;
  std::string line;
  AppendRight(line, Seconds(wall_ms), kTimeWidth);
  line += "  ";
  AppendRight(line, Seconds(static_cast<std::int32_t>(message.time_stamp - log_start_ms_)),
              kTimeWidth);
  line += "  ";
  AppendLeft(line, Printable(client), client_width_);
  line += "  ";
  AppendRight(line, std::to_string(message.GetDataID()), kDataIdWidth);
  line += "  ";
  AppendPayloadText(line, message);
  return line;
}

void PlayOutput::Notify(const NotificationInfo& info) {
  if (format_ != PlayFormat::kJsonl) return;
  const std::lock_guard lock(mutex_);
  Print(NotificationJson(WallMs(), info));
}

void PlayOutput::Print(const std::string& line) {
  if (error_ != 0) return;
  line_.clear();
  if (on_terminal_ && !status_.empty()) line_ += kEraseLine;
  line_ += line;
  line_ += '\n';
  if (on_terminal_) line_ += status_;
  errno = 0;
  const bool written = std::fwrite(line_.data(), 1, line_.size(), stdout) == line_.size() &&
                       (!prompt_ || std::fflush(stdout) == 0);
  if (!written) error_ = errno != 0 ? errno : EIO;
}

// The new status is written over the old one, so that nothing flickers.
void PlayOutput::ShowStatus(const std::string& status) {
  const std::lock_guard lock(mutex_);
  if (status_.empty() && status.empty()) return;
  status_ = status;
  if (on_terminal_) std::fflush(stdout);
  std::fprintf(stderr, "\r%s%s", status.c_str(), kEraseRest);
  std::fflush(stderr);
}

void PlayOutput::Say(const std::string& line) {
  const std::lock_guard lock(mutex_);
  if (on_terminal_) std::fflush(stdout);
  const char* const erase = status_.empty() ? "" : kEraseLine;
  std::fprintf(stderr, "%s%s\n%s", erase, line.c_str(), status_.c_str());
  std::fflush(stderr);
}

void PlayOutput::Finish() {
  ShowStatus("");
  const std::lock_guard lock(mutex_);
  errno = 0;
  if (error_ == 0 && std::fflush(stdout) != 0) error_ = errno != 0 ? errno : EIO;
  if (error_ != 0 && error_ != EPIPE) throw Failure("standard output: " + ErrorText(error_));
}

bool PlayOutput::IsBroken() const {
  const std::lock_guard lock(mutex_);
  return error_ != 0;
}

}  // namespace kestrav::tool
