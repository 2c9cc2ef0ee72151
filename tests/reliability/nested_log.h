#ifndef KESTRAV_TESTS_RELIABILITY_NESTED_LOG_H_
#define KESTRAV_TESTS_RELIABILITY_NESTED_LOG_H_

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "reliability/sample_log.h"

namespace kestrav::test {

// What the logs are that stand in the payloads of another log.
enum class Nest : std::uint8_t {
  kOtherRecording,  // other times
  kSameTimes,       // the ids of the outer log, times that fit into it
  kOwnBeginning,    // the outer log itself, as far as it goes
  kContinuing,      // ids, times and indices that fit into the outer log
};

// A log of 30 to 70 records, some of which hold whole logs: plain ones, ones with the keys of the
// outer log and ones with other keys. The same seed, the same log.
class NestedLog {
 public:
  NestedLog(LogKeys keys, Nest nest, std::uint32_t seed);

  const SampleLog& Log() const { return log_; }
  // A copy in which headers of records that hold a log are damaged, at least one of them.
  Bytes Damaged();
  // Which records the damage has spared.
  const std::vector<bool>& Untouched() const { return untouched_; }

 private:
  std::uint32_t Pick(std::uint32_t below) { return static_cast<std::uint32_t>(random_()) % below; }
  std::string Random(std::uint32_t size);
  Said Message(std::uint32_t time_ms, const std::string& payload);
  LogKeys InnerKeys();
  std::string Inner(Nest nest, std::uint32_t index, const Bytes& so_far);
  void DamageHeader(Bytes& bytes, std::size_t index);

  std::mt19937 random_;
  const LogKeys keys_;
  std::uint32_t time_ms_ = 70'000;
  SampleLog log_;
  std::vector<std::size_t> holders_;  // the records that hold a log
  std::vector<bool> untouched_;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_RELIABILITY_NESTED_LOG_H_
