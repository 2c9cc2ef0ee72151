#ifndef KESTRAV_HOST_IO_ATOMIC_FILE_H_
#define KESTRAV_HOST_IO_ATOMIC_FILE_H_

#include <string_view>

#include "kestrav/host/text/string.h"

namespace kestrav::Io {

// Makes `content` the whole content of a regular file, so that a crash, a kill or a full disk
// leaves the old content or the new one. A new file gets the mode 0640; an old one keeps its mode
// and, as far as the system allows, its owner; behind a symbolic link it is replaced where it
// stands. The bytes wait in a file beside it of the same name with ".tmp" at the end, which belongs
// to this function: whatever stands there is removed. Writers in one folder wait for each
// other where the file system has locks.
//
// 0: it is done and on the disk; otherwise an errno value.
[[nodiscard]] int ReplaceContent(const String& path, std::string_view content) noexcept;

}  // namespace kestrav::Io

#endif  // KESTRAV_HOST_IO_ATOMIC_FILE_H_
