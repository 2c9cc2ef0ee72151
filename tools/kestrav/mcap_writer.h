#ifndef KESTRAV_TOOLS_MCAP_WRITER_H_
#define KESTRAV_TOOLS_MCAP_WRITER_H_

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace kestrav::tool {

// Writes an MCAP file from front to back: messages in chunks, each followed by its indexes, then a
// summary of all. One chunk and the summary are in memory. What is written is appended to the `out`
// of each operation, and the caller may empty that in between.
class McapWriter {
 public:
  using Metadata = std::map<std::string, std::string>;

  void Begin(std::string_view library, std::string& out);

  // Schemas have the ids 1, 2, ..., channels 0, 1, ...
  std::uint16_t AddSchema(std::string_view name, std::string_view encoding, std::string_view data);
  std::uint16_t AddChannel(std::uint16_t schema, std::string_view topic, std::string_view encoding,
                           const Metadata& metadata);
  // Whether no channel can be added any more.
  bool IsFull() const { return channels_.size() == std::numeric_limits<std::uint16_t>::max(); }

  // The data is to be appended to the result, then comes `EndMessage`. Times may go back.
  std::string& BeginMessage(std::uint16_t channel, std::uint64_t time_ns);
  void EndMessage(std::string& out);

  void Finish(std::string& out);

 private:
  // The times of messages, 0 as long as there is none.
  struct Span {
    void Add(std::uint64_t time_ns) {
      first_ns = count == 0 ? time_ns : std::min(first_ns, time_ns);
      last_ns = std::max(last_ns, time_ns);
      ++count;
    }

    std::uint64_t first_ns = 0;
    std::uint64_t last_ns = 0;
    std::uint64_t count = 0;
  };

  struct Entry {
    std::uint64_t time_ns;
    std::uint64_t offset;  // in the chunk
  };

  struct Channel {
    std::uint64_t messages = 0;
    std::vector<Entry> index;  // of those in the chunk
  };

  void Emit(std::string_view bytes, std::string& out);
  void EndChunk(std::string& out);
  // Returns what the chunk's index says of them: where each begins.
  std::string EmitMessageIndexes(std::string& out);
  void EmitSummary(std::string& out);
  std::string Statistics() const;

  std::uint64_t written_ = 0;  // bytes of the file so far
  std::string chunk_;
  Span chunk_span_;
  std::size_t message_at_ = 0;                 // in the chunk
  std::vector<std::uint16_t> chunk_channels_;  // those with messages in it
  std::vector<Channel> channels_;
  Span span_;
  std::uint16_t schemas_ = 0;
  std::uint32_t chunks_ = 0;
  // For the summary.
  std::string schema_records_;
  std::string channel_records_;
  std::string chunk_indexes_;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_MCAP_WRITER_H_
