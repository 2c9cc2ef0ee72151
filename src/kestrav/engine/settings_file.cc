#include "kestrav/engine/settings_file.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/io/line_reader.h"
#include "kestrav/host/memory/try.h"
#include "kestrav/host/text/integer.h"

namespace kestrav {
namespace {

constexpr std::string_view kPrefix = "binary:";

// false: the file ends without such a line.
bool ReadList(Io::IInputStream& file, String& list) {
  Io::LineReader reader(file);
  std::string line;
  while (reader.Read(line) == Io::LineReader::Result::kLine) {
    if (!line.starts_with(kPrefix)) continue;
    return Memory::Try(
        [&] { list = Text::FromUtf8(std::string_view(line).substr(kPrefix.size())); });
  }
  return false;
}

void SwitchGps(std::map<String, bool>& clients, std::wstring_view number) {
  const auto gps = clients.find(L"GPS");
  if (gps == clients.end()) return;
  std::uint32_t value = 0;
  gps->second =
      Text::ReadUnsigned(number, value, std::numeric_limits<std::uint8_t>::max()) && value == 1;
}

void SwitchOn(std::map<String, bool>& clients, std::wstring_view name) {
  const auto found = std::find_if(clients.begin(), clients.end(),
                                  [&](auto& client) { return client.first == name; });
  if (found != clients.end()) found->second = true;
}

void Apply(std::map<String, bool>& clients, std::wstring_view list) {
  if (list.size() == 1 && list.front() != L',') {
    SwitchGps(clients, list);
    return;
  }
  for (;;) {
    const std::size_t comma = list.find(L',');
    SwitchOn(clients, list.substr(0, comma));
    if (comma == std::wstring_view::npos) return;
    list.remove_prefix(comma + 1);
  }
}

}  // namespace

bool ReadSettingsFile(std::map<String, bool>& clients, const wchar_t* path) {
  if (path == nullptr || *path == L'\0' || clients.empty()) return false;
  Io::BufferedFileInputStream file;
  bool opened = false;
  if (!Memory::Try([&] { opened = file.Open(path); }) || !opened) return false;
  for (auto& client : clients) client.second = false;
  if (String list; ReadList(file, list)) Apply(clients, list);
  return std::any_of(clients.begin(), clients.end(), [](auto& client) { return client.second; });
}

}  // namespace kestrav
