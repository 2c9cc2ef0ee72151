#include "record_json.h"

#include <nlohmann/json.hpp>

#include "text.h"

namespace kestrav::tool {

std::string JsonName(const std::string* name) {
  nlohmann::json value;
  if (name != nullptr) value = *name;
  return value.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
}

void RecordJson::AppendOpen(std::string& out, const RecordView& record) {
  out += "{\"index\":";
  AppendNumber(out, record.index);
  out += ",\"client_id\":";
  AppendNumber(out, record.client_id);
  out += ",\"client\":";
  out += NameOf(record.client_id);
  out += ",\"data_id\":";
  AppendNumber(out, record.data_id);
  out += ",\"time_ms\":";
  AppendNumber(out, record.time_stamp);
  out += ",\"size\":";
  AppendNumber(out, record.payload.size());
  out += ",\"payload\":\"";
  AppendHex(out, record.payload);
  out += '"';
}

const std::string& RecordJson::NameOf(std::uint16_t client_id) {
  std::string& text = json_names_[client_id];
  if (text.empty()) text = JsonName(names_.Find(client_id));
  return text;
}

}  // namespace kestrav::tool
