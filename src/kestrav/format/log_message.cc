#include "kestrav/format/log_message.h"

#include <cstring>
#include <utility>

#include "kestrav/host/memory/pool.h"

namespace kestrav {

SmartPtr::Ptr<LogMessage> LogMessage::Create() noexcept { return Memory::MakePooled<LogMessage>(); }

LogMessage::LogMessage(LogMessage&& other) noexcept { *this = std::move(other); }

LogMessage& LogMessage::operator=(LogMessage&& other) noexcept {
  if (this == &other) return *this;
  const bool is_small = other.payload_ == other.small_;
  if (is_small) std::memcpy(small_, other.small_, other.size_);
  large_ = std::move(other.large_);
  SetFields(other.client_id_, other.data_id_, is_small ? small_ : other.payload_, other.size_,
            other.time_stamp);
  other.SetFields(kNoId, kNoId, nullptr, 0, 0);
  return *this;
}

bool LogMessage::AssignLogMessage(const std::uint16_t& clientId, const std::uint16_t& dataId,
                                  const std::uint8_t* data, std::uint32_t size,
                                  const std::uint32_t& timeStamp) {
  // `data` and the other arguments may be this message's own, so nothing is let go of before the
  // copy is made.
  if (size <= kInlineBytes) {
    if (size > 0) std::memmove(small_, data, size);
    SetFields(clientId, dataId, size > 0 ? small_ : nullptr, size, timeStamp);
    return true;
  }
  if (!large_.Assign(data, size)) {
    Clear();
    return false;
  }
  SetFields(clientId, dataId, large_.Data(), size, timeStamp);
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

bool LogMessage::Adopt(std::uint16_t clientId, std::uint16_t dataId, Memory::MemBlock& payload,
                       std::uint32_t timeStamp) {
  if (payload.IsEmpty() || clientId == kNoId || dataId == kNoId) return false;
  std::swap(large_, payload);
  SetFields(clientId, dataId, large_.Data(), large_.Size(), timeStamp);
  return true;
}

const std::uint8_t* LogMessage::GetDataPointer() const { return payload_; }

void LogMessage::Clear() {
  large_.Clear();
  SetFields(kNoId, kNoId, nullptr, 0, 0);
}

}  // namespace kestrav
