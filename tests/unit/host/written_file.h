#ifndef KESTRAV_TESTS_UNIT_HOST_WRITTEN_FILE_H_
#define KESTRAV_TESTS_UNIT_HOST_WRITTEN_FILE_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "kestrav/host/io/file_stream.h"
#include "support/failing_files.h"
#include "unit/host/temp_dir.h"

namespace kestrav::test {

// false: the stream refused. `flush`: then the system has the bytes, too.
inline bool Put(Io::IOutputStream& stream, const std::string& bytes, bool flush = false) {
  const auto size = static_cast<std::uint32_t>(bytes.size());
  return stream.Write(reinterpret_cast<const std::uint8_t*>(bytes.data()), size) &&
         (!flush || stream.Flush());
}

// A test of a file stream on a device that does as it is told.
class WrittenFile : public testing::Test {
 protected:
  [[nodiscard]] bool Open(const Io::FileOutputSettings& settings) {
    stream_.emplace(settings);
    return stream_->Open(Wide(path_), Io::OpenMode::kCreate);
  }
  bool Write(const std::string& bytes) { return Put(*stream_, bytes); }
  bool WriteThrough(const std::string& bytes) { return Put(*stream_, bytes, true); }

  std::string Content() const { return FileContent(path_); }
  std::uint32_t Pwrites() const { return files_.Calls(FileCall::kPwrite); }
  std::uint32_t Syncs() const { return files_.Calls(FileCall::kFdatasync); }
  std::uint32_t Looks() const { return files_.Calls(FileCall::kFstatvfs); }

  TempDir dir_;
  const std::filesystem::path path_ = dir_ / "file";
  FailingFiles files_;
  std::optional<Io::BufferedFileOutputStream> stream_;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_UNIT_HOST_WRITTEN_FILE_H_
