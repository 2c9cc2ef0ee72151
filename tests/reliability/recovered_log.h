#ifndef KESTRAV_TESTS_RELIABILITY_RECOVERED_LOG_H_
#define KESTRAV_TESTS_RELIABILITY_RECOVERED_LOG_H_

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "kestrav/host/io/stream.h"
#include "kestrav/rescue/recovery.h"
#include "reliability/sample_log.h"
#include "support/streams.h"

namespace kestrav::test {

// Memory that takes one log after the other.
class ReusedOutputStream final : public Io::IOutputStream {
 public:
  bool Write(const std::uint8_t* data, std::uint32_t size) override;
  bool Seek(std::uint32_t position) override;
  std::uint32_t Position() const override { return position_; }

  void Clear();
  const Bytes& Content() const { return bytes_; }

 private:
  Bytes bytes_;
  std::uint32_t position_ = 0;
};

// Recovers damaged forms of one log and holds what comes out against the healthy log, without the
// library's decoder.
class RecoveryJudge {
 public:
  explicit RecoveryJudge(const SampleLog& healthy);

  struct Verdict {
    RecoveryResult result = RecoveryResult::kNothingFound;
    std::vector<bool> back;       // which records of the healthy log came back
    std::size_t records = 0;      // how many they are
    std::vector<Said> strangers;  // records that the healthy log has not, or has once or earlier
    std::string error;            // what makes the output no clean log; empty: nothing does
  };
  const Verdict& Recover(const Bytes& damaged);
  // Holds `out` against the healthy log, as if it had been recovered with that report.
  const Verdict& Judge(const Bytes& out, const RecoveryReport& report);
  const RecoveryReport& Report() const { return report_; }
  const Bytes& Output() const { return stream_.Content(); }

 private:
  void Clear();
  void JudgeHeader();
  void JudgeRecords();
  std::size_t BehindDictionaryCopy();
  bool IsAt(std::size_t at, std::uint32_t index, const Bytes& record) const;
  Said SaidAt(std::size_t at, std::size_t end, std::uint32_t index) const;
  std::size_t EndOf(std::size_t at, std::uint32_t index);

  const SampleLog& healthy_;
  std::vector<Bytes> encoded_;  // each as record 0 of a plain log
  ReusedOutputStream stream_;
  RecoveryReport report_;
  std::span<const std::uint8_t> out_;
  Verdict verdict_;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_RELIABILITY_RECOVERED_LOG_H_
