#include <map>
#include <string>
#include <string_view>

#include "fuzz/support.h"
#include "kestrav/engine/settings_file.h"

namespace kestrav::fuzz {
namespace {

using Clients = std::map<String, bool>;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kPrefix = "binary:";

// Takes what stands before the first `end` off the front of `text`, and the end with it.
std::string_view Take(std::string_view& text, char end) {
  const std::string_view taken = text.substr(0, text.find(end));
  text.remove_prefix(taken.size() < text.size() ? taken.size() + 1 : taken.size());
  return taken;
}

// The list of the first line that has one.
std::string_view List(std::string_view text) {
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  while (!text.empty()) {
    std::string_view line = Take(text, '\n');
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (line.starts_with(kPrefix)) return line.substr(kPrefix.size());
  }
  return {};
}

bool IsListed(std::string_view list, std::string_view name) {
  while (!list.empty()) {
    if (Take(list, ',') == name) return true;
  }
  return false;
}

}  // namespace

// Compares with a second, plainer reading of the same bytes.
void FuzzSettings(Input file) {
  const std::string_view text(reinterpret_cast<const char*>(file.data()), file.size());
  const std::string_view list = List(text);
  Clients expected;
  bool any = false;
  for (const wchar_t* const client : {L"GPS", L"CAN", L"Vehicle Bus", L"\u00DCber\u20AC"}) {
    const bool is_on =
        IsListed(list, Text::ToUtf8(client)) || (client == String(L"GPS") && list == "1");
    expected[client] = is_on;
    any = any || is_on;
  }
  Clients clients = expected;
  for (auto& [name, is_on] : clients) is_on = name.size() % 2 == 0;  // whatever it was before
  ScratchFile::Get().Put(file);
  const bool read = ReadSettingsFile(clients, ScratchFile::Get().Path().c_str());
  Require(read == any, "the answer tells whether a client is on");
  Require(clients == expected, "the clients of the list are on, the others are not");
}

}  // namespace kestrav::fuzz
