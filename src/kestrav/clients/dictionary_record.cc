#include "kestrav/clients/dictionary_record.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <span>
#include <string>
#include <utility>

#include "kestrav/host/io/memory_stream.h"
#include "kestrav/host/memory/byte_order.h"
#include "kestrav/host/memory/try.h"
#include "kestrav/host/text/integer.h"

namespace kestrav::InfoClientUtility {
namespace {

constexpr std::uint32_t kCountSize = 4;
// The longest entry of one-byte characters: 50 of them, a zero, five digits, a zero.
constexpr std::uint32_t kEntryRoom = 57;

bool WriteField(Io::IOutputStream& out, const char* text, std::size_t size) {
  return out.Write(reinterpret_cast<const std::uint8_t*>(text), static_cast<std::uint32_t>(size));
}

bool WriteEntry(Io::IOutputStream& out, const String& string_id, std::uint16_t id) {
  if (string_id.empty()) return false;
  std::string name;
  if (!Memory::Try([&] { name = Text::ToUtf8(string_id); })) return false;
  std::array<char, 6> digits{};  // the zero behind the digits is part of the field
  const char* const end = std::to_chars(digits.begin(), digits.end() - 1, id).ptr;
  return WriteField(out, name.c_str(), name.size() + 1) &&
         WriteField(out, digits.data(), static_cast<std::size_t>(end - digits.data()) + 1);
}

// Takes the field up to the next zero byte off `bytes`. false: no zero is left, and nothing is
// taken.
bool TakeField(std::span<const std::uint8_t>& bytes, String& field) {
  const auto end = std::find(bytes.begin(), bytes.end(), std::uint8_t{0});
  if (end == bytes.end()) return false;
  field.assign(bytes.begin(), end);
  bytes = bytes.subspan(field.size() + 1);
  return true;
}

void ReadEntries(Dictionary& dictionary, std::span<const std::uint8_t> bytes, bool& valid) {
  String string_id;
  String id_text;
  while (valid && TakeField(bytes, string_id)) {
    std::uint32_t id = 0;
    valid = !string_id.empty();
    if (!valid || !TakeField(bytes, id_text)) return;
    valid = Text::ReadUnsigned(id_text, id);
    if (valid) dictionary.emplace(std::move(string_id), static_cast<std::uint16_t>(id));
  }
}

}  // namespace

bool WriteDictionaryData(const Dictionary& dictionary, Memory::MemBlock& payload) {
  if (dictionary.empty() ||
      dictionary.size() > std::numeric_limits<std::uint32_t>::max() / kEntryRoom) {
    return false;
  }
  const auto count = static_cast<std::uint32_t>(dictionary.size());
  if (!payload.Resize(count * kEntryRoom)) return false;
  Io::MemoryOutputStream out(payload);
  std::array<std::uint8_t, kCountSize> count_bytes;
  Memory::PutLittleEndian(count_bytes.data(), count);
  if (!out.Write(count_bytes.data(), kCountSize)) return false;
  for (const auto& [string_id, id] : dictionary) {
    if (!WriteEntry(out, string_id, id)) return false;
  }
  return payload.Resize(out.Position());
}

bool ReadDictionaryData(Dictionary& dictionary, const Memory::MemBlock& payload) {
  dictionary.clear();
  bool valid = payload.Size() > kCountSize;
  if (!valid) return false;
  const std::span<const std::uint8_t> entries(payload.Data() + kCountSize,
                                              payload.Size() - kCountSize);
  const bool stored = Memory::Try([&] { ReadEntries(dictionary, entries, valid); });
  if (stored && valid) return true;
  dictionary.clear();
  return false;
}

}  // namespace kestrav::InfoClientUtility
