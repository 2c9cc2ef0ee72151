#ifndef KESTRAV_CLIENTS_SLOT_MAP_H_
#define KESTRAV_CLIENTS_SLOT_MAP_H_

#include <cstddef>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kestrav/host/memory/try.h"

namespace kestrav {

// A hash map that is walked in slot order: the order of insertion, where an entry takes the slot of
// the one erased last. Operations that grow it report short memory by their result.
template <class Key, class Value>
class SlotMap {
 public:
  // false: the key is there already, or memory is short; nothing changed.
  [[nodiscard]] bool Insert(const Key& key, Value value) {
    if (Find(key) != nullptr) return false;
    return Memory::Try([&] {
      // Room for the slot's release is made here, so that erasing needs no memory.
      const bool reuse = !free_.empty();
      if (!reuse) slots_.reserve(GrownCapacity());
      free_.reserve(slots_.capacity());
      Slot entry(Entry{key, std::move(value)});
      const std::size_t slot = reuse ? free_.back() : slots_.size();
      index_.emplace(key, slot);
      if (reuse) {
        slots_[slot] = std::move(entry);
        free_.pop_back();
      } else {
        slots_.push_back(std::move(entry));
      }
    });
  }

  bool Erase(const Key& key) {
    const auto found = index_.find(key);
    if (found == index_.end()) return false;
    slots_[found->second].reset();
    free_.push_back(found->second);
    index_.erase(found);
    return true;
  }

  void Clear() {
    index_.clear();
    slots_.clear();
    free_.clear();
  }

  Value* Find(const Key& key) { return const_cast<Value*>(std::as_const(*this).Find(key)); }
  const Value* Find(const Key& key) const {
    const auto found = index_.find(key);
    return found == index_.end() ? nullptr : &slots_[found->second]->value;
  }

  std::size_t Size() const { return index_.size(); }

  // Calls `visit(key, value)` in slot order until it answers false; whether it never did.
  template <class Visit>
  bool ForEach(Visit&& visit) const {
    for (const Slot& slot : slots_) {
      if (slot && !visit(slot->key, slot->value)) return false;
    }
    return true;
  }

 private:
  struct Entry {
    Key key;
    Value value;
  };
  using Slot = std::optional<Entry>;

  std::size_t GrownCapacity() const {
    return slots_.size() < slots_.capacity() ? slots_.capacity() : 2 * slots_.size() + 8;
  }

  std::unordered_map<Key, std::size_t> index_;
  std::vector<Slot> slots_;
  std::vector<std::size_t> free_;
};

}  // namespace kestrav

#endif  // KESTRAV_CLIENTS_SLOT_MAP_H_
