#include "kestrav/host/memory/pool.h"

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <utility>

namespace kestrav::Memory {
namespace {

constexpr std::uint32_t kBatch = 64;
// What is kept for later: 12 MiB. The rest of a burst goes back to the system's allocator.
constexpr std::uint32_t kMaxBatches = 1024;

// The address sanitizer sees what is used after it was given back only if it is really given back.
#if defined(__SANITIZE_ADDRESS__)
#define KESTRAV_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KESTRAV_ADDRESS_SANITIZER
#endif
#endif
#ifdef KESTRAV_ADDRESS_SANITIZER
constexpr bool kGivesBackAtOnce = true;
#else
constexpr bool kGivesBackAtOnce = false;
#endif

struct Block {
  Block* next;        // in the same batch
  Block* next_batch;  // of the first block of a batch
};

// The batches that belong to no thread. It never goes: threads may end after everything else.
class Depot {
 public:
  static Depot& Get() {
    static Depot& depot = *new (Memory()) Depot;
    return depot;
  }

  // Null: there is none.
  Block* TakeBatch() {
    const std::lock_guard lock(mutex_);
    Block* const batch = batches_;
    if (batch != nullptr) {
      batches_ = batch->next_batch;
      --count_;
    }
    return batch;
  }

  // false: there is enough.
  bool GiveBatch(Block* batch) {
    const std::lock_guard lock(mutex_);
    if (count_ == kMaxBatches) return false;
    batch->next_batch = batches_;
    batches_ = batch;
    ++count_;
    return true;
  }

 private:
  static void* Memory() {
    alignas(Depot) static std::byte memory[sizeof(Depot)];
    return memory;
  }

  std::mutex mutex_;
  Block* batches_ = nullptr;
  std::uint32_t count_ = 0;
};

void Free(Block* blocks) {
  while (blocks != nullptr) ::operator delete(std::exchange(blocks, blocks->next));
}

// One thread's own blocks: a batch that is taken from and given to, and a full one, so that a
// thread that does both in turn never goes to the depot. Without constructor and destructor, so
// that it is reached without a look at whether it is there.
struct Cache {
  Block* open;
  Block* full;
  std::uint32_t open_count;
  bool is_watched;  // its end is seen to
  bool is_closed;   // the thread is ending
};

// The model of a library that is loaded with its program: an address instead of a call.
constinit thread_local Cache cache __attribute__((tls_model("initial-exec"))) = {};

// Lets go of the thread's blocks at its end.
struct Watch {
  ~Watch() {
    cache.is_closed = true;
    Free(std::exchange(cache.open, nullptr));
    Free(std::exchange(cache.full, nullptr));
    cache.open_count = 0;
  }
};

void WatchThisThread() {
  static thread_local Watch watch;
  static_cast<void>(&watch);
  cache.is_watched = true;
}

void* TakeFromOthers() {
  if (cache.is_closed) return ::operator new(BlockPool::kBlockBytes, std::nothrow);
  if (!cache.is_watched) WatchThisThread();
  Block* const batch =
      cache.full != nullptr ? std::exchange(cache.full, nullptr) : Depot::Get().TakeBatch();
  if (batch == nullptr) return ::operator new(BlockPool::kBlockBytes, std::nothrow);
  cache.open = batch->next;
  cache.open_count = kBatch - 1;
  return batch;
}

// Makes room for one more block. false: the thread is ending.
bool PassOn() {
  if (cache.is_closed) return false;
  if (!cache.is_watched) WatchThisThread();
  if (cache.open_count < kBatch) return true;
  if (cache.full != nullptr && !Depot::Get().GiveBatch(cache.full)) Free(cache.full);
  cache.full = std::exchange(cache.open, nullptr);
  cache.open_count = 0;
  return true;
}

}  // namespace

void* BlockPool::Take() noexcept {
  if (kGivesBackAtOnce) return ::operator new(kBlockBytes, std::nothrow);
  Block* const block = cache.open;
  if (block == nullptr) return TakeFromOthers();
  // Another thread may have had the next one last: what is needed of it comes over meanwhile.
  for (const std::size_t at : {0, 64, 127}) {
    __builtin_prefetch(reinterpret_cast<std::byte*>(block->next) + at, 1);
  }
  cache.open = block->next;
  --cache.open_count;
  return block;
}

void BlockPool::Give(void* memory) noexcept {
  if (kGivesBackAtOnce) return ::operator delete(memory);
  if ((cache.open_count == kBatch || !cache.is_watched || cache.is_closed) && !PassOn()) {
    ::operator delete(memory);
    return;
  }
  cache.open = new (memory) Block{cache.open, nullptr};
  ++cache.open_count;
}

}  // namespace kestrav::Memory
