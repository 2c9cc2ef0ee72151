#ifndef KESTRAV_RESCUE_COPY_SPLIT_H_
#define KESTRAV_RESCUE_COPY_SPLIT_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "kestrav/rescue/log_view.h"
#include "kestrav/rescue/run_search.h"

namespace kestrav::rescue {

// Cuts runs in which copies of earlier records stand, as where a stretch of the log was written
// twice: behind the last copy, so that what follows can be chosen without them.
class CopySplit {
 public:
  explicit CopySplit(const LogView& log) : log_(log) {}

  // Adds the pieces of all runs to `pieces`, ascending by begin. false: memory is short.
  [[nodiscard]] bool Split(const std::vector<Run>& runs, std::vector<Run>& pieces);

 private:
  // A run is compared with so many runs of several records in front of it.
  static constexpr std::size_t kCompared = 8;
  using Cuts = std::array<std::uint32_t, kCompared>;

  [[nodiscard]] bool Cut(const Run& run, const Cuts& cuts, std::size_t count,
                         std::vector<Run>& pieces) const;
  bool HasCopies(const Run& earlier, const Run& run) const;
  // Where the record `index` of a run stands. false: it is damaged.
  bool FindRecord(const Run& run, std::uint32_t index, std::uint32_t& at) const;

  const LogView& log_;
};

}  // namespace kestrav::rescue

#endif  // KESTRAV_RESCUE_COPY_SPLIT_H_
