#ifndef KESTRAV_TESTS_UNIT_PLAYBACK_CLIENT_DATA_SEARCH_RIG_H_
#define KESTRAV_TESTS_UNIT_PLAYBACK_CLIENT_DATA_SEARCH_RIG_H_

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "kestrav/host/io/stream.h"
#include "kestrav/playback/binary_playback.h"
#include "support/log_builder.h"
#include "support/streams.h"

namespace kestrav::test {

// A stream that can fail: one seek, counted from 1, or every read from one on.
class FaultyStream final : public Io::IInputStream {
 public:
  explicit FaultyStream(Bytes bytes) : stream_(std::move(bytes)) {}

  bool Read(std::uint8_t* data, std::uint32_t size) override {
    return (++reads < fail_reads_from || fail_reads_from == 0) && stream_.Read(data, size);
  }
  bool Seek(std::uint32_t position) override {
    return ++seeks != fail_seek && stream_.Seek(position);
  }
  std::uint32_t Position() const override { return stream_.Position(); }
  std::uint32_t Remaining() const override { return stream_.Remaining(); }

  int reads = 0;
  int seeks = 0;
  int fail_reads_from = 0;
  int fail_seek = 0;

 private:
  BytesInputStream stream_;
};

inline std::string Text(const Memory::MemBlock& block) {
  return std::string(reinterpret_cast<const char*>(block.Data()), block.Size());
}

inline const std::string kUntouched = "untouched";

inline Memory::MemBlock UntouchedBlock() {
  Memory::MemBlock block;
  EXPECT_TRUE(block.Assign(reinterpret_cast<const std::uint8_t*>(kUntouched.data()),
                           static_cast<std::uint32_t>(kUntouched.size())));
  return block;
}

// What the search finds; none leaves the block untouched.
inline std::optional<std::string> Search(const IBinaryPlayback& playback, std::uint16_t client,
                                         std::uint16_t data_id, std::uint32_t offset_scnds) {
  Memory::MemBlock block = UntouchedBlock();
  const bool found = playback.SearchAndGetClientData(block, client, data_id, offset_scnds);
  if (found) return Text(block);
  EXPECT_EQ(Text(block), kUntouched);
  return std::nullopt;
}

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_UNIT_PLAYBACK_CLIENT_DATA_SEARCH_RIG_H_
