#ifndef KESTRAV_FUZZ_TARGETS_H_
#define KESTRAV_FUZZ_TARGETS_H_

#include <cstdint>
#include <span>

namespace kestrav::fuzz {

using Input = std::span<const std::uint8_t>;

// Each hands bytes that may be anything to one part of the library and ends the process when what
// must hold for all bytes does not. None keeps anything from one call to the next.
void FuzzDecoder(Input log);
void FuzzPassThrough(Input log);
void FuzzRepair(Input log);
void FuzzRecover(Input log);
void FuzzDictionary(Input payload);
void FuzzSettings(Input file);
void FuzzConfiguration(Input file);

struct Target {
  const char* name;
  void (*run)(Input);
};

inline constexpr Target kTargets[] = {
    {"decoder", FuzzDecoder},
    {"pass_through", FuzzPassThrough},
    {"repair", FuzzRepair},
    {"recover", FuzzRecover},
    {"dictionary", FuzzDictionary},
    {"settings", FuzzSettings},
    {"configuration", FuzzConfiguration},
};

}  // namespace kestrav::fuzz

#endif  // KESTRAV_FUZZ_TARGETS_H_
