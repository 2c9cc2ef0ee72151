#ifndef KESTRAV_TESTS_RELIABILITY_DAMAGE_H_
#define KESTRAV_TESTS_RELIABILITY_DAMAGE_H_

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "reliability/sample_log.h"
#include "support/streams.h"

namespace kestrav::test {

// A log with one to four damages, each a thing that storage does: ranges zeroed, overwritten,
// deleted, duplicated and inserted, sectors zeroed and swapped; anywhere, the stream header
// included. The same seed, the same damage. Remembers where each byte comes from, and so which
// records are untouched.
class DamagedCopy {
 public:
  DamagedCopy(const SampleLog& log, std::uint32_t seed);

  const Bytes& Content() const { return bytes_; }
  // Which records of the log still stand in it as they were, in one piece and among their own.
  std::vector<bool> Untouched() const;
  // Whether this stands in it as a record that was touched and is whole all the same by every rule
  // of the format: under a header that is as it was a payload that its checksum does not tell from
  // the true one, and none of its bytes belongs to an untouched record. No reader can know.
  bool PassesForWhole(const Said& said) const;
  // The damages in words.
  const std::string& Story() const { return story_; }

 private:
  struct Range {
    std::size_t at;
    std::size_t size;
  };
  static constexpr std::uint32_t kForeign = 0xFFFF'FFFF;

  std::uint32_t Pick(std::size_t below);
  Range AnyRange();
  Range AnySector();
  // Where bytes of the log up to `to` stand in one piece; the size of the content if they do not.
  std::size_t Find(std::uint32_t from, std::uint32_t to) const;
  bool Holds(std::size_t at, const Said& said, std::uint32_t index) const;
  bool TouchesNothingUntouched(Range range) const;
  void Tell(const char* what, Range range);

  void DamageOnce();
  void Overwrite(Range range, bool zeros);
  void Delete(Range range);
  void Insert(std::size_t at, const Bytes& bytes);
  void Duplicate(Range range);
  void InsertForeign(Range range);
  void SwapSectors(Range one, Range other);

  const SampleLog& log_;
  std::mt19937 random_;
  Bytes bytes_;
  std::vector<std::uint32_t> origins_;  // of each byte in the log; kForeign: it is none of its own
  std::string story_;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_RELIABILITY_DAMAGE_H_
