#include "kestrav/host/io/line_reader.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/short_memory.h"
#include "support/streams.h"

namespace kestrav::test {
namespace {

using Result = Io::LineReader::Result;

BytesInputStream StreamOf(const std::string& text) {
  return BytesInputStream(Bytes(text.begin(), text.end()));
}

// Fails unless the text ends as it should.
std::vector<std::string> LinesOf(const std::string& text) {
  BytesInputStream stream = StreamOf(text);
  Io::LineReader reader(stream);
  std::vector<std::string> lines;
  std::string line;
  Result result = Result::kLine;
  while ((result = reader.Read(line)) == Result::kLine) lines.push_back(line);
  EXPECT_EQ(result, Result::kEnd);
  EXPECT_EQ(reader.Read(line), Result::kEnd);
  EXPECT_EQ(line, "");
  return lines;
}

struct TextCase {
  const char* name;
  std::string text;
  std::vector<std::string> lines;
};

class LineReader : public testing::TestWithParam<TextCase> {};

TEST_P(LineReader, CutsATextIntoItsLines) { EXPECT_EQ(LinesOf(GetParam().text), GetParam().lines); }

INSTANTIATE_TEST_SUITE_P(
    Texts, LineReader,
    testing::Values(TextCase{"Nothing", "", {}}, TextCase{"OneEmptyLine", "\n", {""}},
                    TextCase{"EmptyLines", "\n\r\n\n", {"", "", ""}},
                    TextCase{"LineFeeds", "one\ntwo\n", {"one", "two"}},
                    TextCase{"CarriageReturnsToo", "one\r\ntwo\r\n", {"one", "two"}},
                    TextCase{"BothKinds", "one\r\ntwo\nthree", {"one", "two", "three"}},
                    TextCase{"NoEnd", "one\ntwo", {"one", "two"}},
                    TextCase{"CutBetweenTheTwo", "one\r", {"one"}},
                    TextCase{"CarriageReturnWithin", "o\rne\r\r\n", {"o\rne\r"}},
                    TextCase{"Zeros",
                             std::string("a\0b\nc\0", 6),
                             {std::string("a\0b", 3), std::string("c\0", 2)}},
                    TextCase{"AnyBytes", "\xFF\x80\n\xC3\n", {"\xFF\x80", "\xC3"}},
                    TextCase{"Blanks", " a \t\n", {" a \t"}},
                    TextCase{"LongLine",
                             std::string(1'000'000, 'x') + "\ny",
                             {std::string(1'000'000, 'x'), "y"}}),
    [](const auto& instance) { return instance.param.name; });

TEST(LineReaderMark, AtTheStartIsNoText) {
  const std::string mark = "\xEF\xBB\xBF";
  EXPECT_EQ(LinesOf(mark + "one\n" + mark + "two"),
            (std::vector<std::string>{"one", mark + "two"}));
  EXPECT_EQ(LinesOf(mark), std::vector<std::string>{""});
  EXPECT_EQ(LinesOf(mark + mark + "\n"), std::vector<std::string>{mark});
  EXPECT_EQ(LinesOf("\xEF\xBBx"), std::vector<std::string>{"\xEF\xBBx"});
  EXPECT_EQ(LinesOf(" " + mark), std::vector<std::string>{" " + mark});
}

TEST(LineReaderStart, IsWhereTheStreamStands) {
  BytesInputStream stream = StreamOf("one\ntwo\n");
  ASSERT_TRUE(stream.Seek(4));
  Io::LineReader reader(stream);
  std::string line;
  EXPECT_EQ(reader.Read(line), Result::kLine);
  EXPECT_EQ(line, "two");
}

TEST(LineReaderFailure, IsToldWhenTheStreamCannotBeRead) {
  BytesInputStream stream = StreamOf("one\ntwo\n");
  Io::LineReader reader(stream);
  std::string line;
  ASSERT_EQ(reader.Read(line), Result::kLine);
  stream.fail_reads = true;
  EXPECT_EQ(reader.Read(line), Result::kFailed);
}

TEST(LineReaderFailure, IsToldWhenMemoryIsShort) {
  BytesInputStream stream = StreamOf(std::string(100, 'x') + "\n");
  Io::LineReader reader(stream);
  std::string line;
  Result result = Result::kLine;
  const bool was_short = RanShort(0, [&] { result = reader.Read(line); });
  EXPECT_TRUE(was_short);
  EXPECT_EQ(result, Result::kFailed);
}

}  // namespace
}  // namespace kestrav::test
