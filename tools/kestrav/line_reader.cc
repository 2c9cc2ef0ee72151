#include "line_reader.h"

#include <cerrno>

#include "exit_codes.h"
#include "os.h"

namespace kestrav::tool {

void LineCutter::Add(std::string_view data) {
  data_.erase(0, at_);
  searched_ -= at_;
  at_ = 0;
  data_ += data;
}

bool LineCutter::Next(std::string_view& line) {
  std::size_t end = data_.find('\n', searched_);
  if (end == std::string::npos) {
    searched_ = end = data_.size();
    if (!ended_ || at_ == end) return false;
    line = std::string_view(data_).substr(at_, end - at_);
    at_ = end;
  } else {
    line = std::string_view(data_).substr(at_, end - at_);
    at_ = searched_ = end + 1;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  }
  return true;
}

LineReader::LineReader(const std::string& path)
    : name_(path == "-" ? "standard input" : path),
      file_(path == "-" ? stdin : std::fopen(path.c_str(), "rb")),
      buffer_(64 * 1024) {
  if (!file_) throw Failure(name_ + ": " + ErrorText(errno));
}

bool LineReader::Next(std::string_view& line) {
  while (!cutter_.Next(line)) {
    if (ended_) return false;
    if (cutter_.IsTooLong()) throw Failure(name_ + ": a line is longer than 64 MiB");
    const std::size_t got = std::fread(buffer_.data(), 1, buffer_.size(), file_.get());
    if (got < buffer_.size() && std::ferror(file_.get())) {
      throw Failure(name_ + ": " + ErrorText(errno));
    }
    cutter_.Add({buffer_.data(), got});
    bytes_read_ += got;
    if (got == 0) cutter_.End();
    ended_ = got == 0;
  }
  return true;
}

}  // namespace kestrav::tool
