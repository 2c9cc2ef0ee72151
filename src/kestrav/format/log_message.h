#ifndef KESTRAV_FORMAT_LOG_MESSAGE_H_
#define KESTRAV_FORMAT_LOG_MESSAGE_H_

#include <cstdint>

#include "kestrav/host/api.h"
#include "kestrav/host/memory/mem_block.h"
#include "kestrav/types/client_id_set.h"

namespace kestrav {

// One client's message. The payload pointers are null while the message is empty.
class KESTRAV_API ILogMessage {
 public:
  virtual ~ILogMessage() = default;
  virtual std::uint16_t GetClientID() const = 0;
  virtual std::uint16_t GetDataID() const = 0;
  // Writable, since recording scrambles the payload where it stands.
  virtual std::uint8_t* GetDataPointer() = 0;
  virtual const std::uint8_t* GetDataPointer() const = 0;
  virtual std::uint32_t GetDataSize() const = 0;
};

// A message with a private copy of its payload: either empty (ids kNoId, size 0) or filled (valid
// ids, size above 0). Not thread-safe; it is handed between threads through a shared pointer. After
// it was recorded with scrambling on, its payload holds the scrambled bytes.
class KESTRAV_API LogMessage : public ILogMessage {
 public:
  LogMessage() = default;
  LogMessage(LogMessage&& other) noexcept;
  LogMessage& operator=(LogMessage&& other) noexcept;

  // Fills the message without looking at the ids; `data` holds `size` bytes.
  // false: memory is short and the message is empty.
  [[nodiscard]] bool AssignLogMessage(const std::uint16_t& clientId, const std::uint16_t& dataId,
                                      const std::uint8_t* data, std::uint32_t size,
                                      const std::uint32_t& timeStamp);

  // false: `data` is null, `size` is 0 or an id is kNoId, and the message is unchanged; or memory
  // is short, and it is empty.
  [[nodiscard]] bool Assign(const std::uint16_t& clientId, const std::uint16_t& dataId,
                            const std::uint8_t* data, std::uint32_t size, std::uint32_t timeStamp);
  // A deep copy; false as above.
  [[nodiscard]] bool Assign(const LogMessage& source);

  void Clear();

  std::uint16_t GetClientID() const override { return client_id_; }
  std::uint16_t GetDataID() const override { return data_id_; }
  std::uint8_t* GetDataPointer() override { return payload_.Data(); }
  const std::uint8_t* GetDataPointer() const override { return payload_.Data(); }
  std::uint32_t GetDataSize() const override { return size_; }

  std::uint32_t time_stamp = 0;  // milliseconds of the recorder's clock

 private:
  std::uint16_t client_id_ = kNoId;
  std::uint16_t data_id_ = kNoId;
  Memory::MemBlock payload_;
  std::uint32_t size_ = 0;
};

}  // namespace kestrav

#endif  // KESTRAV_FORMAT_LOG_MESSAGE_H_
