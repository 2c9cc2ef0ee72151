#ifndef KESTRAV_TOOLS_PLAYBACK_GAP_H_
#define KESTRAV_TOOLS_PLAYBACK_GAP_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <set>

#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/io/stream.h"
#include "log_index.h"

namespace kestrav::tool {

// Whole records, from one checkpoint of a log to another, that a reader may leave out.
struct Gap {
  std::uint32_t begin = 0;
  std::uint32_t end = 0;
};

// What a playback from `offset_scnds` on passes over without any effect: it reads all records
// before that time, and what remains of them is that there were some. Records of the clients
// `played` are those that it looks at. `start_clock`: that of the log.
std::optional<Gap> FindGap(const LogIndex& index, std::uint32_t start_clock,
                           std::uint32_t offset_scnds, const std::set<std::uint16_t>& played);

// A file, which once reads as if a gap of it were not there.
class GapStream final : public Io::IInputStream {
 public:
  explicit GapStream(std::shared_ptr<Io::BufferedFileInputStream> file);

  // The gap is left out from the next seek to the start until the one after that: a rewind, say,
  // which wants the whole.
  void LeaveOutOnce(const Gap& gap) { next_gap_ = gap; }

  [[nodiscard]] bool Read(std::uint8_t* data, std::uint32_t size) override;
  [[nodiscard]] bool Seek(std::uint32_t position) override;
  std::uint32_t Position() const override {
    return position_ + shown_ - static_cast<std::uint32_t>(ViewSize());
  }
  std::uint32_t Remaining() const override { return Size() - Position(); }

 protected:
  [[nodiscard]] bool LoadView(std::uint32_t size) override;

 private:
  std::uint32_t Size() const { return file_size_ - (gap_.end - gap_.begin); }
  // Bytes that can be read in one piece.
  std::uint32_t Room() const;
  // Takes back the view; the file then stands where this does.
  [[nodiscard]] bool TakeBackView();
  [[nodiscard]] bool MoveFile();

  const std::shared_ptr<Io::BufferedFileInputStream> file_;
  const std::uint32_t file_size_;
  Gap gap_;
  Gap next_gap_;
  std::uint32_t position_ = 0;  // where the view begins
  std::uint32_t shown_ = 0;     // how long it was
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_PLAYBACK_GAP_H_
