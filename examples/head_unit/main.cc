// A head unit in small: starts the recorder's modules, reads configuration and settings file, lets
// three components record for some seconds, plays the log back to them and writes the selection
// back. usage: head_unit FOLDER [SECONDS]
#include <cstdio>
#include <string>

#include "head_unit.h"
#include "kestrav/host/text/integer.h"

int main(int argc, char** argv) {
  constexpr std::uint32_t kLongest = 3600;
  std::uint32_t seconds = 3;
  const bool usable =
      argc == 2 || (argc == 3 && kestrav::Text::ReadUnsigned(kestrav::Text::FromUtf8(argv[2]),
                                                             seconds, kLongest));
  if (!usable) {
    std::fprintf(stderr, "usage: head_unit FOLDER [SECONDS]\n");
    return 2;
  }
  kestrav::example::HeadUnit head_unit(argv[1]);
  if (!head_unit.Start() || !head_unit.Record(seconds) || !head_unit.PlayBack()) return 1;
  head_unit.PrintSummary();
  return head_unit.Save() ? 0 : 1;
}
