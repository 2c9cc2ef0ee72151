#include "playback_gap.h"

#include <algorithm>
#include <limits>
#include <span>
#include <utility>

namespace kestrav::tool {
namespace {

bool Holds(const IndexBlock& block, const std::set<std::uint16_t>& clients) {
  return std::ranges::any_of(clients,
                             [&block](std::uint16_t id) { return block.clients.contains(id); });
}

// Playback compares time stamps as they are, and takes a step of half their range for one back.
bool IsTimePlain(const LogIndex& index, std::uint32_t start_clock, std::uint64_t offset_ms) {
  constexpr std::uint32_t kLongestStep = 1U << 31U;
  return start_clock + offset_ms <= std::numeric_limits<std::uint32_t>::max() &&
         std::ranges::none_of(
             index.blocks, [](const IndexBlock& block) { return block.latest_ms >= kLongestStep; });
}

// How many blocks from the start on hold nothing but records before this time, in good order.
std::size_t BlocksBefore(const LogIndex& index, std::uint64_t offset_ms) {
  std::size_t count = 0;
  for (const IndexBlock& block : index.blocks) {
    if (!block.orderly || block.latest_ms >= offset_ms) break;
    ++count;
  }
  return count;
}

}  // namespace

// A playback waits for its first record unless that one stands before the offset. So when there is
// such a record, one has to stay: in the first block, or else in the last one that has any.
std::optional<Gap> FindGap(const LogIndex& index, std::uint32_t start_clock,
                           std::uint32_t offset_scnds, const std::set<std::uint16_t>& played) {
  const std::uint64_t offset_ms = std::uint64_t{1000} * offset_scnds;
  if (index.blocks.empty() || !IsTimePlain(index, start_clock, offset_ms)) return std::nullopt;
  std::size_t last = std::min(BlocksBefore(index, offset_ms), index.blocks.size() - 1);
  if (last > 0 && !Holds(index.blocks.front(), played)) {
    std::size_t with_one = last - 1;
    while (with_one > 0 && !Holds(index.blocks[with_one], played)) --with_one;
    if (with_one > 0) last = with_one;
  }
  if (last < 2) return std::nullopt;
  return Gap{index.blocks[1].offset, index.blocks[last].offset};
}

GapStream::GapStream(std::shared_ptr<Io::BufferedFileInputStream> file)
    : file_(std::move(file)), file_size_(file_->Remaining()) {}

std::uint32_t GapStream::Room() const {
  return position_ < gap_.begin ? gap_.begin - position_ : Size() - position_;
}

bool GapStream::MoveFile() {
  const bool behind = position_ >= gap_.begin;
  return file_->Seek(behind ? position_ + (gap_.end - gap_.begin) : position_);
}

bool GapStream::TakeBackView() {
  position_ = Position();
  shown_ = 0;
  SetView(nullptr, nullptr);
  return MoveFile();
}

bool GapStream::LoadView(std::uint32_t size) {
  if (!TakeBackView() || size > Room()) return false;
  const std::span<const std::uint8_t> bytes = file_->View(size);
  if (bytes.empty()) return false;
  shown_ = std::min(static_cast<std::uint32_t>(bytes.size()), Room());
  SetView(bytes.data(), bytes.data() + shown_);
  return true;
}

bool GapStream::Read(std::uint8_t* data, std::uint32_t size) {
  if (size > Remaining() || !TakeBackView()) return false;
  const std::uint32_t start = position_;
  for (std::uint32_t done = 0; done < size;) {
    const std::uint32_t part = std::min(size - done, Room());
    if (!MoveFile() || !file_->Read(data + done, part)) {
      position_ = start;
      return false;
    }
    done += part;
    position_ += part;
  }
  return true;
}

bool GapStream::Seek(std::uint32_t position) {
  if (position == 0) gap_ = std::exchange(next_gap_, Gap{});
  if (position > Size()) return false;
  position_ = position;
  shown_ = 0;
  SetView(nullptr, nullptr);
  return true;
}

}  // namespace kestrav::tool
