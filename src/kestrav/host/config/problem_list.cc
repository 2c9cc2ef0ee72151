#include "kestrav/host/config/problem_list.h"

#include <algorithm>
#include <utility>

#include "kestrav/host/config/text_line.h"

namespace kestrav::Config {
namespace {

constexpr std::size_t kLongestShownName = 60;

}  // namespace

void AddProblem(std::vector<Problem>& problems, std::size_t line, std::string_view what) {
  const bool counts = line > 0;
  if (counts && problems.size() >= kMostProblems) return;
  Problem problem{line, Text::FromUtf8(what)};
  if (std::find(problems.begin(), problems.end(), problem) != problems.end()) return;
  if (counts && problems.size() + 1 == kMostProblems)
    problem = {0, L"There are more problems in the file."};
  problems.push_back(std::move(problem));
}

std::string ShownName(std::string_view name) {
  String characters = Text::FromUtf8(name.substr(0, kLongestShownName * 4));
  if (characters.size() > kLongestShownName) {
    characters.resize(kLongestShownName);
    characters += L"...";
  }
  const std::string written = WrittenName(Text::ToUtf8(characters));
  return written.starts_with('"') ? written : '"' + written + '"';
}

}  // namespace kestrav::Config
