#ifndef KESTRAV_TESTS_RELIABILITY_FILE_WATCH_H_
#define KESTRAV_TESTS_RELIABILITY_FILE_WATCH_H_

#include <cstddef>
#include <cstdint>
#include <span>

namespace kestrav::test {

// Is told of every pwrite, ftruncate and fdatasync of this process, on the thread that calls it,
// before and after the system does.
class FileWatch {
 public:
  virtual ~FileWatch() = default;
  virtual void OnWriteBegin() {}
  // `written`: the bytes that the system has taken; empty when it refused.
  virtual void OnWriteEnd(std::uint64_t /*at*/, std::span<const std::uint8_t> /*written*/) {}
  virtual void OnTruncated(std::uint64_t /*size*/) {}
  virtual void OnSyncBegin() {}
  virtual void OnSyncEnd() {}
};

// From now on, until null is set. The watch is not owned.
void SetFileWatch(FileWatch* watch);

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_RELIABILITY_FILE_WATCH_H_
