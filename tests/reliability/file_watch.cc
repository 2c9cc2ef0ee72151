#include "reliability/file_watch.h"

#include <dlfcn.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>

namespace kestrav::test {
namespace {

std::atomic<FileWatch*> g_watch = nullptr;

// The system's own function behind the one of this file.
template <class Function>
Function* Next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

void SetFileWatch(FileWatch* watch) { g_watch = watch; }

}  // namespace kestrav::test

extern "C" {

ssize_t pwrite(int file, const void* data, size_t size, off_t at) {
  static auto* const next = kestrav::test::Next<decltype(pwrite)>("pwrite");
  kestrav::test::FileWatch* const watch = kestrav::test::g_watch;
  if (watch == nullptr) return next(file, data, size, at);
  watch->OnWriteBegin();
  const ssize_t result = next(file, data, size, at);
  watch->OnWriteEnd(
      static_cast<std::uint64_t>(at),
      {static_cast<const std::uint8_t*>(data), static_cast<std::size_t>(result > 0 ? result : 0)});
  return result;
}

int ftruncate(int file, off_t size) noexcept {
  static auto* const next = kestrav::test::Next<int(int, off_t)>("ftruncate");
  kestrav::test::FileWatch* const watch = kestrav::test::g_watch;
  const int result = next(file, size);
  if (watch != nullptr && result == 0) watch->OnTruncated(static_cast<std::uint64_t>(size));
  return result;
}

int fdatasync(int file) {
  static auto* const next = kestrav::test::Next<decltype(fdatasync)>("fdatasync");
  kestrav::test::FileWatch* const watch = kestrav::test::g_watch;
  if (watch != nullptr) watch->OnSyncBegin();
  const int result = next(file);
  if (watch != nullptr && result == 0) watch->OnSyncEnd();
  return result;
}

}  // extern "C"
