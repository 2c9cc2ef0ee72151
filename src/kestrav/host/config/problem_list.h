#ifndef KESTRAV_HOST_CONFIG_PROBLEM_LIST_H_
#define KESTRAV_HOST_CONFIG_PROBLEM_LIST_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "kestrav/host/config/problem.h"

namespace kestrav::Config {

inline constexpr std::size_t kMostProblems = 100;

// Adds a problem that is not in the list yet, told in UTF-8. In place of the one that makes
// kMostProblems stands that there are more; then only those of the file as a whole are added.
// Throws std::bad_alloc only.
void AddProblem(std::vector<Problem>& problems, std::size_t line, std::string_view what);

// A name as problems show it: in quotes, not too long, without control characters.
std::string ShownName(std::string_view name);

}  // namespace kestrav::Config

#endif  // KESTRAV_HOST_CONFIG_PROBLEM_LIST_H_
