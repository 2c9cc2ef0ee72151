#ifndef KESTRAV_TYPES_CLIENT_ID_SET_H_
#define KESTRAV_TYPES_CLIENT_ID_SET_H_

#include <atomic>
#include <cstdint>

namespace kestrav {

// Client ids below this one can stand in a set, and so be selected.
inline constexpr std::uint16_t kClientIdLimit = 64;

// No id: a client that asks for one, a message without one, and the failure of whatever returns
// one.
inline constexpr std::uint16_t kNoId = 0xFFFF;

// A set of client ids 0 to 63. An id of 64 or more is never in it; adding or removing it does
// nothing.
class ClientIdSet {
 public:
  constexpr ClientIdSet() = default;
  // Bit n of `mask` stands for client id n.
  constexpr explicit ClientIdSet(std::uint64_t mask)
      : words_{static_cast<std::uint32_t>(mask), static_cast<std::uint32_t>(mask >> 32)} {}

  static constexpr std::uint64_t Bit(std::uint16_t id) {
    return id < kClientIdLimit ? std::uint64_t{1} << id : 0;
  }

  constexpr std::uint64_t Mask() const { return words_[0] | std::uint64_t{words_[1]} << 32; }
  constexpr bool Contains(std::uint16_t id) const { return (Mask() & Bit(id)) != 0; }
  constexpr bool IsEmpty() const { return Mask() == 0; }
  constexpr void Add(std::uint16_t id) { *this = ClientIdSet(Mask() | Bit(id)); }
  constexpr void Remove(std::uint16_t id) { *this = ClientIdSet(Mask() & ~Bit(id)); }
  constexpr void Clear() { *this = ClientIdSet(); }

  friend constexpr bool operator==(const ClientIdSet&, const ClientIdSet&) = default;

 private:
  std::uint32_t words_[2] = {0, 0};  // bit n % 32 of word n / 32
};

// The same, for one thread that changes it under its lock while others look without one.
class SharedClientIdSet {
 public:
  ClientIdSet Get() const { return ClientIdSet(mask_.load()); }
  bool Contains(std::uint16_t id) const { return (mask_.load() & ClientIdSet::Bit(id)) != 0; }
  bool IsEmpty() const { return mask_.load() == 0; }
  void Add(std::uint16_t id) { mask_.fetch_or(ClientIdSet::Bit(id)); }
  void Remove(std::uint16_t id) { mask_.fetch_and(~ClientIdSet::Bit(id)); }
  void Clear() { mask_.store(0); }

 private:
  std::atomic<std::uint64_t> mask_{0};
};

}  // namespace kestrav

#endif  // KESTRAV_TYPES_CLIENT_ID_SET_H_
