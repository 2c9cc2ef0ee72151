#include <algorithm>
#include <cstddef>

#include "fuzz/support.h"
#include "kestrav/format/header_repair.h"
#include "kestrav/format/stream_header.h"

namespace kestrav::fuzz {
namespace {

// Selection, duration and length are what a repair writes anew.
bool MayChange(std::size_t at) { return (at >= 8 && at < 10) || (at >= 12 && at < 20); }

}  // namespace

void FuzzRepair(Input log) {
  ScratchFile& file = ScratchFile::Get();
  file.Put(log);
  const bool repaired = RepairBinaryLogStreamHeader(file.Path().c_str());
  const Bytes after = file.Content();
  Require(after.size() == log.size(), "a repair leaves the size of the file");
  for (std::size_t at = 0; at < after.size(); ++at) {
    Require(after[at] == log[at] || (repaired && MayChange(at)),
            "a repair changes selection, duration and length alone");
  }
  if (!repaired) return;
  const std::uint32_t length = LittleEndian32(after.data() + 16);
  Require(length >= kStreamHeaderSize && length <= log.size(), "the length lies within the file");
  Require(RepairBinaryLogStreamHeader(file.Path().c_str()), "a repaired log can be repaired");
  Require(file.Content() == after, "a second repair changes nothing");
}

}  // namespace kestrav::fuzz
