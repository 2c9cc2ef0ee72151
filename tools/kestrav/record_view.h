#ifndef KESTRAV_TOOLS_RECORD_VIEW_H_
#define KESTRAV_TOOLS_RECORD_VIEW_H_

#include <cstdint>
#include <string_view>

namespace kestrav::tool {

// A record as it was read; its payload belongs to the reader.
struct RecordView {
  std::uint64_t index = 0;  // how many whole records stand before it
  std::uint16_t client_id = 0;
  std::uint16_t data_id = 0;
  std::uint32_t time_stamp = 0;  // milliseconds of the recorder's clock
  std::string_view payload;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_RECORD_VIEW_H_
