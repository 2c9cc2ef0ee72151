#ifndef KESTRAV_TESTS_UNIT_HOST_TEMP_DIR_H_
#define KESTRAV_TESTS_UNIT_HOST_TEMP_DIR_H_

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "kestrav/host/text/string.h"

namespace kestrav::test {

// A folder of its own, gone with its owner.
class TempDir {
 public:
  TempDir() {
    std::string name = (std::filesystem::temp_directory_path() / "kestrav-XXXXXX").string();
    path_ = mkdtemp(name.data());
  }
  ~TempDir() { std::filesystem::remove_all(path_); }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }
  const std::filesystem::path& Path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// A path as the streams take it.
inline String Wide(const std::filesystem::path& path) { return Text::FromUtf8(path.string()); }

inline std::string FileContent(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteFile(const std::filesystem::path& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_UNIT_HOST_TEMP_DIR_H_
