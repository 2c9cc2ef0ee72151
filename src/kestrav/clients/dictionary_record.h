#ifndef KESTRAV_CLIENTS_DICTIONARY_RECORD_H_
#define KESTRAV_CLIENTS_DICTIONARY_RECORD_H_

#include <cstdint>
#include <map>

#include "kestrav/host/api.h"
#include "kestrav/host/memory/mem_block.h"
#include "kestrav/host/text/string.h"

namespace kestrav {

// Client string id to client id, in ascending code-point order.
using Dictionary = std::map<String, std::uint16_t>;

inline constexpr std::uint16_t kInfoClientId = 12;
inline constexpr std::uint16_t kDictionaryDataId = 1200;
inline constexpr std::uint16_t kExtendedSelectionDataId = 134;

namespace InfoClientUtility {

// The payload of a dictionary record; its bytes are described in docs/log-format.md.
// false: the dictionary is empty or holds an empty string id, the entries need more than 57 bytes
// each together, or memory is short; `payload` is then undefined.
[[nodiscard]] KESTRAV_API bool WriteDictionaryData(const Dictionary& dictionary,
                                                   Memory::MemBlock& payload);

// Reads such a payload. One character a byte: only ASCII string ids come back as they were.
// false: there is nothing behind the count, a string id is empty, an id is no number, or memory is
// short; `dictionary` is then empty.
[[nodiscard]] KESTRAV_API bool ReadDictionaryData(Dictionary& dictionary,
                                                  const Memory::MemBlock& payload);

}  // namespace InfoClientUtility
}  // namespace kestrav

#endif  // KESTRAV_CLIENTS_DICTIONARY_RECORD_H_
