#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "kestrav/format/decoder.h"
#include "support/log_builder.h"
#include "support/reference_reader.h"
#include "unit/format/window_streams.h"

namespace kestrav::test {
namespace {

// A log with markers in its payloads, then bytes overwritten, markers strewn in and the end cut.
Bytes DamagedLog(std::mt19937& random, std::uint8_t key) {
  LogBuilder builder(key, key);
  const auto records = static_cast<std::uint32_t>(random() % 12);
  for (std::uint32_t i = 0; i < records; ++i) {
    std::string payload(random() % 120 + 1, '\0');
    for (char& byte : payload) byte = static_cast<char>(random() % 4 == 0 ? 0x4C : random());
    builder.Record(static_cast<std::uint16_t>(random() % 70), 1, i, payload);
  }
  Bytes log = builder.Build();
  const std::size_t foreign = random() % 400;
  for (std::size_t i = 0; i < foreign; ++i) {
    const std::uint8_t marker = random() % 2 == 0 ? 0x4C : 0x4C ^ key;
    log.push_back(random() % 6 == 0 ? marker : static_cast<std::uint8_t>(random()));
  }
  for (std::uint64_t damages = random() % 8; damages > 0 && log.size() > 128; --damages) {
    log[128 + random() % (log.size() - 128)] = random() % 2 == 0 ? 0x4C : 0;
  }
  log.resize(128 + random() % (log.size() - 127));
  return log;
}

template <class Stream, class... Arguments>
void ExpectTheLiteralRule(const Bytes& log, Arguments&&... arguments) {
  BinaryDecoder decoder(std::make_shared<Stream>(log, arguments...));
  ASSERT_TRUE(decoder.Initialize());
  ReferenceReader reference(log);
  for (std::uint32_t start = 128; start <= log.size(); start = reference.Position() + 1) {
    ASSERT_TRUE(decoder.SetOffset(start));
    reference.SetPosition(start);
    const std::uint32_t expected = reference.Scan();
    ASSERT_EQ(decoder.ScanForNextValidHeader(), expected) << "from " << start;
    ASSERT_EQ(decoder.Getoffset(), reference.Position()) << "from " << start;
  }
  ASSERT_TRUE(decoder.SetOffset(128));
  reference.SetPosition(128);
  LogMessage message;
  Said said;
  for (std::uint32_t expected = 0; expected == 0;) {
    expected = reference.Next(said);
    ASSERT_EQ(decoder.GetNextLogRecord(message), expected);
    ASSERT_EQ(decoder.Getoffset(), reference.Position());
    if (expected == 0) {
      ASSERT_EQ(WhatSays(message), said);
    }
  }
}

class PlainStream final : public Io::IInputStream {
 public:
  explicit PlainStream(const Bytes& bytes) : inner_(bytes) {}
  bool Read(std::uint8_t* data, std::uint32_t size) override { return inner_.Read(data, size); }
  bool Seek(std::uint32_t position) override { return inner_.Seek(position); }
  std::uint32_t Position() const override { return inner_.Position(); }
  std::uint32_t Remaining() const override { return inner_.Remaining(); }

 private:
  BytesInputStream inner_;
};

TEST(ScanProperty, OnTenThousandDamagedLogsTheScanFindsWhatTheLiteralRuleFinds) {
  for (std::uint32_t seed = 0; seed < 10'000; ++seed) {
    std::mt19937 random(seed);
    const std::uint8_t key = seed % 2 == 0 ? 0 : static_cast<std::uint8_t>(random() % 255 + 1);
    const Bytes log = DamagedLog(random, key);
    SCOPED_TRACE("seed " + std::to_string(seed));
    switch (seed % 4) {
      case 0:
      case 1:
        ExpectTheLiteralRule<WindowInputStream>(log, 1U << 30);
        break;
      case 2:
        ExpectTheLiteralRule<WindowInputStream>(log,
                                                50 + static_cast<std::uint32_t>(random() % 99));
        break;
      default:
        ExpectTheLiteralRule<PlainStream>(log);
        break;
    }
    if (HasFatalFailure()) return;
  }
}

}  // namespace
}  // namespace kestrav::test
