#ifndef KESTRAV_TOOLS_LINE_READER_H_
#define KESTRAV_TOOLS_LINE_READER_H_

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kestrav::tool {

// Cuts bytes that come in pieces into lines. A line ends with LF or CR LF, which do not belong to
// it; the last one may lack its end. All other bytes are kept, zeros too.
class LineCutter {
 public:
  // The longest line that is taken, so that a file without lines cannot use up the memory.
  static constexpr std::size_t kLongestLine = 64 * 1024 * 1024;

  // Takes `data` in; the lines before must have been taken out.
  void Add(std::string_view data);
  // No more data comes: what is left is the last line.
  void End() { ended_ = true; }
  // false: no whole line is there yet. `line` is good until the next call of any operation.
  bool Next(std::string_view& line);
  bool IsTooLong() const { return data_.size() - at_ > kLongestLine; }

 private:
  std::string data_;
  std::size_t at_ = 0;        // where the next line starts
  std::size_t searched_ = 0;  // up to where there is no LF
  bool ended_ = false;
};

// The lines of a file, or of standard input when the path is `-`.
class LineReader {
 public:
  // Throws `Failure` when the file cannot be opened.
  explicit LineReader(const std::string& path);

  // false: the end. Throws `Failure` when reading fails or a line is longer than the cutter takes.
  bool Next(std::string_view& line);

  const std::string& Name() const { return name_; }
  std::uint64_t BytesRead() const { return bytes_read_; }

 private:
  struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  std::string name_;
  std::unique_ptr<std::FILE, Close> file_;
  std::vector<char> buffer_;
  LineCutter cutter_;
  std::uint64_t bytes_read_ = 0;
  bool ended_ = false;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_LINE_READER_H_
