#include "report_template.h"

// Stands in for the page in a tool that is built without it.

namespace kestrav::tool {

std::string_view ReportHead() { return {}; }
std::string_view ReportTail() { return {}; }

}  // namespace kestrav::tool
