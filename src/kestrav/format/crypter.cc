#include "kestrav/format/crypter.h"

#include <cstdlib>

#include "kestrav/format/xor_copy.h"
#include "kestrav/host/time/source.h"

namespace kestrav {

bool Crypter::Initialize() {
  if (!initialised_) {
    std::uint32_t now_ms = 0;
    initialised_ = Time::Source().ReadMs(now_ms);
    if (initialised_) std::srand(now_ms);
  }
  if (!initialised_) return false;
  key_ = static_cast<std::uint8_t>(std::rand() & 0xFF);
  if (key_ == 0) key_ = 1;
  return true;
}

bool Crypter::Initialize(std::uint8_t key) {
  initialised_ = key != 0;
  if (initialised_) key_ = key;
  return initialised_;
}

void Crypter::ModifyData(std::uint8_t* data, std::uint8_t key, std::uint32_t size) {
  static_cast<void>(XorCopy(data, data, size, key));
}

bool Crypter::ChangeKeyAndData(std::uint8_t* data, std::uint32_t index, std::uint32_t size) const {
  if (!initialised_) return false;
  ModifyData(data, RecordKey(index), size);
  return true;
}

}  // namespace kestrav
