#ifndef KESTRAV_RESCUE_RUN_CHOICE_H_
#define KESTRAV_RESCUE_RUN_CHOICE_H_

#include <cstdint>
#include <vector>

#include "kestrav/rescue/log_view.h"
#include "kestrav/rescue/run_search.h"

namespace kestrav::rescue {

// A run, and whether it is part of the log.
struct Judged {
  Run run;
  bool taken = false;
  bool rejected = false;             // it cannot be
  Doubt doubt = Doubt::kOutOfOrder;  // why it is not
};

// Chooses the runs that are the log: as many records as can stand in one order by place and index.
// A short run needs evidence besides: time and client ids that fit, and on both sides either a
// neighbour or missing records that explain the bytes between. Takes n log n steps.
class RunChoice {
 public:
  // `known_ids`: for each client id whether records of longer runs have it.
  RunChoice(const LogView& log, std::vector<bool>& known_ids) : log_(log), known_ids_(known_ids) {}

  // Leaves the runs in `judged`, ascending by begin, cut where copies of earlier records end.
  // false: memory is short.
  [[nodiscard]] bool Choose(const std::vector<Run>& runs, std::vector<Judged>& judged);

 private:
  static void RejectEmbedded(std::vector<Judged>& judged);
  [[nodiscard]] bool TakeHeaviest(std::vector<Judged>& judged) const;
  // false: memory is short.
  [[nodiscard]] bool DropWeak(std::vector<Judged>& judged, bool& dropped);
  void ConfirmTails(std::vector<Judged>& judged) const;
  bool IsStray(const Run* before, const Run& run, const Run* behind) const;
  bool IsHeadStray(const Run& before, const Run& run) const;
  [[nodiscard]] bool CutHead(Run& run);
  bool IsPlausible(const Run* before, const Run& run, const Run* behind) const;
  void KnowIds(const Run& run);
  bool HasKnownIds(const Run& run) const;
  [[nodiscard]] bool NameDoubts(std::vector<Judged>& judged) const;

  const LogView& log_;
  std::vector<bool>& known_ids_;
  std::vector<Judged> heads_;  // single records that were cut off
};

}  // namespace kestrav::rescue

#endif  // KESTRAV_RESCUE_RUN_CHOICE_H_
