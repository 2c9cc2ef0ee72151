#ifndef KESTRAV_TESTS_SCENARIO_STRESS_WRITER_H_
#define KESTRAV_TESTS_SCENARIO_STRESS_WRITER_H_

#include <atomic>
#include <cstdint>
#include <shared_mutex>
#include <string>
#include <thread>
#include <vector>

#include "kestrav/engine/kestrav.h"
#include "support/messages.h"
#include "support/parsed_log.h"
#include "support/recording_client.h"

namespace kestrav::test {

// What the writers and the one who starts and stops know of each other.
//
// A guarded round lies between the return of a start and the call of its stop, and is told only to
// writers that hold `gate` shared; who changes it holds `gate` alone.
struct StressRounds {
  static constexpr int kNone = -1;

  std::atomic<bool> over = false;
  std::atomic<int> begun = 0;     // rounds so far; writers wait for it to change
  std::atomic<int> attempts = 0;  // of all writers in this round
  std::shared_mutex gate;
  std::atomic<bool> gate_wanted = false;  // by the one who needs it alone; readers keep away
  int guarded_round = kNone;              // guarded by `gate`
};

// A client that hands in numbered messages, some in each round, and remembers the answers.
class StressWriter {
 public:
  static constexpr int kAttemptsPerRound = 100;

  StressWriter(IKestrav& engine, StressRounds& rounds, int number)
      : client(L"Writer " + std::to_wstring(number)), engine_(engine), rounds_(rounds) {}

  void Run() {
    for (int round = 0;; ++round) {
      rounds_.begun.wait(round);
      if (rounds_.over) return;
      for (int i = 0; i < kAttemptsPerRound; ++i) {
        Attempt();
        ++rounds_.attempts;
        std::this_thread::yield();
      }
    }
  }

  // The messages of this writer in the finished log of a round. What is wrong, or nothing.
  std::string TakeLog(int round, const ParsedLog& log) {
    for (const std::string& payload : log.PayloadsOf(client.client_id)) {
      const auto number = static_cast<std::size_t>(std::stoull(payload));
      if (!found_.empty() && number <= found_.back().number) {
        return "message " + std::to_string(number) + " stands behind a later one or twice";
      }
      found_.push_back({number, round});
    }
    return {};
  }

  // What became of the messages.
  struct Tally {
    std::size_t accepted = 0;
    std::size_t refused = 0;
    std::size_t on_file = 0;
    std::size_t guarded = 0;  // of those on file
    std::size_t unguarded = 0;
  };

  // After the last round: whether the logs hold what was accepted, where it must be, and no more.
  std::string Verify(Tally& tally) {
    for (const int answer : answers_) ++(answer != kRefused ? tally.accepted : tally.refused);
    tally.on_file += found_.size();
    std::size_t next = 0;
    for (const Found& found : found_) {
      for (; next < found.number; ++next) {
        if (answers_[next] != kRefused) return "lost message " + std::to_string(next);
      }
      const int answer = answers_.at(next++);
      if (answer == kRefused) return "recorded refused message " + std::to_string(found.number);
      if (answer >= 0 && answer != found.round) {
        return "message " + std::to_string(found.number) + " is in log " +
               std::to_string(found.round) + " instead of " + std::to_string(answer);
      }
      ++(answer >= 0 ? tally.guarded : tally.unguarded);
    }
    for (; next < answers_.size(); ++next) {
      if (answers_[next] != kRefused) return "lost message " + std::to_string(next);
    }
    return {};
  }

  RecordingClient client;
  std::atomic<int> wrongly_refused = 0;

 private:
  static constexpr int kRefused = -2;
  static constexpr int kAccepted = -1;  // in whichever log; otherwise the round of the log

  struct Found {
    std::size_t number;
    int round;
  };

  void Attempt() {
    if (rounds_.gate_wanted) return Note(Write(), kAccepted);
    std::shared_lock lock(rounds_.gate);
    const int round = rounds_.guarded_round;
    if (round == StressRounds::kNone) {
      lock.unlock();
      return Note(Write(), kAccepted);
    }
    const bool accepted = Write();
    if (!accepted) ++wrongly_refused;
    Note(accepted, round);
  }

  bool Write() {
    std::string payload = std::to_string(answers_.size()) + ' ';
    payload.resize(payload.size() + answers_.size() * 7 % 50, '.');
    return engine_.WriteData(MakeMessage(client.client_id, 1, payload));
  }

  void Note(bool accepted, int where) { answers_.push_back(accepted ? where : kRefused); }

  IKestrav& engine_;
  StressRounds& rounds_;
  std::vector<int> answers_;
  std::vector<Found> found_;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_SCENARIO_STRESS_WRITER_H_
