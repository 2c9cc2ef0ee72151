#ifndef KESTRAV_TESTS_RELIABILITY_RECORDER_RIG_H_
#define KESTRAV_TESTS_RELIABILITY_RECORDER_RIG_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "kestrav/engine/kestrav_impl.h"
#include "reliability/quiet_parts.h"
#include "support/manual_clock.h"

namespace kestrav::test {

// What a recording of all messages came to.
struct Recorded {
  bool prepared = false;
  bool ran = false;
  bool stopped = false;
  std::uint32_t accepted = 0;  // bit n: message n
};

// An engine with two clients that records all messages within 30 s, three at a time, so that
// the dictionary is repeated three times and the update timer ticks. It allocates nothing itself
// but the messages.
class RecorderRig {
 public:
  explicit RecorderRig(Time::ManualSource& clock);

  // Sets up the engine, each refused step once more; may be repeated.
  bool Prepare(bool scrambled);
  // Each refused start once more, to the same stream.
  Recorded Begin(const SmartPtr::Ptr<Io::IOutputStream>& stream, bool scrambled);
  void WriteAll(Recorded& recorded);
  // Begins, writes all and stops.
  Recorded Record(const SmartPtr::Ptr<Io::IOutputStream>& stream, bool scrambled);
  std::uint32_t Ticks() { return observer_.Ticks(); }
  std::vector<int> TakeNotifications() { return observer_.Take(); }

  KestravImpl engine;

 private:
  bool Start();
  bool Write(std::uint32_t n);

  Time::ManualSource& clock_;
  Thread::ThreadModule threads_;
  Tally tally_;
  QuietClient clients_[2] = {{L"Barometer", 0, tally_}, {L"Gyroscope", 1, tally_}};
  QuietObserver observer_;
  const String engine_name_ = L"Recorder";
  const String client_names_[2] = {L"Barometer", L"Gyroscope"};
};

// Checks the bytes of a log: sound to its end, nothing but accepted messages in it, in order and
// unchanged. Returns which of them are there.
std::uint32_t MessagesIn(const Bytes& log);

// What was accepted and not dropped is what stands in the log.
void ExpectCountersToTell(RecorderRig& rig, const Recorded& recorded, const Bytes& log);

// A recording without faults: complete, told of, and with all that timers do. Its bytes.
Bytes ExpectCompleteRecording(RecorderRig& rig, bool scrambled);

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_RELIABILITY_RECORDER_RIG_H_
