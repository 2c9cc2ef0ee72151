#ifndef KESTRAV_TESTS_TOOL_REPORT_PAGE_H_
#define KESTRAV_TESTS_TOOL_REPORT_PAGE_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "run.h"
#include "support/log_builder.h"

namespace kestrav::test {

// What stands between the two parts of a page, as it stands there.
inline std::string DataText(const std::string& page) {
  const std::string open = "<script type=\"application/json\" id=\"data\">";
  const std::size_t start = page.find(open);
  EXPECT_NE(start, std::string::npos);
  if (start == std::string::npos) return "null";
  const std::size_t end = page.find("</script>", start);
  EXPECT_NE(end, std::string::npos);
  return page.substr(start + open.size(), end - start - open.size());
}

// A report made of a log, and how its making ended.
struct ReportRun {
  Result result;
  nlohmann::json data;

  const nlohmann::json& Summary() const { return data["summary"]; }
  const nlohmann::json& Client(int id) const {
    for (const nlohmann::json& client : Summary()["clients"]) {
      if (client["id"] == id) return client;
    }
    ADD_FAILURE() << "no client " << id;
    return Summary();
  }
};

inline std::string WriteLog(const Folder& folder, const LogBuilder& log) {
  const Bytes bytes = log.Build();
  return folder.Write("a.klog", {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

inline ReportRun MakeReport(const LogBuilder& log, Arguments more = {}) {
  const Folder folder;
  const std::string out = folder.Path("report.html");
  more.insert(more.begin(), {"report", WriteLog(folder, log), "-o", out});
  ReportRun run{RunTool(more), {}};
  EXPECT_TRUE(Exists(out)) << run.result.err;
  if (Exists(out)) run.data = nlohmann::json::parse(DataText(ReadFile(out)));
  return run;
}

// The counts that stand for themselves; a negative one stands for so many zeros.
inline std::vector<std::uint64_t> Expanded(const nlohmann::json& runs) {
  std::vector<std::uint64_t> values;
  for (const nlohmann::json& run : runs) {
    const auto value = run.get<std::int64_t>();
    if (value < 0) {
      values.resize(values.size() + static_cast<std::size_t>(-value));
    } else {
      values.push_back(static_cast<std::uint64_t>(value));
    }
  }
  return values;
}

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_TOOL_REPORT_PAGE_H_
