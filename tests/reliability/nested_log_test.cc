#include "reliability/nested_log.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <iostream>

#include "reliability/effort.h"
#include "reliability/recovered_log.h"

namespace kestrav::test {
namespace {

constexpr LogKeys kKeys[] = {{0, 0}, {0x35, 0xA7}, {9, 9}, {0x80, 0}};

struct Kind {
  const char* name;
  Nest nest;
  friend std::ostream& operator<<(std::ostream& out, const Kind& kind) { return out << kind.name; }
};

class RecoveredNest : public testing::TestWithParam<Kind> {};

TEST_P(RecoveredNest, HoldsNoRecordOfALogInsideAPayload) {
  const std::uint32_t logs = Effort("KESTRAV_NESTS", 1000, 200);
  std::uint64_t invented = 0;
  std::uint64_t untouched = 0;
  std::uint64_t back = 0;
  for (std::uint32_t seed = 0; seed < logs; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    NestedLog nested(kKeys[seed % std::size(kKeys)], GetParam().nest, seed);
    RecoveryJudge judge(nested.Log());
    const RecoveryJudge::Verdict& verdict = judge.Recover(nested.Damaged());
    EXPECT_EQ(verdict.error, "");
    EXPECT_EQ(verdict.strangers.size(), 0U);
    invented += verdict.strangers.size();
    std::uint64_t spared = 0;
    std::uint64_t spared_and_back = 0;
    for (std::size_t i = 0; i < verdict.back.size(); ++i) {
      spared += nested.Untouched()[i] ? 1 : 0;
      spared_and_back += nested.Untouched()[i] && verdict.back[i] ? 1 : 0;
    }
    // What stands right in front of each damage may be doubtful.
    EXPECT_LE(spared - spared_and_back, verdict.back.size() - spared);
    untouched += spared;
    back += spared_and_back;
  }
  std::cout << "[figure] logs in payloads, " << GetParam() << ": " << logs
            << " logs, recover brings back " << back << " of " << untouched
            << " untouched records, invents " << invented << '\n';
}

TEST_P(RecoveredNest, IsTheLogItselfWhenThatIsHealthy) {
  for (std::uint32_t seed = 0; seed < 50; ++seed) {
    const NestedLog nested(kKeys[seed % std::size(kKeys)], GetParam().nest, seed);
    RecoveryJudge judge(nested.Log());
    const RecoveryJudge::Verdict& verdict = judge.Recover(nested.Log().bytes);
    EXPECT_EQ(verdict.result, RecoveryResult::kWhole) << "seed " << seed;
    EXPECT_EQ(judge.Output(), nested.Log().bytes) << "seed " << seed;
  }
}

INSTANTIATE_TEST_SUITE_P(Logs, RecoveredNest,
                         testing::Values(Kind{"OtherRecording", Nest::kOtherRecording},
                                         Kind{"SameTimes", Nest::kSameTimes},
                                         Kind{"OwnBeginning", Nest::kOwnBeginning},
                                         Kind{"Continuing", Nest::kContinuing}),
                         [](const auto& kind) { return kind.param.name; });

}  // namespace
}  // namespace kestrav::test
