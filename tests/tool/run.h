#ifndef KESTRAV_TESTS_TOOL_RUN_H_
#define KESTRAV_TESTS_TOOL_RUN_H_

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace kestrav::test {

// Sanitizers make a run of the tool ten times as long: of many runs that are alike, every so many
// is made.
#ifdef NDEBUG
inline constexpr std::uint32_t kEvery = 1;
#else
inline constexpr std::uint32_t kEvery = 8;
#endif

// How a run of the tool ended.
struct Result {
  int code = -1;  // the exit code; 128 + n: killed by signal n
  std::string out;
  std::string err;
};

// A folder of a test's own, removed at the end.
class Folder {
 public:
  Folder();
  ~Folder();
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  std::string Path(const std::string& name) const { return (path_ / name).string(); }
  // Writes a file and returns its path.
  std::string Write(const std::string& name, std::string_view content) const;

 private:
  std::filesystem::path path_;
};

std::string ReadFile(const std::string& path);
bool Exists(const std::string& path);
std::vector<std::string> Lines(const std::string& text);

using Arguments = std::vector<std::string>;

// Runs the tool as a user would, with `input` as its standard input.
Result RunTool(const Arguments& arguments, std::string_view input = "");
// Runs another program, found by its name, in the same way.
Result RunProgram(const Arguments& command, std::string_view input = "");
// Runs the tool below a limit of 512-byte blocks for every file that is written.
Result RunWithFileLimit(int blocks, const Arguments& arguments, std::string_view input = "");

// A run of the tool that goes on while the test does.
class Process {
 public:
  struct Streams {
    int in = -1;  // descriptors of the test that become the tool's; -1: nothing
    int out = -1;
    int err = -1;
  };

  Process(const Arguments& arguments, const Streams& streams);

  void Signal(int signal) const;
  int Wait() const;  // the exit code

 private:
  pid_t pid_ = -1;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_TOOL_RUN_H_
