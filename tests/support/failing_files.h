#ifndef KESTRAV_TESTS_SUPPORT_FAILING_FILES_H_
#define KESTRAV_TESTS_SUPPORT_FAILING_FILES_H_

#include <cstdint>
#include <functional>

namespace kestrav::test {

// The system calls by which output streams reach their file.
enum class FileCall { kPwrite, kFdatasync, kFtruncate, kFstatvfs };

struct FileAccess {
  FileCall call;
  int descriptor;
  const std::uint8_t* data;  // kPwrite alone
  std::uint64_t size;        // kPwrite: bytes; kFtruncate: the new length
  std::uint64_t at;          // kPwrite alone
};

enum class Lasts { kOnce, kFromThenOn };

// For its life the calls above, of all threads of the process, are counted and fail as it says. A
// call of which it says nothing does what it always does. One at a time; its operations may be
// called from any thread.
class FailingFiles {
 public:
  FailingFiles();
  ~FailingFiles();
  FailingFiles(const FailingFiles&) = delete;
  FailingFiles& operator=(const FailingFiles&) = delete;

  // The call number `at` of its kind, 1 being the next one, does nothing and fails with `error`. Of
  // several faults for a call the one given last counts.
  void Fail(FileCall call, int error, std::uint32_t at = 1, Lasts lasts = Lasts::kOnce);

  // The write number `at` takes `missing` bytes fewer than it is given, but at least one.
  void WriteShort(std::uint32_t missing, std::uint32_t at = 1, Lasts lasts = Lasts::kOnce);

  // What file systems tell of as free to everybody, in blocks of one byte.
  void SetFreeBytes(std::uint64_t bytes);

  // Runs `look` before each call that was not begun yet, on its thread. It may wait.
  void Watch(std::function<void(const FileAccess&)> look);

  // Runs `look` after each call, on its thread, with what the call answers.
  void WatchResults(std::function<void(const FileAccess&, std::int64_t result)> look);

  // Takes all faults and the free bytes back; the counts and the watches stay.
  void Heal();

  // How many calls of a kind there were, failed ones included.
  std::uint32_t Calls(FileCall call) const;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_SUPPORT_FAILING_FILES_H_
