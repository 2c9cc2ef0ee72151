#include "source_spec.h"

#include <algorithm>

#include "exit_codes.h"
#include "kestrav/clients/client_manager.h"
#include "kestrav/clients/info_client.h"
#include "kestrav/host/text/string.h"

namespace kestrav::tool {
namespace {

bool SplitKind(std::string_view text, const std::vector<std::string>& kinds, SourceSpec& spec) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) return false;
  spec.kind = text.substr(0, colon);
  spec.file = text.substr(colon + 1);
  return std::find(kinds.begin(), kinds.end(), spec.kind) != kinds.end();
}

}  // namespace

SourceSpec ParseSourceSpec(const std::string& text, const std::vector<std::string>& kinds) {
  SourceSpec spec;
  const std::string_view all = text;
  bool known = SplitKind(all, kinds, spec);
  // A file may have a `=` in its name, so one behind the kind starts no name.
  const std::size_t equals = all.find('=');
  if (!known && equals != std::string_view::npos) {
    spec.name = all.substr(0, equals);
    known = SplitKind(all.substr(equals + 1), kinds, spec);
    if (known) CheckClientName(spec.name);
  }
  if (known && !spec.file.empty()) return spec;
  std::string names;
  for (const std::string& kind : kinds) names += (names.empty() ? "" : ", ") + kind;
  throw Failure(text + ": not [NAME=]KIND:FILE with one of these kinds: " + names, kWrongUsage);
}

void CheckClientName(const std::string& name) {
  // One byte a character: the dictionary of a log gives only such a name back as it was.
  const bool ascii = std::all_of(name.begin(), name.end(), [](char c) { return c >= 0; });
  const String id = Text::FromUtf8(name);
  if (!ascii || !ClientManager().IsValidStringId(id)) {
    throw Failure(
        "'" + name + "': a name has 3 to 50 ASCII characters, the first three are letters",
        kWrongUsage);
  }
  if (id == InfoClientImpl::s_InfoClientString) {
    throw Failure("'" + name + "': this name is the recorder's own", kWrongUsage);
  }
}

}  // namespace kestrav::tool
