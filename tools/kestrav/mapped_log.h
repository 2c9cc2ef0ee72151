#ifndef KESTRAV_TOOLS_MAPPED_LOG_H_
#define KESTRAV_TOOLS_MAPPED_LOG_H_

#include <cstdint>
#include <span>
#include <string>

#include "kestrav/host/io/mapped_file_stream.h"
#include "os.h"

namespace kestrav::tool {

// A file where the system keeps it in memory. When it can no longer be read, because it was cut
// off or its medium pulled out, the program ends with a line that says so. At most one at a time.
class MappedLog {
 public:
  // Throws `Failure` when the file cannot be opened.
  explicit MappedLog(const std::string& path);

  std::span<const std::uint8_t> Bytes() { return stream_.View(stream_.Remaining()); }

 private:
  const EndOnBusError guard_;
  Io::MappedFileInputStream stream_;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_MAPPED_LOG_H_
