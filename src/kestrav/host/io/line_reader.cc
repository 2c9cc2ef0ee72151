#include "kestrav/host/io/line_reader.h"

#include <string_view>

#include "kestrav/host/memory/try.h"

namespace kestrav::Io {

LineReader::Result LineReader::Read(std::string& line) noexcept {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  line.clear();
  if (stream_.Remaining() == 0) return Result::kEnd;
  while (stream_.Remaining() > 0) {
    std::uint8_t byte = 0;
    if (!stream_.Read(&byte, 1)) return Result::kFailed;
    if (byte == '\n') break;
    if (!Memory::Try([&] { line.push_back(static_cast<char>(byte)); })) return Result::kFailed;
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  if (!started_ && line.starts_with(kByteOrderMark)) line.erase(0, kByteOrderMark.size());
  started_ = true;
  return Result::kLine;
}

}  // namespace kestrav::Io
