#ifndef KESTRAV_TOOLS_REPORT_PAGE_H_
#define KESTRAV_TOOLS_REPORT_PAGE_H_

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "kestrav/format/record_header.h"
#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/memory/mem_block.h"

namespace kestrav::tool {

// Writes the page of `kestrav report`. The data stands in it as JSON in which no character can end
// a script or start markup, and nothing is said in other letters than those of ASCII.
class ReportPage {
 public:
  static constexpr std::uint32_t kMostPayloadBytes = 256;  // of a record; the rest is left out

  // Starts `path`. Throws `Failure`, as all of them do, when it cannot be written; `name` is what
  // it is called there.
  ReportPage(const std::string& path, const std::string& name);

  // Records come first: there may be many, and they are not gathered.
  void AddRecord(const BinaryLogRecordHeader& header, std::int64_t at_ms,
                 const Memory::MemBlock& payload);
  std::uint64_t Records() const { return records_; }

  // Adds what else the page tells, and ends it. Returns its size in bytes.
  std::uint64_t Finish(const nlohmann::ordered_json& summary);

 private:
  void Write(std::string_view text);
  [[noreturn]] void Fail() const;

  const std::string name_;
  Io::BufferedFileOutputStream file_;
  std::string text_;
  std::uint64_t records_ = 0;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_REPORT_PAGE_H_
