#ifndef KESTRAV_TOOLS_OUTPUT_FILE_H_
#define KESTRAV_TOOLS_OUTPUT_FILE_H_

#include <string>
#include <vector>

#include "source_spec.h"

namespace kestrav::tool {

// Whether a file that is to be written is `source`, where - stands for standard input.
bool IsSameFile(const std::string& path, const std::string& source);

// A file that is written beside its place, as `<path>.<process>.part`, and put there when it is
// whole. Until then what was there before stays as it is.
class OutputFile {
 public:
  // Throws `Failure` when `path` is no place for a file, or (wrong usage) when it is empty or a
  // source.
  OutputFile(const std::string& path, const std::vector<SourceSpec>& sources);
  // Removes the part unless it was committed.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  const std::string& PartPath() const { return part_; }
  void Commit();

 private:
  const std::string name_;
  std::string path_;  // where a link leads to
  std::string part_;
  bool committed_ = false;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_OUTPUT_FILE_H_
