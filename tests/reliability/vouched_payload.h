#ifndef KESTRAV_TESTS_RELIABILITY_VOUCHED_PAYLOAD_H_
#define KESTRAV_TESTS_RELIABILITY_VOUCHED_PAYLOAD_H_

#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>

namespace kestrav::test {

// A payload that tells who wrote it, the how manieth of its writer it is, and how many messages of
// each writer had been accepted before it was handed over: these must stand in front of it. The
// rest follows from writer and number, so that a wrong byte shows.
struct VouchedPayload {
  static constexpr std::size_t kWriters = 4;
  using Counts = std::array<std::uint32_t, kWriters>;

  std::uint32_t writer = 0;
  std::uint32_t number = 0;
  Counts seen = {};

  // Mostly small, now and then some kilobytes, rarely more than a file stream buffers.
  static std::size_t Size(std::uint32_t writer, std::uint32_t number) {
    const std::uint32_t chance = Mix(writer, number);
    if (chance % 1000 == 0) return 70'000;
    if (chance % 50 == 0) return 1'000 + chance % 7'000;
    return sizeof(VouchedPayload) + chance % 300;
  }

  std::string Encode() const {
    std::string payload(Size(writer, number), '\0');
    std::memcpy(payload.data(), this, sizeof(*this));
    const std::uint32_t salt = Mix(number, writer);
    for (std::size_t i = sizeof(*this); i < payload.size(); ++i) {
      payload[i] = static_cast<char>(salt + i * i);
    }
    return payload;
  }

  // Nothing: no writer has written this.
  static std::optional<VouchedPayload> Decode(const std::string& payload) {
    VouchedPayload result;
    if (payload.size() < sizeof(result)) return std::nullopt;
    std::memcpy(&result, payload.data(), sizeof(result));
    if (result.writer >= kWriters || result.Encode() != payload) return std::nullopt;
    return result;
  }

 private:
  static std::uint32_t Mix(std::uint32_t a, std::uint32_t b) {
    std::uint32_t mixed = a * 0x9E3779B1U ^ (b + 0x7F4A7C15U) * 0x85EBCA6BU;
    mixed ^= mixed >> 15;
    mixed *= 0x2C1B3C6DU;
    return mixed ^ mixed >> 13;
  }
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_RELIABILITY_VOUCHED_PAYLOAD_H_
