#include "play_status.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace kestrav::tool {
namespace {

const char* StateText(PlaybackStatusType status) {
  switch (status) {
    case PlaybackStarting:
      return "starting";
    case PlaybackPlaying:
      return "playing";
    case PlaybackPaused:
      return "paused";
    case PlaybackRewinding:
      return "rewinding";
    case PlaybackFinished:
      return "finished";
    case PlaybackOff:
      break;
  }
  return "off";
}

std::string Clock(std::uint32_t scnds) {
  char text[16];
  std::snprintf(text, sizeof(text), "%u:%02u", scnds / 60, scnds % 60);
  return text;
}

std::string Bar(std::uint32_t position, std::uint32_t length, std::size_t width) {
  const std::size_t filled =
      length == 0 ? 0 : std::size_t{std::min(position, length)} * width / length;
  return "[" + std::string(filled, '#') + std::string(width - filled, '-') + "]";
}

}  // namespace

std::string PlayStatus(const IKestrav& engine, int columns) {
  constexpr std::size_t kShortestBar = 10;
  constexpr std::size_t kLongestBar = 30;
  constexpr std::size_t kAroundBar = 4;  // the blanks in front and the brackets
  const std::string hint = "  ? help";
  const std::uint32_t length = engine.GetPlaybackLogLengthMs() / 1000;
  const std::uint32_t position = engine.GetPlaybackTimeScnds();
  std::string status = std::string(StateText(engine.GetPlaybackStatus())) + "  " +
                       std::to_string(engine.GetPlaybackSpeed()) + "x  " + Clock(position) + " / " +
                       Clock(length);
  // The last column stays free: some terminals wrap as soon as it is written.
  const std::size_t room = columns > 1 ? static_cast<std::size_t>(columns) - 1 : 0;
  const std::size_t used = status.size() + kAroundBar;
  const bool hinted = used + kShortestBar + hint.size() <= room;
  const std::size_t needed = used + (hinted ? hint.size() : 0);
  if (needed + kShortestBar <= room) {
    status += "  " + Bar(position, length, std::min(kLongestBar, room - needed));
  }
  if (hinted) status += hint;
  return status.substr(0, room);
}

}  // namespace kestrav::tool
