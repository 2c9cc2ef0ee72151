#include <algorithm>
#include <set>
#include <string>

#include "fuzz/support.h"
#include "kestrav/clients/dictionary_record.h"
#include "support/short_memory.h"

namespace kestrav::fuzz {
namespace {

using InfoClientUtility::ReadDictionaryData;
using InfoClientUtility::WriteDictionaryData;

// A character of a string id takes up to four bytes, and a string may take twice what it needs.
constexpr std::size_t kMemoryOfAByte = 2 * sizeof(wchar_t);
constexpr std::size_t kMemoryOfAnEntry = 256;

// Each byte is one character, as the reader takes them.
String BytesOf(const String& text) {
  const std::string bytes = Text::ToUtf8(text);
  String wide;
  for (const char byte : bytes) wide += static_cast<unsigned char>(byte);
  return wide;
}

// What stands in front of the zeros of a payload.
std::set<String> FieldsOf(Input payload) {
  std::set<String> fields;
  const Input entries = payload.subspan(std::min<std::size_t>(payload.size(), 4));
  for (auto from = entries.begin(); from != entries.end();) {
    const auto end = std::find(from, entries.end(), std::uint8_t{0});
    if (end == entries.end()) break;
    fields.emplace(from, end);
    from = end + 1;
  }
  return fields;
}

// The room is 57 bytes an entry, the count among them: an entry can need more than its share.
bool Fits(const Dictionary& dictionary) {
  std::size_t size = 4;
  for (const auto& [name, id] : dictionary) {
    size += Text::ToUtf8(name).size() + 1 + std::to_string(id).size() + 1;
  }
  return size <= 57 * dictionary.size();
}

// Writes what was read and reads it again.
void WriteBack(const Dictionary& dictionary) {
  Memory::MemBlock payload;
  const bool written = WriteDictionaryData(dictionary, payload);
  Require(written == Fits(dictionary), "a dictionary is written when it fits");
  if (!written) return;
  Require(LittleEndian32(payload.Data()) == dictionary.size(), "the count is that of the entries");
  Dictionary expected;
  for (const auto& [name, id] : dictionary) expected.emplace(BytesOf(name), id);
  Dictionary again;
  Require(ReadDictionaryData(again, payload), "what was written can be read");
  Require(again == expected, "what was written is what is read");
}

}  // namespace

void FuzzDictionary(Input payload) {
  Memory::MemBlock block;
  Require(block.Assign(payload.data(), static_cast<std::uint32_t>(payload.size())),
          "there is memory for the payload");
  Dictionary dictionary;
  const test::LargestAllocation largest;
  const bool read = ReadDictionaryData(dictionary, block);
  Require(largest.Bytes() <= kMemoryOfAByte * (payload.size() + 1) + kMemoryOfAnEntry,
          "no allocation is out of proportion to the payload");
  Require(read || dictionary.empty(), "what cannot be read leaves an empty dictionary");
  if (dictionary.empty()) return;
  const std::set<String> fields = FieldsOf(payload);
  for (const auto& [name, id] : dictionary) {
    Require(!name.empty() && fields.contains(name), "a string id stands in the payload");
  }
  WriteBack(dictionary);
}

}  // namespace kestrav::fuzz
