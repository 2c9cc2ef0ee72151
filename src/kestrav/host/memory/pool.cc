#include "kestrav/host/memory/pool.h"

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <utility>

#include "kestrav/host/sanitizer.h"

namespace kestrav::Memory {
namespace {

constexpr std::uint32_t kBatch = 256;

// The address sanitizer sees what is used after it was given back only if it is really given back.
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
    return batches_ != nullptr ? std::exchange(batches_, batches_->next_batch) : nullptr;
  }

  void GiveBatch(Block* batch) {
    if (batch == nullptr) return;
    const std::lock_guard lock(mutex_);
    batch->next_batch = batches_;
    batches_ = batch;
  }

 private:
  static void* Memory() {
    alignas(Depot) static std::byte memory[sizeof(Depot)];
    return memory;
  }

  std::mutex mutex_;
  Block* batches_ = nullptr;
};

// A batch at once: block by block the system's allocator would ask for a page at a time.
Block* NewBatch() {
  constexpr std::size_t kBytes = BlockPool::kBlockBytes;
  auto* const memory = static_cast<std::byte*>(::operator new(kBatch* kBytes, std::nothrow));
  if (memory == nullptr) return nullptr;
  Block* batch = nullptr;
  for (std::size_t i = kBatch; i-- > 0;) batch = new (memory + i * kBytes) Block{batch, nullptr};
  return batch;
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

// Lets go of the thread's blocks at its end. A batch may be short: it is used up the sooner.
struct Watch {
  ~Watch() {
    cache.is_closed = true;
    Depot::Get().GiveBatch(std::exchange(cache.open, nullptr));
    Depot::Get().GiveBatch(std::exchange(cache.full, nullptr));
    cache.open_count = 0;
  }
};

void WatchThisThread() {
  static thread_local Watch watch;
  static_cast<void>(&watch);
  cache.is_watched = true;
}

void* TakeFromOthers() {
  if (!cache.is_closed && !cache.is_watched) WatchThisThread();
  Block* batch = std::exchange(cache.full, nullptr);
  if (batch == nullptr) batch = Depot::Get().TakeBatch();
  if (batch == nullptr) batch = NewBatch();
  if (batch == nullptr) return nullptr;
  if (cache.is_closed) {
    Depot::Get().GiveBatch(batch->next);
    return batch;
  }
  cache.open = batch->next;
  cache.open_count = kBatch - 1;
  return batch;
}

// Makes room for one more block. false: the thread is ending.
bool PassOn() {
  if (cache.is_closed) return false;
  if (!cache.is_watched) WatchThisThread();
  if (cache.open_count < kBatch) return true;
  Depot::Get().GiveBatch(cache.full);
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
  for (const std::size_t at : {0U, 64U, 127U}) {
    __builtin_prefetch(reinterpret_cast<std::byte*>(block->next) + at, 1);
  }
  cache.open = block->next;
  --cache.open_count;
  return block;
}

void BlockPool::Give(void* memory) noexcept {
  if (kGivesBackAtOnce) return ::operator delete(memory);
  if ((cache.open_count == kBatch || !cache.is_watched || cache.is_closed) && !PassOn()) {
    Depot::Get().GiveBatch(new (memory) Block{nullptr, nullptr});
    return;
  }
  cache.open = new (memory) Block{cache.open, nullptr};
  ++cache.open_count;
}

}  // namespace kestrav::Memory
