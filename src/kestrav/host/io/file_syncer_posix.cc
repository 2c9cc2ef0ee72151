#include <unistd.h>

#include <cerrno>
#include <utility>

#include "kestrav/host/io/file_syncer.h"
#include "kestrav/host/time/source.h"

namespace kestrav::Io {

FileSyncer::FileSyncer(int descriptor, FileHandle folder, std::uint32_t interval_ms,
                       std::atomic<int>& error)
    : descriptor_(descriptor),
      folder_(std::move(folder)),
      interval_ms_(interval_ms),
      error_(error) {}

FileSyncer::~FileSyncer() { End(); }

void FileSyncer::OnWritten() {
  written_.Set();
  if (!std::exchange(needs_thread_, false)) return;
  if (!SetName(L"Kestrav-Sync") || !Start(threads_)) KeepFirst(error_, EAGAIN);
}

void FileSyncer::End() {
  needs_thread_ = false;
  Quit();
  WaitForCompletion();
}

bool FileSyncer::Sync() {
  // Some file systems refuse to sync a folder; they keep names in another way.
  if (folder_.IsOpen()) static_cast<void>(::fsync(folder_.Get()));
  folder_.Close();
  int result = 0;
  do {
    result = ::fdatasync(descriptor_);
  } while (result != 0 && errno == EINTR);
  if (result != 0) KeepFirst(error_, errno);
  (result == 0 ? syncs_ : failed_syncs_).fetch_add(1, std::memory_order_relaxed);
  return result == 0;
}

void FileSyncer::Main() {
  Thread::ManualResetEvent* const quit_or_bytes[] = {&QuitEvent(), &written_};
  Thread::ManualResetEvent* const quit[] = {&QuitEvent()};
  while (Thread::WaitForFirst(quit_or_bytes, Time::kNoLimit) == 1 &&
         Thread::WaitForFirst(quit, interval_ms_) == Thread::kWaitTimedOut) {
    written_.Reset();  // first, so that what is written during the sync is seen to by the next one
    if (!Sync()) written_.Set();
  }
}

}  // namespace kestrav::Io
