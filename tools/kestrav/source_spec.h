#ifndef KESTRAV_TOOLS_SOURCE_SPEC_H_
#define KESTRAV_TOOLS_SOURCE_SPEC_H_

#include <string>
#include <string_view>
#include <vector>

namespace kestrav::tool {

// One `[NAME=]KIND:FILE` of the command line.
struct SourceSpec {
  std::string name;  // the client's string id; empty when it was not given
  std::string kind;
  std::string file;
};

// Cuts `text` up. Throws `Failure` (wrong usage) when it has no kind of `kinds` or no file.
SourceSpec ParseSourceSpec(const std::string& text, const std::vector<std::string>& kinds);

// Throws `Failure` (wrong usage) unless `name` can be a client's string id in a log that is to be
// played back: 3 to 50 ASCII characters, the first three of them letters, not the recorder's own.
void CheckClientName(const std::string& name);

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_SOURCE_SPEC_H_
