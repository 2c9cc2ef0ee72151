#include "kestrav/recording/message_queue.h"

#include <new>
#include <utility>

namespace kestrav {

bool MessageQueue::Grow() noexcept {
  std::unique_ptr<Block> block = std::move(spare_);
  if (!block) block.reset(new (std::nothrow) Block);
  if (!block) return false;
  Block* const added = block.get();
  (last_ != nullptr ? last_->next : first_) = std::move(block);
  last_ = added;
  return true;
}

void MessageQueue::DropFirst() noexcept {
  std::unique_ptr<Block> next = std::move(first_->next);
  first_->count = 0;
  spare_ = std::move(first_);
  first_ = std::move(next);
  if (!first_) last_ = nullptr;
}

}  // namespace kestrav
