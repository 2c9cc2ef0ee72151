#ifndef KESTRAV_TOOLS_PLAYER_H_
#define KESTRAV_TOOLS_PLAYER_H_

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kestrav/clients/dictionary_record.h"
#include "kestrav/engine/kestrav_impl.h"
#include "kestrav/format/stream_header.h"
#include "kestrav/host/io/stream.h"
#include "kestrav/host/thread/thread_module.h"
#include "kestrav/types/playback_types.h"
#include "play_output.h"
#include "playback_gap.h"

namespace kestrav::tool {

struct PlayerSettings {
  std::vector<std::string> clients;  // the ones to play to; none: all
  PlaybackModeType mode = PlaybackModeNormal;
  PlaybackSpeedType speed = PlaybackSpeed1x;  // normal mode; stopped: without pacing
  std::optional<std::uint32_t> offset_scnds;
  std::uint32_t rewind_scnds = 5;
  bool history = false;  // the clients accept offset data
};

// Plays one log to a client for each string id in it, which prints what it gets. Every failure is
// thrown as `Failure`.
class Player {
 public:
  // What the log says of itself.
  struct Log {
    BinaryLogStreamHeader header;
    Dictionary dictionary;  // empty: its first record holds none
  };
  static Log ReadLog(const std::string& path);

  Player(const std::string& path, const Log& log, const PlayerSettings& settings,
         PlayOutput& output);
  ~Player();
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  IKestrav& Engine() { return engine_; }

  // Starts normal or polling playback. `on_change` is called, from any thread, when the playback
  // came to its end or stopped.
  void Start(std::function<void()> on_change);

  // Polling: plays to the end. Pass-through: starts, and hands in piece after piece to the end.
  // Both end early when `interrupted` says so.
  void Poll(const std::function<bool()>& interrupted);
  void PassThrough(const std::function<bool()>& interrupted);

  // The end of the log was reached.
  bool HasEnded() const { return ended_; }
  // The playback is over, by its end or otherwise.
  bool IsOver() const { return ended_ || stopped_; }

 private:
  class Client;

  void AddClients(const Log& log, const PlayerSettings& settings);
  void OpenLog(const Log& log, const PlayerSettings& settings);
  // `played`: the string ids of the clients that are selected.
  std::optional<Gap> SkippedByIndex(const Log& log, const PlayerSettings& settings,
                                    const std::vector<String>& played) const;
  void ApplySettings(const PlayerSettings& settings);
  void Warn(const std::string& text);
  [[noreturn]] void Fail(const std::string& reason) const;

  const std::string path_;
  PlayOutput& output_;
  std::function<void()> on_change_;
  std::atomic<bool> ended_{false};
  std::atomic<bool> stopped_{false};
  std::vector<std::unique_ptr<Client>> clients_;
  Thread::ThreadModule threads_;
  KestravImpl engine_;  // goes first: its threads use the others
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_PLAYER_H_
