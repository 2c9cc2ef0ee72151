// Hands every file of the given folders, or the given files, to every target: what was found once
// stays found. No fuzzer is needed.
//
// usage: fuzz_replay [--target NAME] FILE_OR_FOLDER...

#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz/support.h"

namespace kestrav::fuzz {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> FilesIn(const char* name) {
  if (!fs::is_directory(name)) return {name};
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(name)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  return files;
}

Bytes Content(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error(path.string() + ": cannot be read");
  const std::string content(std::istreambuf_iterator<char>(file), {});
  return {content.begin(), content.end()};
}

// How many runs there were.
int Replay(const std::vector<fs::path>& files, const char* only) {
  int runs = 0;
  for (const fs::path& path : files) {
    const Bytes content = Content(path);
    for (const Target& target : kTargets) {
      if (only != nullptr && std::strcmp(only, target.name) != 0) continue;
      NowDoing('(' + std::string(target.name) + ", " + path.string() + ')');
      target.run(content);
      ++runs;
    }
  }
  return runs;
}

}  // namespace
}  // namespace kestrav::fuzz

int main(int argc, char** argv) try {
  const bool has_target = argc > 2 && std::strcmp(argv[1], "--target") == 0;
  int runs = 0;
  for (int i = has_target ? 3 : 1; i < argc; ++i) {
    runs += kestrav::fuzz::Replay(kestrav::fuzz::FilesIn(argv[i]), has_target ? argv[2] : nullptr);
  }
  std::printf("%d runs\n", runs);
  return runs > 0 ? 0 : 1;
} catch (const std::exception& error) {
  std::fprintf(stderr, "fuzz_replay: %s\n", error.what());
  return 1;
}
