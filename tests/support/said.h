#ifndef KESTRAV_TESTS_SUPPORT_SAID_H_
#define KESTRAV_TESTS_SUPPORT_SAID_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>

#include "kestrav/format/log_message.h"

namespace kestrav::test {

inline std::string Payload(const ILogMessage& message) {
  if (message.GetDataPointer() == nullptr) return "";
  return std::string(reinterpret_cast<const char*>(message.GetDataPointer()),
                     message.GetDataSize());
}

// What a message says, in a form that compares and prints.
struct Said {
  std::uint16_t client = kNoId;
  std::uint16_t data_id = kNoId;
  std::uint32_t time_ms = 0;
  std::string payload;

  friend bool operator==(const Said&, const Said&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Said& said) {
    return out << said.client << '/' << said.data_id << '@' << said.time_ms << ' '
               << testing::PrintToString(said.payload);
  }
};

inline bool Says(const LogMessage& message, const Said& said) {
  return message.GetClientID() == said.client && message.GetDataID() == said.data_id &&
         message.time_stamp == said.time_ms && message.GetDataSize() == said.payload.size() &&
         std::memcmp(message.GetDataPointer(), said.payload.data(), said.payload.size()) == 0;
}

inline Said WhatSays(const LogMessage& message) {
  return {message.GetClientID(), message.GetDataID(), message.time_stamp, Payload(message)};
}

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_SUPPORT_SAID_H_
