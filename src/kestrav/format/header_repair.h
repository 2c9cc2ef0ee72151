#ifndef KESTRAV_FORMAT_HEADER_REPAIR_H_
#define KESTRAV_FORMAT_HEADER_REPAIR_H_

#include "kestrav/host/api.h"

namespace kestrav {

// Rebuilds selection, duration and length in the stream header of the log file at `path`, whose
// recording was cut off, from its records and replaces its first 128 bytes by one write; see
// docs/log-format.md. The file must be there, regular and writable, and nobody may write it
// meanwhile.
//
// false: it is not, its header is no log's, its time stamps end before it starts, its start time is
// 0, or the system failed. The file is then as it was. Does not throw; any thread.
[[nodiscard]] KESTRAV_API bool RepairBinaryLogStreamHeader(const wchar_t* path);

}  // namespace kestrav

#endif  // KESTRAV_FORMAT_HEADER_REPAIR_H_
