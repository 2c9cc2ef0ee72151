#ifndef KESTRAV_RECORDING_MESSAGE_QUEUE_H_
#define KESTRAV_RECORDING_MESSAGE_QUEUE_H_

#include <array>
#include <cstdint>
#include <memory>
#include <utility>

#include "kestrav/format/log_message.h"
#include "kestrav/host/memory/ptr.h"

namespace kestrav {

// Messages in the order in which they came. It grows by the block of many, so that a message rarely
// costs memory, and gives the blocks back when they are empty. For one thread at a time.
class MessageQueue {
 public:
  static constexpr std::uint32_t kBlockMessages = 1022;  // a block is 16 KiB

  MessageQueue() = default;
  MessageQueue(const MessageQueue&) = delete;
  MessageQueue& operator=(const MessageQueue&) = delete;
  ~MessageQueue() { Clear(); }

  bool IsEmpty() const { return first_ == nullptr; }

  // false: memory is short, and `message` is as before.
  [[nodiscard]] bool Push(SmartPtr::Ptr<LogMessage>&& message) noexcept {
    if ((last_ == nullptr || last_->count == kBlockMessages) && !Grow()) return false;
    // The block was with the thread that emptied it: the next line of it comes over meanwhile.
    __builtin_prefetch(&last_->messages[last_->count] + 8, 1);
    last_->messages[last_->count++] = std::move(message);
    return true;
  }

  // Hands every message to `use`, lets go of it, and leaves the queue empty.
  template <class Use>
  void Drain(Use&& use) {
    while (first_ != nullptr) {
      Block& block = *first_;
      for (std::uint32_t i = 0; i < block.count; ++i) {
        // Their bytes are still with the threads that made them.
        Prefetch(block.messages[(i + kAhead) % kBlockMessages].get());
        use(block.messages[i]);
        block.messages[i].reset();
      }
      DropFirst();
    }
  }

  void Clear() {
    Drain([](const SmartPtr::Ptr<LogMessage>&) {});
  }

  void Swap(MessageQueue& other) noexcept {
    std::swap(first_, other.first_);
    std::swap(last_, other.last_);
    std::swap(spare_, other.spare_);
  }

 private:
  static constexpr std::uint32_t kAhead = 4;

  // The fields of a message and the start of a small payload, which recording scrambles.
  static void Prefetch(const LogMessage* message) {
    constexpr std::size_t kLine = 64;
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(message);
    if (!bytes) return;
    __builtin_prefetch(bytes, 1);
    __builtin_prefetch(bytes + kLine, 1);
  }

  struct Block {
    std::array<SmartPtr::Ptr<LogMessage>, kBlockMessages> messages;
    std::unique_ptr<Block> next;
    std::uint32_t count = 0;
  };

  bool Grow() noexcept;
  void DropFirst() noexcept;

  std::unique_ptr<Block> first_;
  Block* last_ = nullptr;
  std::unique_ptr<Block> spare_;  // the one that was emptied last
};

}  // namespace kestrav

#endif  // KESTRAV_RECORDING_MESSAGE_QUEUE_H_
