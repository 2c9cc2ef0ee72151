#ifndef KESTRAV_TOOLS_CLIENT_TABLE_H_
#define KESTRAV_TOOLS_CLIENT_TABLE_H_

#include <cstdint>
#include <string>

#include "log_clock.h"
#include "os.h"
#include "output.h"
#include "output_file.h"
#include "record_view.h"

namespace kestrav::tool {

// The records of one client as a CSV table in a file of its own. The client's first records decide
// what kind of table it is: the lines of an imported CSV as they were, CAN frames, or records.
class ClientTable {
 public:
  // `log` must not be overwritten.
  ClientTable(const std::string& path, const std::string& log, const LogClock& clock);

  // false: the record has no place in this kind of table.
  bool Add(const RecordView& record);
  // A record that is not asked for, from before those that are.
  void Pass(const RecordView& record);
  // All is in the file. It has its name with `Commit`.
  void Finish();
  void Commit() { file_.Commit(); }

 private:
  enum class Kind { kUnknown, kLines, kFrames, kRecords };

  bool Decide(const RecordView& record);
  void BeginRecords();
  void AppendPlace(const RecordView& record);
  void AppendRecord(const RecordView& record);
  void AppendFrame(const RecordView& record);

  LogClock clock_;
  OutputFile file_;
  const RemoveOnInterrupt remove_part_;
  Output output_;
  Kind kind_ = Kind::kUnknown;
  bool begun_ = false;  // there was a record
  // The first record, when it may be the header line of a CSV.
  bool has_header_ = false;
  bool header_is_passed_ = false;
  RecordView first_;
  std::string header_;  // its payload
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_CLIENT_TABLE_H_
