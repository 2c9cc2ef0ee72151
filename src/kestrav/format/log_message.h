#ifndef KESTRAV_FORMAT_LOG_MESSAGE_H_
#define KESTRAV_FORMAT_LOG_MESSAGE_H_

#include <cstdint>

#include "kestrav/host/api.h"
#include "kestrav/host/memory/mem_block.h"
#include "kestrav/host/memory/ptr.h"
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
  // An empty message whose memory comes from a pool of the library and goes back there: the quick
  // way for messages that are made by the thousand. Null: memory is short.
  static SmartPtr::Ptr<LogMessage> Create() noexcept;

  LogMessage() {}  // written out: `= default` would fill the small payload with zeros each time
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
  // The same with a payload that the message takes over; `payload` gets the block that it had.
  [[nodiscard]] bool Adopt(std::uint16_t clientId, std::uint16_t dataId, Memory::MemBlock& payload,
                           std::uint32_t timeStamp);

  // The same with up to kInlineBytes that the caller puts where the result points to. Null:
  // refused.
  std::uint8_t* Prepare(std::uint16_t clientId, std::uint16_t dataId, std::uint32_t size,
                        std::uint32_t timeStamp) {
    if (size == 0 || size > kInlineBytes || clientId == kNoId || dataId == kNoId) return nullptr;
    SetFields(clientId, dataId, small_, size, timeStamp);
    return small_;
  }

  void Clear();

  std::uint16_t GetClientID() const override { return client_id_; }
  std::uint16_t GetDataID() const override { return data_id_; }
  std::uint8_t* GetDataPointer() override { return payload_; }
  // Defined in the library, and with it the one virtual table: the compiler guesses by it that a
  // message is a plain one and calls nothing.
  const std::uint8_t* GetDataPointer() const override;
  std::uint32_t GetDataSize() const override { return size_; }

  // A payload up to this size needs no memory of its own.
  static constexpr std::uint32_t kInlineBytes = 96;

 private:
  void SetFields(std::uint16_t client_id, std::uint16_t data_id, std::uint8_t* payload,
                 std::uint32_t size, std::uint32_t time) {
    client_id_ = client_id;
    data_id_ = data_id;
    payload_ = payload;
    size_ = size;
    time_stamp = time;
  }

  // In the order of a record header, so that they are moved as one.
  std::uint16_t client_id_ = kNoId;
  std::uint16_t data_id_ = kNoId;

 public:
  std::uint32_t time_stamp = 0;  // milliseconds of the recorder's clock

 private:
  std::uint32_t size_ = 0;
  std::uint8_t* payload_ = nullptr;  // in one of the two below
  Memory::MemBlock large_;
  std::uint8_t small_[kInlineBytes];
};

}  // namespace kestrav

#endif  // KESTRAV_FORMAT_LOG_MESSAGE_H_
