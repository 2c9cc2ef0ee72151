#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "kestrav/format/decoder.h"
#include "support/streams.h"

namespace kestrav::test {
namespace {

namespace fs = std::filesystem;

const fs::path kLogs = fs::path(KESTRAV_SOURCE_DIR) / "tests/conformance/logs";

std::vector<std::string> NamesWith(const std::string& extension) {
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(kLogs)) {
    if (entry.path().extension() == extension) names.push_back(entry.path().stem());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string Content(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << path;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

void DumpHeader(const BinaryLogStreamHeader& header, std::ostream& out) {
  out << R"({"start_time":)" << header.start_time << R"(,"client_selection":)"
      << header.client_selection << R"(,"header_key":)" << int{header.header_key}
      << R"(,"data_key":)" << int{header.data_key} << R"(,"recording_duration":)"
      << header.recording_duration << R"(,"stream_length":)" << header.stream_length
      << R"(,"clock_rate":)" << header.clock_rate << R"(,"start_clock":)" << header.start_clock
      << "}\n";
}

void DumpRecord(const LogMessage& message, std::ostream& out) {
  out << R"({"client_id":)" << message.GetClientID() << R"(,"data_id":)" << message.GetDataID()
      << R"(,"time_ms":)" << message.time_stamp << R"(,"size":)" << message.GetDataSize()
      << R"(,"payload":")";
  constexpr char kDigits[] = "0123456789abcdef";
  for (std::uint32_t i = 0; i < message.GetDataSize(); ++i) {
    const std::uint8_t byte = message.GetDataPointer()[i];
    out << kDigits[byte >> 4] << kDigits[byte & 15];
  }
  out << "\"}\n";
}

// The stream header, the records that a walk delivers, and the code that ends it; or "null" for
// what is no log.
std::string Dump(const std::string& log) {
  BinaryDecoder decoder(std::make_shared<BytesInputStream>(Bytes(log.begin(), log.end())));
  if (!decoder.Initialize()) return "null\n";
  std::ostringstream out;
  DumpHeader(decoder.StreamHeader(), out);
  LogMessage message;
  ResultCode code;
  while ((code = decoder.GetNextLogRecord(message)) == kSuccess) DumpRecord(message, out);
  out << R"({"code":)" << code << "}\n";
  return out.str();
}

class ConformanceLog : public testing::TestWithParam<std::string> {};

TEST_P(ConformanceLog, IsReadAsItsDumpSays) {
  EXPECT_EQ(Dump(Content(kLogs / (GetParam() + ".klog"))),
            Content(kLogs / (GetParam() + ".jsonl")));
}

INSTANTIATE_TEST_SUITE_P(Logs, ConformanceLog, testing::ValuesIn(NamesWith(".klog")),
                         [](const auto& test) { return test.param; });

TEST(ConformanceLogs, EachHasADump) {
  EXPECT_EQ(NamesWith(".klog"), NamesWith(".jsonl"));
  EXPECT_FALSE(NamesWith(".klog").empty());
}

}  // namespace
}  // namespace kestrav::test
