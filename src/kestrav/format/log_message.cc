#include "kestrav/format/log_message.h"

#include <utility>

namespace kestrav {

LogMessage::LogMessage(LogMessage&& other) noexcept { *this = std::move(other); }

LogMessage& LogMessage::operator=(LogMessage&& other) noexcept {
  time_stamp = std::exchange(other.time_stamp, 0);
  client_id_ = std::exchange(other.client_id_, kNoId);
  data_id_ = std::exchange(other.data_id_, kNoId);
  payload_ = std::move(other.payload_);
  size_ = std::exchange(other.size_, 0);
  return *this;
}

bool LogMessage::AssignLogMessage(const std::uint16_t& clientId, const std::uint16_t& dataId,
                                  const std::uint8_t* data, std::uint32_t size,
                                  const std::uint32_t& timeStamp) {
  // The arguments may be this message's own fields, so they outlive the clearing as copies.
  const std::uint16_t client_id = clientId;
  const std::uint16_t data_id = dataId;
  const std::uint32_t time = timeStamp;
  Memory::MemBlock payload;
  const bool copied = payload.Assign(data, size);
  Clear();
  if (!copied) return false;
  payload_ = std::move(payload);
  size_ = size;
  client_id_ = client_id;
  data_id_ = data_id;
  time_stamp = time;
  return true;
}

bool LogMessage::Assign(const std::uint16_t& clientId, const std::uint16_t& dataId,
                        const std::uint8_t* data, std::uint32_t size, std::uint32_t timeStamp) {
  if (data == nullptr || size == 0 || clientId == kNoId || dataId == kNoId) return false;
  return AssignLogMessage(clientId, dataId, data, size, timeStamp);
}

bool LogMessage::Assign(const LogMessage& source) {
  return Assign(source.client_id_, source.data_id_, source.GetDataPointer(), source.GetDataSize(),
                source.time_stamp);
}

void LogMessage::Clear() {
  payload_.Clear();
  size_ = 0;
  client_id_ = kNoId;
  data_id_ = kNoId;
  time_stamp = 0;
}

}  // namespace kestrav
