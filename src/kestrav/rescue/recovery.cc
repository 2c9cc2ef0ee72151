#include "kestrav/rescue/recovery.h"

namespace kestrav {

RecoveryResult RecoverLog(std::span<const std::uint8_t> /*log*/, Io::IOutputStream* /*out*/,
                          RecoveryReport& report,
                          const std::function<bool(std::uint64_t)>& /*progress*/) noexcept {
  report = RecoveryReport();
  return RecoveryResult::kNothingFound;
}

}  // namespace kestrav
