#ifndef KESTRAV_TESTS_RELIABILITY_PLAYER_RIG_H_
#define KESTRAV_TESTS_RELIABILITY_PLAYER_RIG_H_

#include <cstdint>
#include <vector>

#include "kestrav/engine/kestrav_impl.h"
#include "reliability/quiet_parts.h"
#include "support/log_builder.h"
#include "support/manual_clock.h"

namespace kestrav::test {

// A log of all messages, 100 ms apart, in the pieces that pass-through playback takes.
struct PlayedLog {
  PlayedLog(std::uint8_t header_key, std::uint8_t data_key, std::uint32_t start_clock = 5'000,
            std::uint32_t first_index = 0);

  Bytes bytes;
  std::vector<Memory::MemBlock> pieces;
};

// What a playback came to.
struct Played {
  bool prepared = false;
  bool started = false;
  bool finished = false;  // the log was played to its end
};

// What is asked of a normal playback while it plays: nothing, or a pause, other speeds and a rewind
// to the start.
enum class Calls { kNone, kMany };

// An engine with two clients that plays a log in one of the modes. It allocates nothing itself.
class PlayerRig {
 public:
  PlayerRig(Time::ManualSource& clock, PlaybackModeType mode, const PlayedLog& log);

  // Sets up the engine, each refused step once more; may be repeated.
  bool Prepare();
  // Opens the log and plays it, again from the beginning if it did not start.
  Played Play(Calls calls = Calls::kNone);
  std::vector<int> TakeNotifications() { return observer_.Take(); }

  KestravImpl engine;
  Tally tally;

 private:
  bool Open();
  bool Start();
  bool PlayToTheEnd();
  void CallMany();

  Time::ManualSource& clock_;
  const PlaybackModeType mode_;
  const PlayedLog& log_;
  Thread::ThreadModule threads_;
  QuietClient clients_[2] = {{L"Barometer", 0, tally}, {L"Gyroscope", 1, tally}};
  QuietObserver observer_;
  const String engine_name_ = L"Player";
};

// A playback without faults: complete, and told of.
void ExpectCompletePlayback(PlayerRig& rig);

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_RELIABILITY_PLAYER_RIG_H_
