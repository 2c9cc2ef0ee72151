#include "kestrav/format/crypter.h"

#include <cstdlib>
#include <cstring>

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

void Crypter::ChangeKey(std::uint8_t& out, std::uint32_t index) const {
  out = static_cast<std::uint8_t>(key_ + index);
  if (out == 0) out = 1;
}

void Crypter::ModifyData(std::uint8_t* data, std::uint8_t key, std::uint32_t size) {
  const std::uint64_t wide_key = std::uint64_t{key} * 0x0101010101010101;
  std::uint32_t done = 0;
  for (; size - done >= sizeof(wide_key); done += sizeof(wide_key)) {
    std::uint64_t word;
    std::memcpy(&word, data + done, sizeof(word));
    word ^= wide_key;
    std::memcpy(data + done, &word, sizeof(word));
  }
  for (; done < size; ++done) data[done] ^= key;
}

bool Crypter::ChangeKeyAndData(std::uint8_t* data, std::uint32_t index, std::uint32_t size) const {
  if (!initialised_) return false;
  std::uint8_t key = 0;
  ChangeKey(key, index);
  ModifyData(data, key, size);
  return true;
}

}  // namespace kestrav
