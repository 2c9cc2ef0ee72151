#ifndef KESTRAV_TESTS_SUPPORT_MESSAGES_H_
#define KESTRAV_TESTS_SUPPORT_MESSAGES_H_

#include <cstdint>
#include <memory>
#include <string_view>

#include "kestrav/format/log_message.h"

namespace kestrav::test {

// A message to be recorded; `payload` must not be empty.
inline std::shared_ptr<LogMessage> MakeMessage(std::uint16_t client_id, std::uint16_t data_id,
                                               std::string_view payload,
                                               std::uint32_t time_stamp = 0) {
  auto message = std::make_shared<LogMessage>();
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(payload.data());
  const bool assigned = message->Assign(client_id, data_id, bytes,
                                        static_cast<std::uint32_t>(payload.size()), time_stamp);
  return assigned ? message : nullptr;
}

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_SUPPORT_MESSAGES_H_
