#include "output_file.h"

#include <filesystem>
#include <system_error>

#include "exit_codes.h"
#include "os.h"

namespace kestrav::tool {
namespace fs = std::filesystem;

bool IsSameFile(const std::string& path, const std::string& source) {
  std::error_code error;
  const bool same = fs::equivalent(path, source == "-" ? "/dev/stdin" : source, error);
  return !error && same;
}

OutputFile::OutputFile(const std::string& path, const std::vector<SourceSpec>& sources)
    : name_(path), path_(path) {
  if (path.empty()) throw Failure("the name of the output is empty", kWrongUsage);
  std::error_code error;
  if (const fs::path target = fs::canonical(path, error); !error) path_ = target;
  part_ = path_ + "." + ProcessId() + ".part";
  for (const std::string& written : {path_, part_}) {
    const fs::file_status status = fs::status(written, error);
    if (fs::exists(status) && !fs::is_regular_file(status)) {
      throw Failure(written + ": not a regular file");
    }
    for (const SourceSpec& source : sources) {
      if (!IsSameFile(written, source.file)) continue;
      throw Failure(written + ": is a source and would be overwritten", kWrongUsage);
    }
  }
}

OutputFile::~OutputFile() {
  std::error_code ignored;
  if (!committed_) fs::remove(part_, ignored);
}

void OutputFile::Commit() {
  std::error_code error;
  fs::rename(part_, path_, error);
  if (error) throw Failure(name_ + ": " + error.message());
  committed_ = true;
}

}  // namespace kestrav::tool
