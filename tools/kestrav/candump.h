#ifndef KESTRAV_TOOLS_CANDUMP_H_
#define KESTRAV_TOOLS_CANDUMP_H_

#include <string_view>

namespace kestrav::tool {

// The parts of a line of candump's log format: `(time) interface frame`.
struct CandumpLine {
  std::string_view time;
  std::string_view interface;
  std::string_view frame;
};

// Whether the line is a frame that is recorded as it stands, since it has no form as a classic one:
// of CAN FD, or with the direction behind it.
bool ReadOtherFrame(std::string_view line, CandumpLine& parts);

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_CANDUMP_H_
