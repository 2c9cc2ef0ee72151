#ifndef KESTRAV_FORMAT_CRYPTER_H_
#define KESTRAV_FORMAT_CRYPTER_H_

#include <cstdint>

#include "kestrav/host/api.h"

namespace kestrav {

// Makes recorded bytes unreadable at a glance: XOR with one key byte a record, derived from the
// stream's key byte and the record index. It hides nothing from a person who wants to read them.
class KESTRAV_API Crypter {
 public:
  Crypter() = default;
  virtual ~Crypter() = default;

  // A random key, never 0. false: the clock that seeds the generator cannot be read.
  [[nodiscard]] bool Initialize();
  // A given key; 0 switches the scrambler off. Whether it is on.
  bool Initialize(std::uint8_t key);

  // 0 while the scrambler is off.
  std::uint8_t GetKey() const { return initialised_ ? key_ : 0; }
  void ResetKey() { key_ = 0; }

  // The key byte of the record `index`, never 0.
  void ChangeKey(std::uint8_t& out, std::uint32_t index) const {
    out = static_cast<std::uint8_t>(key_ + index);
    if (out == 0) out = 1;
  }
  // The same, and 0, which changes no byte, while the scrambler is off.
  std::uint8_t RecordKey(std::uint32_t index) const {
    std::uint8_t key = 0;
    if (initialised_) ChangeKey(key, index);
    return key;
  }
  static void ModifyData(std::uint8_t* data, std::uint8_t key, std::uint32_t size);

  // Scrambles, or unscrambles, `size` bytes of the record `index`. false: the scrambler is off and
  // the bytes are as before.
  bool ChangeKeyAndData(std::uint8_t* data, std::uint32_t index, std::uint32_t size) const;
  bool EncryptData(std::uint8_t* data, std::uint32_t index, std::uint32_t size) const {
    return ChangeKeyAndData(data, index, size);
  }
  bool DecryptData(std::uint8_t* data, std::uint32_t index, std::uint32_t size) const {
    return ChangeKeyAndData(data, index, size);
  }

 private:
  std::uint8_t key_ = 0;
  bool initialised_ = false;
};

}  // namespace kestrav

#endif  // KESTRAV_FORMAT_CRYPTER_H_
