#include "support/failing_files.h"

#include <dlfcn.h>
#include <sys/statvfs.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace kestrav::test {
namespace {

constexpr std::size_t kKinds = 4;

struct Fault {
  FileCall call;
  std::uint32_t first;
  std::uint32_t last;
  int error;
  std::uint32_t missing;
};

using Look = std::function<void(const FileAccess&)>;
using ResultLook = std::function<void(const FileAccess&, std::int64_t)>;

struct Script {
  std::mutex mutex;
  bool in_use = false;
  std::array<std::uint32_t, kKinds> calls{};
  std::vector<Fault> faults;
  std::optional<std::uint64_t> free_bytes;
  std::shared_ptr<const Look> watch;
  std::shared_ptr<const ResultLook> result_watch;
};

Script script;

std::uint32_t& CallsOf(FileCall call) { return script.calls[static_cast<std::size_t>(call)]; }

void AddFault(FileCall call, int error, std::uint32_t missing, std::uint32_t at, Lasts lasts) {
  const std::lock_guard lock(script.mutex);
  const std::uint32_t first = CallsOf(call) + at;
  const std::uint32_t last =
      lasts == Lasts::kOnce ? first : std::numeric_limits<std::uint32_t>::max();
  script.faults.push_back({call, first, last, error, missing});
}

struct Fate {
  int error = 0;
  std::uint32_t missing = 0;
  std::optional<std::uint64_t> free_bytes;
  std::shared_ptr<const ResultLook> result_watch;
};

// Allocates nothing, so it does not matter whether memory is short.
Fate FateOf(const FileAccess& access) {
  std::unique_lock lock(script.mutex);
  if (!script.in_use) return {};
  const std::uint32_t number = ++CallsOf(access.call);
  Fate fate{0, 0, script.free_bytes, script.result_watch};
  for (const Fault& fault : script.faults) {
    if (fault.call != access.call || number < fault.first || number > fault.last) continue;
    fate.error = fault.error;
    fate.missing = fault.missing;
  }
  const auto watch = script.watch;
  lock.unlock();
  if (watch) (*watch)(access);
  return fate;
}

// Makes the call unless it fails, and tells how it ended.
template <class Call>
auto Meet(const Fate& fate, const FileAccess& access, Call call) {
  decltype(call()) result = -1;
  if (fate.error == 0) {
    result = call();
  } else {
    errno = fate.error;
  }
  const int error = errno;
  if (fate.result_watch) (*fate.result_watch)(access, result);
  errno = error;
  return result;
}

// The system's own function, behind the one of this file and that of a sanitizer.
template <class Function>
Function Next(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

FailingFiles::FailingFiles() {
  const std::lock_guard lock(script.mutex);
  script.in_use = true;
}

FailingFiles::~FailingFiles() {
  Heal();
  const std::lock_guard lock(script.mutex);
  script.in_use = false;
  script.calls = {};
  script.watch.reset();
  script.result_watch.reset();
}

void FailingFiles::Fail(FileCall call, int error, std::uint32_t at, Lasts lasts) {
  AddFault(call, error, 0, at, lasts);
}

void FailingFiles::WriteShort(std::uint32_t missing, std::uint32_t at, Lasts lasts) {
  AddFault(FileCall::kPwrite, 0, missing, at, lasts);
}

void FailingFiles::SetFreeBytes(std::uint64_t bytes) {
  const std::lock_guard lock(script.mutex);
  script.free_bytes = bytes;
}

void FailingFiles::Watch(std::function<void(const FileAccess&)> look) {
  auto watch = std::make_shared<const Look>(std::move(look));
  const std::lock_guard lock(script.mutex);
  script.watch = std::move(watch);
}

void FailingFiles::WatchResults(std::function<void(const FileAccess&, std::int64_t)> look) {
  auto watch = std::make_shared<const ResultLook>(std::move(look));
  const std::lock_guard lock(script.mutex);
  script.result_watch = std::move(watch);
}

void FailingFiles::Heal() {
  const std::lock_guard lock(script.mutex);
  script.faults.clear();
  script.free_bytes.reset();
}

std::uint32_t FailingFiles::Calls(FileCall call) const {
  const std::lock_guard lock(script.mutex);
  return CallsOf(call);
}

}  // namespace kestrav::test

// They stand in the program, so they are found before those of the C library. Its header gives them
// the names for long files.
static_assert(sizeof(off_t) == 8);

using kestrav::test::Fate;
using kestrav::test::FateOf;
using kestrav::test::FileAccess;
using kestrav::test::FileCall;
using kestrav::test::Meet;
using kestrav::test::Next;

extern "C" ssize_t pwrite(int descriptor, const void* data, size_t size, off_t at) {
  static const auto real = Next<ssize_t (*)(int, const void*, size_t, off_t)>("pwrite64");
  const FileAccess access{FileCall::kPwrite, descriptor, static_cast<const std::uint8_t*>(data),
                          size, static_cast<std::uint64_t>(at)};
  const Fate fate = FateOf(access);
  const size_t missing = std::min<size_t>(fate.missing, size > 0 ? size - 1 : 0);
  return Meet(fate, access, [&] { return real(descriptor, data, size - missing, at); });
}

extern "C" int fdatasync(int descriptor) {
  static const auto real = Next<int (*)(int)>("fdatasync");
  const FileAccess access{FileCall::kFdatasync, descriptor, nullptr, 0, 0};
  return Meet(FateOf(access), access, [&] { return real(descriptor); });
}

extern "C" int ftruncate(int descriptor, off_t length) noexcept {
  static const auto real = Next<int (*)(int, off_t)>("ftruncate64");
  const FileAccess access{FileCall::kFtruncate, descriptor, nullptr,
                          static_cast<std::uint64_t>(length), 0};
  return Meet(FateOf(access), access, [&] { return real(descriptor, length); });
}

extern "C" int fstatvfs(int descriptor, struct statvfs* status) noexcept {
  static const auto real = Next<int (*)(int, struct statvfs*)>("fstatvfs64");
  const FileAccess access{FileCall::kFstatvfs, descriptor, nullptr, 0, 0};
  const Fate fate = FateOf(access);
  return Meet(fate, access, [&] {
    const int result = real(descriptor, status);
    if (result == 0 && fate.free_bytes) {
      status->f_frsize = 1;
      status->f_bavail = *fate.free_bytes;
    }
    return result;
  });
}
