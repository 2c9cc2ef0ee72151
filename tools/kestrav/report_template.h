#ifndef KESTRAV_TOOLS_REPORT_TEMPLATE_H_
#define KESTRAV_TOOLS_REPORT_TEMPLATE_H_

#include <string_view>

namespace kestrav::tool {

// The page of `kestrav report`, which the build bundles from the folder report/. The data of a log
// stands between its two parts. Empty views: the tool was built without it.
std::string_view ReportHead();
std::string_view ReportTail();

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_REPORT_TEMPLATE_H_
