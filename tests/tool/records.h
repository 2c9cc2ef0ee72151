#ifndef KESTRAV_TESTS_TOOL_RECORDS_H_
#define KESTRAV_TESTS_TOOL_RECORDS_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "run.h"

namespace kestrav::test {

// A record as the tool prints it.
struct Record {
  std::uint64_t data_id = 0;
  std::int64_t at_ms = 0;  // since the log's start clock, which `kestrav import` sets to 1000
  std::string payload;

  friend bool operator==(const Record&, const Record&) = default;
  friend void PrintTo(const Record& record, std::ostream* out) {
    *out << record.data_id << "@" << record.at_ms << " "
         << ::testing::PrintToString(record.payload);
  }
};

inline std::string FromHex(const std::string& hex) {
  const auto digit = [](char c) { return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10; };
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes += static_cast<char>(16 * digit(hex[i]) + digit(hex[i + 1]));
  }
  return bytes;
}

// The value of a key of a flat JSON object, without its quotes: quicker than a parser, and the
// lines are many.
inline std::string Value(const std::string& line, const std::string& key) {
  const std::size_t colon = line.find("\"" + key + "\":");
  EXPECT_NE(colon, std::string::npos) << line;
  std::size_t start = colon + key.size() + 3;
  if (line[start] == '"') ++start;
  return line.substr(start, line.find_first_of("\",}", start) - start);
}

// What `kestrav cat` prints of one client.
inline std::vector<Record> RecordsOf(const std::string& log, const std::string& client) {
  const Result result = RunTool({"cat", "--format", "jsonl", "--client", client, log});
  EXPECT_EQ(result.code, 0) << result.err;
  std::vector<Record> records;
  for (const std::string& line : Lines(result.out)) {
    records.push_back({std::stoull(Value(line, "data_id")),
                       std::stoll(Value(line, "time_ms")) - 1000, FromHex(Value(line, "payload"))});
  }
  return records;
}

// A CAN frame as the log holds it.
inline std::string Frame(std::uint32_t id, std::string_view data, std::uint8_t length) {
  std::string frame(16, '\0');
  for (int i = 0; i < 4; ++i) frame[static_cast<std::size_t>(i)] = static_cast<char>(id >> (8 * i));
  frame[4] = static_cast<char>(length);
  frame.replace(8, data.size(), data);
  return frame;
}
inline std::string Frame(std::uint32_t id, std::string_view data) {
  return Frame(id, data, static_cast<std::uint8_t>(data.size()));
}

// Imports one trace and gives back what it has become.
inline std::vector<Record> Imported(const std::string& kind, const std::string& trace,
                                    Arguments more = {}, std::string* err = nullptr) {
  const Folder folder;
  Arguments arguments = {"import", "-o", folder.Path("out.klog"),
                         "Trace=" + kind + ":" + folder.Write("trace", trace)};
  arguments.insert(arguments.end(), more.begin(), more.end());
  const Result result = RunTool(arguments);
  EXPECT_EQ(result.code, 0) << result.err;
  if (err != nullptr) *err = result.err;
  return RecordsOf(folder.Path("out.klog"), "Trace");
}

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_TOOL_RECORDS_H_
