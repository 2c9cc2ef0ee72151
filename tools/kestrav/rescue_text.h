#ifndef KESTRAV_TOOLS_RESCUE_TEXT_H_
#define KESTRAV_TOOLS_RESCUE_TEXT_H_

#include <nlohmann/json.hpp>
#include <string>

#include "kestrav/rescue/recovery.h"

// What a recovery found, as people and as programs read it.

namespace kestrav::tool {

// One line for each damage and each record that was left out, each begun with `indent`; when there
// are many, the first of them and how many more there are.
std::string DamageLines(const RecoveryReport& report, const std::string& indent);

// All of the report.
nlohmann::ordered_json ReportJson(const RecoveryReport& report);

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_RESCUE_TEXT_H_
