#ifndef KESTRAV_TOOLS_PLAY_STATUS_H_
#define KESTRAV_TOOLS_PLAY_STATUS_H_

#include <string>

#include "kestrav/engine/kestrav.h"

namespace kestrav::tool {

// Where a playback is: state, speed, position and length, a bar. It takes fewer than `columns`
// columns, so that it never wraps; what does not fit is left out, the bar before the numbers.
std::string PlayStatus(const IKestrav& engine, int columns);

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_PLAY_STATUS_H_
