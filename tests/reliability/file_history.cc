#include "reliability/file_history.h"

#include <algorithm>
#include <set>
#include <utility>

#include "kestrav/host/time/source.h"

namespace kestrav::test {
namespace {

std::size_t Below(std::mt19937& random, std::size_t limit) { return random() % limit; }

// Makes `size` bytes from `at` on those that `source` has there, 0 where it has none.
void Copy(Bytes& target, const Bytes& source, std::size_t at, std::size_t size) {
  for (std::size_t i = at; i < std::min(at + size, target.size()); ++i) {
    target[i] = i < source.size() ? source[i] : std::uint8_t{0};
  }
}

}  // namespace

FileHistory::FileHistory() {
  files_.emplace();
  files_->Watch([this](const FileAccess& access) { NoteBegin(access); });
  files_->WatchResults(
      [this](const FileAccess& access, std::int64_t result) { NoteEnd(access, result); });
}

void FileHistory::NoteBegin(const FileAccess& access) {
  if (access.call != FileCall::kFdatasync) return;
  const std::lock_guard lock(mutex_);
  sync_began_ = events_.size();
  Add(Kind::kSyncBegin, 0, {});
}

void FileHistory::NoteEnd(const FileAccess& access, std::int64_t result) {
  if (result < 0) return;
  const std::lock_guard lock(mutex_);
  if (access.call == FileCall::kPwrite) {
    Add(Kind::kWrite, static_cast<std::size_t>(access.at),
        Bytes(access.data, access.data + result));
  }
  if (access.call == FileCall::kFtruncate)
    Add(Kind::kTruncate, static_cast<std::size_t>(access.size), {});
  if (access.call == FileCall::kFdatasync) Add(Kind::kSyncEnd, sync_began_, {});
}

void FileHistory::Add(Kind kind, std::size_t at, Bytes bytes) {
  std::uint32_t now_ms = 0;
  static_cast<void>(Time::Source().ReadMs(now_ms));
  events_.push_back({kind, now_ms, at, std::move(bytes)});
}

std::size_t FileHistory::Moments() const { return events_.size() + 1; }

std::uint32_t FileHistory::TimeMs(std::size_t moment) const {
  return events_.at(std::min(moment, events_.size() - 1)).time_ms;
}

void FileHistory::Apply(Bytes& content, std::size_t from, std::size_t to) const {
  for (std::size_t i = from; i < to; ++i) {
    const Event& event = events_[i];
    if (event.kind == Kind::kTruncate) content.resize(event.at);
    if (event.kind != Kind::kWrite) continue;
    content.resize(std::max(content.size(), event.at + event.bytes.size()));
    std::copy(event.bytes.begin(), event.bytes.end(),
              content.begin() + static_cast<std::ptrdiff_t>(event.at));
  }
}

Bytes FileHistory::At(std::size_t moment) const {
  Bytes content;
  Apply(content, 0, moment);
  return content;
}

std::size_t FileHistory::SyncedAt(std::size_t moment) const {
  for (std::size_t i = moment; i > 0; --i) {
    if (events_[i - 1].kind == Kind::kSyncEnd) return events_[i - 1].at;
  }
  return 0;
}

Bytes FileHistory::AfterPowerCut(std::size_t moment, std::mt19937& random) const {
  const std::size_t synced_at = SyncedAt(moment);
  const Bytes synced = At(synced_at);
  std::vector<Bytes> since = {synced};
  std::set<std::size_t> touched;
  for (std::size_t i = synced_at; i < moment; ++i) {
    if (events_[i].kind == Kind::kWrite) {
      const std::size_t end = events_[i].at + events_[i].bytes.size();
      for (std::size_t block = events_[i].at / kBlock; block * kBlock < end; ++block) {
        touched.insert(block);
      }
    }
    since.push_back(since.back());
    Apply(since.back(), i, i + 1);
  }

  Bytes disk = synced;
  disk.resize(since[Below(random, since.size())].size());
  for (const std::size_t block : touched) {
    const std::size_t at = block * kBlock;
    const std::size_t safe = std::clamp(synced.size(), at, at + kBlock);
    switch (Below(random, 4)) {
      case 0:
        Copy(disk, since.back(), at, kBlock);
        break;
      case 1:
        Copy(disk, since[Below(random, since.size())], at, kBlock);
        break;
      case 2:
        Copy(disk, {}, safe, at + kBlock - safe);
        break;
      default:  // as it was when it was synced
        break;
    }
  }
  return disk;
}

}  // namespace kestrav::test
