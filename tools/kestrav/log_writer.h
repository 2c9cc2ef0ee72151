#ifndef KESTRAV_TOOLS_LOG_WRITER_H_
#define KESTRAV_TOOLS_LOG_WRITER_H_

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kestrav/format/encoder.h"
#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/memory/mem_block.h"
#include "log_front.h"
#include "os.h"
#include "output_file.h"
#include "progress.h"

namespace kestrav::tool {

// Writes a log that is made of other logs' records. It appears under its name when it is whole and
// on the disk. Every operation throws `Failure` when the log cannot be written. At most one at a
// time.
class LogWriter {
 public:
  struct Start {
    std::int64_t time_scnds = 0;
    std::uint32_t clock_ms = 0;
    std::uint16_t selection = 0;

    explicit Start(const BinaryLogStreamHeader& header)
        : time_scnds(header.start_time),
          clock_ms(header.start_clock),
          selection(header.client_selection) {}
    // Whole seconds, so that both go on together.
    void Move(std::int32_t scnds) {
      time_scnds += scnds;
      clock_ms += 1000 * static_cast<std::uint32_t>(scnds);
    }
  };

  // `sources` are files that `path` must not be. The keys are new ones, or none.
  LogWriter(const std::string& path, const std::vector<std::string>& sources, bool plain);

  // The log starts whole seconds earlier where its front is older than its start: playback expects
  // no such record.
  void Begin(Start start, const LogFront& front);
  // The time stamp stays, the index becomes the next one.
  void Write(const BinaryLogRecordHeader& header, const Memory::MemBlock& payload) {
    Write(header, {payload.Data(), payload.Size()});
  }
  // Other bytes in the record's place.
  void Replace(const BinaryLogRecordHeader& header, std::string_view payload);
  // `duration_ms` counts from the start that `Begin` was given.
  void Finish(std::int64_t duration_ms);

  const std::string& Path() const { return path_; }
  std::uint32_t Records() const { return encoder_.RecordCount(); }
  std::uint32_t Bytes() const { return encoder_.BytesWritten(); }
  // Of the finished log: name, number of records, size and length, in one line.
  std::string Summary() const;

 private:
  void Write(const BinaryLogRecordHeader& header, std::span<const std::uint8_t> payload);
  void WriteFront(std::uint16_t data_id, const FrontRecord& record);
  [[noreturn]] void Fail() const;

  const std::string path_;
  OutputFile file_;
  const RemoveOnInterrupt remove_part_;
  const std::shared_ptr<Io::BufferedFileOutputStream> stream_;
  const bool plain_;
  BinaryEncoder encoder_;
  Progress progress_;
  std::int64_t moved_ms_ = 0;      // by which the log starts earlier
  std::uint32_t duration_ms_ = 0;  // these two of the finished log
  std::uint32_t bytes_ = 0;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_LOG_WRITER_H_
