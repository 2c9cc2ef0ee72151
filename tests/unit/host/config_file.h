#ifndef KESTRAV_TESTS_UNIT_HOST_CONFIG_FILE_H_
#define KESTRAV_TESTS_UNIT_HOST_CONFIG_FILE_H_

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kestrav/host/config/text_file_store.h"
#include "temp_dir.h"

namespace kestrav::test {

// A configuration file in a folder of its own, and a store to load it with.
class ConfigFileTest : public ::testing::Test {
 protected:
  void LoadText(const std::string& text) {
    WriteFile(file_, text);
    ASSERT_TRUE(store_.Load(Wide(file_)));
  }
  bool Set(const String& entry, const String& value, const String& group = L"S") {
    return store_.WriteValue(group, L"About it", entry, value);
  }
  std::string SavedText() {
    EXPECT_TRUE(store_.Save());
    return FileContent(file_);
  }
  // No value: nothing is stored, or it cannot be read.
  std::optional<String> Value(const String& entry, const String& group = L"S") const {
    String value;
    return FindValue(entry, group, value) == Config::Found::kValue ? std::optional(value)
                                                                   : std::nullopt;
  }
  Config::Found FindValue(const String& entry, const String& group, String& value) const {
    return store_.ReadValue(group, entry, value);
  }
  Config::Found FindValue(const String& entry) const {
    String value;
    return FindValue(entry, L"S", value);
  }
  std::vector<std::size_t> ProblemLines() const {
    std::vector<std::size_t> lines;
    for (const Config::Problem& problem : store_.Problems()) lines.push_back(problem.line);
    return lines;
  }
  std::string ProblemTexts() const {
    std::string texts;
    for (const Config::Problem& problem : store_.Problems()) {
      texts += Text::ToUtf8(problem.what) + '\n';
    }
    return texts;
  }
  // The names of all files in the folder, the temporary ones as well.
  std::vector<std::string> FileNames() const {
    std::vector<std::string> names;
    for (const auto& file : std::filesystem::directory_iterator(folder_.Path())) {
      names.push_back(file.path().filename().string());
    }
    return names;
  }

  TempDir folder_;
  std::filesystem::path file_ = folder_ / "kestrav.conf";
  Config::TextFileStore store_;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_UNIT_HOST_CONFIG_FILE_H_
