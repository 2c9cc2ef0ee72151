#include "growing_log.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

#include "exit_codes.h"

namespace kestrav::tool {
namespace {

constexpr int kLookEveryMs = 50;

// Whether the file is too short for a stream header and begins as one.
bool CanBecomeLog(const std::string& path) {
  constexpr std::string_view kMagic = "LOG:";
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  if (error || size >= kStreamHeaderSize) return false;
  std::array<char, kMagic.size()> bytes;
  std::ifstream file(path, std::ios::binary);
  file.read(bytes.data(), bytes.size());
  return kMagic.starts_with({bytes.data(), static_cast<std::size_t>(file.gcount())});
}

GrowingLog::State WaitFor(const Interrupts& interrupts) {
  switch (interrupts.Wait(kLookEveryMs)) {
    case Interrupts::Event::kInterrupt:
      return GrowingLog::State::kInterrupted;
    case Interrupts::Event::kReaderGone:
      return GrowingLog::State::kReaderGone;
    case Interrupts::Event::kNone:
      break;
  }
  return GrowingLog::State::kGrowing;
}

}  // namespace

GrowingLog::State GrowingLog::WaitForHeader(const std::string& path, const Interrupts& interrupts) {
  State state = State::kGrowing;
  while (state == State::kGrowing && CanBecomeLog(path)) state = WaitFor(interrupts);
  return state;
}

GrowingLog::GrowingLog(const std::string& path, const Interrupts& interrupts)
    : interrupts_(interrupts),
      log_(path),
      walk_(log_.Decoder()),
      identity_(IdentifyFile(path)),
      header_(log_.Header()) {
  // The size and the header of one moment.
  static_cast<void>(Look());
}

bool GrowingLog::Next() {
  if (walk_.Next() == kSuccess) return true;
  walk_.StepBack();
  return false;
}

bool GrowingLog::IsFinished() const {
  return header_.stream_length != 0 && header_.stream_length <= log_.Size();
}

bool GrowingLog::IsSameLog(const BinaryLogStreamHeader& header) const {
  return header.start_time == header_.start_time && header.start_clock == header_.start_clock &&
         header.header_key == header_.header_key && header.data_key == header_.data_key;
}

// The file is opened by its name, so it is looked at before and after which one that is.
GrowingLog::State GrowingLog::Look() {
  BinaryLogStreamHeader header;
  if (IdentifyFile(log_.Path()) != identity_) return State::kReplaced;
  const bool reaches = log_.Reopen(header);
  if (IdentifyFile(log_.Path()) != identity_) return State::kReplaced;
  if (!reaches || !IsSameLog(header)) return State::kTruncated;
  header_ = header;
  return State::kGrowing;
}

GrowingLog::State GrowingLog::Wait() {
  const std::uint64_t size = log_.Size();
  if (log_.HasReadError()) {  // what makes a file shorter does that too
    const std::string reason = log_.ReadErrorText();
    const State state = Look();
    if (state == State::kGrowing) throw Failure(reason);
    return state;
  }
  while (!IsFinished()) {
    State state = WaitFor(interrupts_);
    if (state == State::kGrowing) state = Look();
    if (state != State::kGrowing || log_.Size() > size) return state;
  }
  return State::kFinished;
}

}  // namespace kestrav::tool
