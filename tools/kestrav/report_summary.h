#ifndef KESTRAV_TOOLS_REPORT_SUMMARY_H_
#define KESTRAV_TOOLS_REPORT_SUMMARY_H_

#include <nlohmann/json.hpp>

#include "log_file.h"
#include "report_data.h"

namespace kestrav::tool {

// What the page of the report tells beside the records, as its script reads it.
nlohmann::ordered_json ReportSummary(const LogFile& log, const ClientNames& names,
                                     const ReportData& data);

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_REPORT_SUMMARY_H_
