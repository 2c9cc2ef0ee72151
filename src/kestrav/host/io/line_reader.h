#ifndef KESTRAV_HOST_IO_LINE_READER_H_
#define KESTRAV_HOST_IO_LINE_READER_H_

#include <cstdint>
#include <string>

#include "kestrav/host/api.h"
#include "kestrav/host/io/stream.h"

namespace kestrav::Io {

// Reads a UTF-8 text line by line from the position of a stream on, which must outlive it. LF and
// CR LF end a line, the last one may have no end. A byte order mark at the start is no text.
class KESTRAV_API LineReader {
 public:
  explicit LineReader(IInputStream& stream) : stream_(stream) {}

  enum class Result : std::uint8_t { kLine, kEnd, kFailed };

  // kLine: `line` holds the bytes of the next line without its end. kFailed: the stream cannot be
  // read or memory is short.
  [[nodiscard]] Result Read(std::string& line) noexcept;

 private:
  IInputStream& stream_;
  bool started_ = false;
};

}  // namespace kestrav::Io

#endif  // KESTRAV_HOST_IO_LINE_READER_H_
