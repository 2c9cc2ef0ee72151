#ifndef KESTRAV_HOST_IO_FILE_SYNCER_H_
#define KESTRAV_HOST_IO_FILE_SYNCER_H_

#include <atomic>
#include <cstdint>

#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/thread/event.h"
#include "kestrav/host/thread/thread_module.h"
#include "kestrav/host/thread/worker_thread.h"

namespace kestrav::Io {

// Keeps the first error of several threads.
inline void KeepFirst(std::atomic<int>& error, int value) {
  int none = 0;
  error.compare_exchange_strong(none, value, std::memory_order_relaxed);
}

// Syncs an open file to its device on a thread of its own. `OnWritten`, `End` and `Sync` are for
// the thread that writes the file; the counts may be read by any.
class FileSyncer final : public Thread::WorkerThread {
 public:
  // `descriptor` stays open and `error`, which keeps the first error, stays until `End`. `folder`,
  // where the name of a new file stands, is synced once too, if it is open.
  FileSyncer(int descriptor, FileHandle folder, std::uint32_t interval_ms, std::atomic<int>& error);
  ~FileSyncer() override;

  // The system got bytes: they are synced an interval later. Waits for no sync. The first call
  // starts the thread.
  void OnWritten();

  // Ends the thread, after the sync under way. None starts any more.
  void End();

  // Syncs now. false: it failed.
  bool Sync();

  std::uint64_t Syncs() const { return syncs_.load(std::memory_order_relaxed); }
  std::uint64_t FailedSyncs() const { return failed_syncs_.load(std::memory_order_relaxed); }

 protected:
  void Main() override;

 private:
  const int descriptor_;
  FileHandle folder_;
  const std::uint32_t interval_ms_;
  std::atomic<int>& error_;
  Thread::ThreadModule threads_;
  bool needs_thread_ = true;
  Thread::ManualResetEvent written_;
  std::atomic<std::uint64_t> syncs_{0};
  std::atomic<std::uint64_t> failed_syncs_{0};
};

}  // namespace kestrav::Io

#endif  // KESTRAV_HOST_IO_FILE_SYNCER_H_
