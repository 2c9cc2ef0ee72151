#ifndef KESTRAV_TOOLS_RECORD_JSON_H_
#define KESTRAV_TOOLS_RECORD_JSON_H_

#include <cstdint>
#include <map>
#include <string>

#include "log_file.h"
#include "record_view.h"

namespace kestrav::tool {

// A name out of a log as a JSON string in ASCII, with its quotes: what no terminal shows as text is
// escaped. Bytes that are no UTF-8 are replaced.
// Without a name: null.
std::string JsonName(const std::string* name);

// Writes records as JSON objects.
class RecordJson {
 public:
  explicit RecordJson(const ClientNames& names) : names_(names) {}

  // Appends the object but for its closing brace.
  void AppendOpen(std::string& out, const RecordView& record);

 private:
  // Made once a client: the other values need no care.
  const std::string& NameOf(std::uint16_t client_id);

  const ClientNames& names_;
  std::map<std::uint16_t, std::string> json_names_;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_RECORD_JSON_H_
