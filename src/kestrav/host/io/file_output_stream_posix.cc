#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <limits>
#include <new>

#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/io/file_syncer.h"
#include "kestrav/host/memory/try.h"

namespace kestrav::Io {
namespace {

constexpr std::uint32_t kLongestFile = std::numeric_limits<std::uint32_t>::max();
constexpr mode_t kCreationMode = 0640;
// So much is written at most before the free space is asked for again.
constexpr std::uint64_t kMostUnaskedBytes = 16 * 1024 * 1024;

int Flags(OpenMode mode) {
  const int flags = O_WRONLY | O_CLOEXEC | O_NONBLOCK;
  return mode == OpenMode::kCreate ? flags | O_CREAT | O_TRUNC : flags;
}

FileOutputSettings Usable(FileOutputSettings settings) {
  settings.buffer_bytes = std::max<std::uint32_t>(settings.buffer_bytes, 1);
  settings.sync_interval_ms = std::min(settings.sync_interval_ms, Time::kNoLimit - 1);
  return settings;
}

// -1: it cannot be opened.
int OpenFolderOf(std::string name) {
  name.resize(name.rfind('/') + 1);  // without a slash there is nothing left
  return ::open(name.empty() ? "." : name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

// false: the file system does not tell, errno says why.
bool AskForFreeBytes(int descriptor, std::uint64_t& bytes) {
  struct statvfs status {};
  while (::fstatvfs(descriptor, &status) != 0) {
    if (errno != EINTR) return false;
  }
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  const std::uint64_t block = std::max<std::uint64_t>(status.f_frsize, 1);
  bytes = status.f_bavail > kMost / block ? kMost : status.f_bavail * block;
  return true;
}

// One thread counts, others may look.
void Count(std::atomic<std::uint64_t>& counter, std::uint64_t more) {
  counter.store(counter.load(std::memory_order_relaxed) + more, std::memory_order_relaxed);
}

}  // namespace

BufferedFileOutputStream::BufferedFileOutputStream(std::uint32_t buffer_bytes)
    : BufferedFileOutputStream(FileOutputSettings{.buffer_bytes = buffer_bytes}) {}

BufferedFileOutputStream::BufferedFileOutputStream(const FileOutputSettings& settings)
    : settings_(Usable(settings)) {}

BufferedFileOutputStream::~BufferedFileOutputStream() { Close(); }

bool BufferedFileOutputStream::Open(const String& path, OpenMode mode) {
  Close();
  ResetCounts();
  std::string name;
  if (!Memory::Try([&] { name = Text::ToUtf8(path); }) || !buffer_.Resize(settings_.buffer_bytes)) {
    Fail(ENOMEM);
    return false;
  }
  if (name.find('\0') != std::string::npos) {
    Fail(EINVAL);
    return false;
  }
  FileHandle file(::open(name.c_str(), Flags(mode), kCreationMode));
  struct stat status {};
  if (!file.IsOpen() || ::fstat(file.Get(), &status) != 0) {
    Fail(errno);
    return false;
  }
  // A log is rewritten at its start, which only a regular file allows.
  if (!S_ISREG(status.st_mode) || status.st_size > kLongestFile) {
    Fail(S_ISREG(status.st_mode) ? EFBIG : EINVAL);
    return false;
  }
  file_ = std::move(file);
  end_ = static_cast<std::uint32_t>(status.st_size);
  if (settings_.sync_interval_ms > 0) {
    FileHandle folder(mode == OpenMode::kCreate ? OpenFolderOf(std::move(name)) : -1);
    syncer_.reset(new (std::nothrow) FileSyncer(file_.Get(), std::move(folder),
                                                settings_.sync_interval_ms, error_));
    if (!syncer_) Fail(ENOMEM);
  }
  StartBuffer(0);
  return true;
}

void BufferedFileOutputStream::ResetCounts() {
  syncer_.reset();
  unasked_bytes_ = asked_after_sync_ = 0;
  bytes_ = writes_ = failed_writes_ = longest_write_us_ = 0;
  error_ = 0;
}

FileOutputCounts BufferedFileOutputStream::Counts() const {
  constexpr auto kRelaxed = std::memory_order_relaxed;
  return {.bytes = bytes_.load(kRelaxed),
          .writes = writes_.load(kRelaxed),
          .failed_writes = failed_writes_.load(kRelaxed),
          .syncs = syncer_ ? syncer_->Syncs() : 0,
          .failed_syncs = syncer_ ? syncer_->FailedSyncs() : 0,
          .longest_write_us = longest_write_us_.load(kRelaxed),
          .error = Error()};
}

bool BufferedFileOutputStream::Close() {
  if (!file_.IsOpen()) return true;
  if (syncer_) syncer_->End();
  bool whole = Flush();
  whole = CutTornEnd() && whole;
  // The system tells a failure once: a later sync that works says nothing of those bytes.
  if (syncer_) whole = syncer_->Sync() && syncer_->FailedSyncs() == 0 && whole;
  if (!file_.Close()) {
    Fail(errno);
    whole = false;
  }
  buffer_start_ = room_ = end_ = 0;
  torn_ = false;
  SetRoom(nullptr, nullptr);
  return whole;
}

void BufferedFileOutputStream::StartBuffer(std::uint32_t position) {
  buffer_start_ = position;
  flush_failed_ = false;
  room_ = std::min(settings_.buffer_bytes, kLongestFile - position);
  SetRoom(buffer_.Data(), buffer_.Data() + room_);
}

void BufferedFileOutputStream::Fail(int error) { KeepFirst(error_, error); }

bool BufferedFileOutputStream::WriteFile(const std::uint8_t* data, std::uint32_t size,
                                         std::uint32_t at) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point begin = Clock::now();
  const int error =
      LeavesReserve(std::max(at + size, end_) - end_) ? WriteWhole(data, size, at) : ENOSPC;
  const auto took = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin);
  const std::uint64_t longest = longest_write_us_.load(std::memory_order_relaxed);
  longest_write_us_.store(std::max(longest, static_cast<std::uint64_t>(took.count())),
                          std::memory_order_relaxed);
  if (error != 0) {
    Fail(error);
    Count(failed_writes_, 1);
    CutTornEnd();
    return false;
  }
  end_ = std::max(end_, at + size);
  Count(bytes_, size);
  Count(writes_, 1);
  CutTornEnd();
  if (syncer_) syncer_->OnWritten();
  return true;
}

// Asks the file system only when the file has taken half of what was free above the reserve, and
// after each sync. One that does not tell does not stop the recording.
bool BufferedFileOutputStream::LeavesReserve(std::uint32_t growth) {
  if (settings_.reserve_bytes == 0 || growth == 0) return true;
  const std::uint64_t syncs = syncer_ ? syncer_->Syncs() + syncer_->FailedSyncs() : 0;
  if (growth > unasked_bytes_ || syncs != asked_after_sync_) {
    std::uint64_t free = 0;
    asked_after_sync_ = syncs;
    if (!AskForFreeBytes(file_.Get(), free)) {
      Fail(errno);
      unasked_bytes_ = kMostUnaskedBytes;
      return true;
    }
    const std::uint64_t above = free - std::min(free, settings_.reserve_bytes);
    unasked_bytes_ = growth > above ? 0 : std::min(above / 2, kMostUnaskedBytes);
    if (growth > above) return false;
  }
  unasked_bytes_ -= std::min<std::uint64_t>(unasked_bytes_, growth);
  return true;
}

// 0, or why the file has taken no more than a part.
int BufferedFileOutputStream::WriteWhole(const std::uint8_t* data, std::uint32_t size,
                                         std::uint32_t at) {
  for (std::uint32_t done = 0; done < size;) {
    const ssize_t put = ::pwrite(file_.Get(), data + done, size - done, off_t{at} + done);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) {
      torn_ = torn_ || at + done > end_;
      return put < 0 ? errno : EIO;
    }
    done += static_cast<std::uint32_t>(put);
  }
  return 0;
}

