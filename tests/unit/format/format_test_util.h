#ifndef KESTRAV_TESTS_UNIT_FORMAT_FORMAT_TEST_UTIL_H_
#define KESTRAV_TESTS_UNIT_FORMAT_FORMAT_TEST_UTIL_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kestrav/format/decoder.h"
#include "kestrav/format/log_message.h"
#include "kestrav/host/memory/mem_block.h"
#include "support/said.h"
#include "support/streams.h"

namespace kestrav::test {

inline Memory::MemBlock Block(const Bytes& bytes) {
  Memory::MemBlock block;
  EXPECT_TRUE(block.Assign(bytes.data(), static_cast<std::uint32_t>(bytes.size())));
  return block;
}

inline Bytes Content(const Memory::MemBlock& block) {
  return Bytes(block.Data(), block.Data() + block.Size());
}

// Part of a log, from `from` up to `to`.
inline Bytes Slice(const Bytes& bytes, std::size_t from, std::size_t to) {
  return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(from),
               bytes.begin() + static_cast<std::ptrdiff_t>(to));
}

inline const std::uint8_t* Data(std::string_view text) {
  return reinterpret_cast<const std::uint8_t*>(text.data());
}

inline SmartPtr::Ptr<LogMessage> Message(std::uint16_t client, std::uint16_t data_id,
                                         std::uint32_t time_ms, std::string_view payload) {
  auto message = std::make_shared<LogMessage>();
  EXPECT_TRUE(message->Assign(client, data_id, Data(payload),
                              static_cast<std::uint32_t>(payload.size()), time_ms));
  return message;
}

// A decoder at the first record of a log.
struct OpenLog {
  explicit OpenLog(Bytes bytes)
      : stream(std::make_shared<BytesInputStream>(std::move(bytes))), decoder(stream) {
    EXPECT_TRUE(decoder.Initialize());
  }

  // The records that a walk delivers until one code is not a success, which goes to `last`.
  std::vector<Said> Walk() {
    std::vector<Said> all;
    LogMessage message;
    while ((last = decoder.GetNextLogRecord(message)) == kSuccess) all.push_back(WhatSays(message));
    return all;
  }
  std::vector<Said> WalkSelected(std::uint64_t selection) {
    decoder.SetPlaybackSelection(ClientIdSet(selection));
    std::vector<Said> all;
    LogMessage message;
    while ((last = decoder.GetNextPlaybackMessage(message)) == kSuccess) {
      all.push_back(WhatSays(message));
    }
    return all;
  }

  SmartPtr::Ptr<BytesInputStream> stream;
  BinaryDecoder decoder;
  ResultCode last = kSuccess;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_UNIT_FORMAT_FORMAT_TEST_UTIL_H_
