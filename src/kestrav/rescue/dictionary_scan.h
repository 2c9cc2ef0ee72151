#ifndef KESTRAV_RESCUE_DICTIONARY_SCAN_H_
#define KESTRAV_RESCUE_DICTIONARY_SCAN_H_

#include <cstdint>
#include <span>

namespace kestrav::rescue {

// Whether `payload`, each byte XORed with `key`, is a dictionary as the recorder writes it: so many
// entries as its count says, each a name and a client id in decimal digits. Adds the ids below 64
// to `client_ids` (bit n: client id n). Allocates nothing.
bool ScanDictionary(std::span<const std::uint8_t> payload, std::uint8_t key,
                    std::uint64_t& client_ids);

}  // namespace kestrav::rescue

#endif  // KESTRAV_RESCUE_DICTIONARY_SCAN_H_