// All or nothing: what failed writes left behind the end of the file goes again.
bool BufferedFileOutputStream::CutTornEnd() {
  if (!torn_) return true;
  torn_ = ::ftruncate(file_.Get(), end_) != 0;
  if (torn_) Fail(errno);
  return !torn_;
}

bool BufferedFileOutputStream::Flush() {
  const std::uint32_t size = Buffered();
  if (size == 0) return true;
  flush_failed_ = !WriteFile(buffer_.Data(), size, buffer_start_);
  if (flush_failed_) return false;
  StartBuffer(buffer_start_ + size);
  return true;
}

void BufferedFileOutputStream::DropUnflushed() {
  if (file_.IsOpen()) StartBuffer(buffer_start_);
}

bool BufferedFileOutputStream::Write(const std::uint8_t* data, std::uint32_t size) {
  if (!file_.IsOpen()) return false;
  if (size > kLongestFile - Position()) {
    Fail(EFBIG);
    return false;
  }
  if (size > RoomSize() && !Flush()) return false;
  if (size >= settings_.buffer_bytes) {
    if (!WriteFile(data, size, buffer_start_)) return false;
    StartBuffer(buffer_start_ + size);
    return true;
  }
  if (size > 0) std::memcpy(Reserve(size), data, size);
  Commit(size);
  return true;
}

// After a flush that failed there is no room until one succeeds. The write that the caller turns to
// instead tries that, so that a record on a full disk costs one attempt.
bool BufferedFileOutputStream::MakeRoom(std::uint32_t size) {
  const bool fits = size <= settings_.buffer_bytes && size <= kLongestFile - Position();
  return file_.IsOpen() && fits && !flush_failed_ && Flush();
}

bool BufferedFileOutputStream::Seek(std::uint32_t position) {
  if (!file_.IsOpen() || position > std::max(end_, Position()) || !Flush()) return false;
  StartBuffer(position);
  return true;
}

}  // namespace kestrav::Io
