#ifndef KESTRAV_PLAYBACK_CLIENT_DATA_SEARCH_H_
#define KESTRAV_PLAYBACK_CLIENT_DATA_SEARCH_H_

#include <cstdint>

#include "kestrav/format/decoder.h"
#include "kestrav/host/memory/mem_block.h"

// Questions about a log that is not being played. Both leave the read position at the start of the
// stream, whatever they answer.

namespace kestrav {

// false: no log, or its first record cannot be read. The outputs are then as far as they were
// known.
[[nodiscard]] bool ReadPlaybackAttributes(BinaryDecoder& decoder, std::uint32_t& lengthMs,
                                          std::uint32_t& size, std::uint16_t& recordedClientsMask,
                                          Memory::MemBlock& data, std::uint16_t clientId);

// false: no log, an offset beyond its length, no such record in time, or it cannot be read.
[[nodiscard]] bool SearchClientData(BinaryDecoder& decoder, Memory::MemBlock& data,
                                    std::uint16_t clientId, std::uint16_t dataId,
                                    std::uint32_t offsetScnds);

// Whether the log is `offsetScnds` long; the product wraps at 32 bits.
inline bool IsOffsetInLog(const BinaryDecoder& decoder, std::uint32_t offsetScnds) {
  return 1000 * offsetScnds <= decoder.StreamHeader().recording_duration;
}

}  // namespace kestrav

#endif  // KESTRAV_PLAYBACK_CLIENT_DATA_SEARCH_H_
