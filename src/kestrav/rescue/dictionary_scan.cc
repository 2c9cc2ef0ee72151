#include "kestrav/rescue/dictionary_scan.h"

#include <algorithm>

#include "kestrav/host/memory/byte_order.h"
#include "kestrav/types/client_id_set.h"

namespace kestrav::rescue {
namespace {

constexpr std::size_t kCountSize = 4;
constexpr std::size_t kMostDigits = 5;

// Takes the bytes up to the next 0, which is written as `key`. Empty: there are none.
std::span<const std::uint8_t> TakeField(std::span<const std::uint8_t>& rest, std::uint8_t key) {
  const auto end = std::find(rest.begin(), rest.end(), key);
  if (end == rest.end()) return {};
  const auto field = rest.first(static_cast<std::size_t>(end - rest.begin()));
  rest = rest.subspan(field.size() + 1);
  return field;
}

bool ReadId(std::span<const std::uint8_t> digits, std::uint8_t key, std::uint32_t& id) {
  if (digits.empty() || digits.size() > kMostDigits) return false;
  id = 0;
  for (const std::uint8_t byte : digits) {
    const auto digit = static_cast<std::uint8_t>((byte ^ key) - '0');
    if (digit > 9) return false;
    id = 10 * id + digit;
  }
  return id < kNoId;
}

}  // namespace

bool ScanDictionary(std::span<const std::uint8_t> payload, std::uint8_t key,
                    std::uint64_t& client_ids) {
  if (payload.size() <= kCountSize) return false;
  std::uint8_t count_bytes[kCountSize];
  for (std::size_t i = 0; i < kCountSize; ++i) count_bytes[i] = payload[i] ^ key;
  const auto count = Memory::GetLittleEndian<std::uint32_t>(count_bytes);
  payload = payload.subspan(kCountSize);
  std::uint64_t ids = 0;
  std::uint32_t entries = 0;
  for (; !payload.empty(); ++entries) {
    std::uint32_t id = 0;
    if (TakeField(payload, key).empty() || !ReadId(TakeField(payload, key), key, id)) return false;
    ids |= ClientIdSet::Bit(static_cast<std::uint16_t>(id));
  }
  if (entries != count) return false;
  client_ids |= ids;
  return true;
}

}  // namespace kestrav::rescue
