#ifndef KESTRAV_TYPES_PLAYBACK_TYPES_H_
#define KESTRAV_TYPES_PLAYBACK_TYPES_H_

#include <cstdint>

namespace kestrav {

enum PlaybackModeType : std::int32_t {
  PlaybackModeNormal = 0,       // a thread of its own paces the records by their time stamps
  PlaybackModePolling = 1,      // one record a call of `PlaybackNextMessage`
  PlaybackModePassThrough = 2,  // pieces of a log handed in by `PlaybackData`
  PlaybackModeNone = 4,         // no mode was set yet
};

enum PlaybackStatusType : std::int32_t {
  PlaybackOff = 0,
  PlaybackStarting = 1,
  PlaybackPlaying = 2,
  PlaybackPaused = 3,
  PlaybackRewinding = 4,
  PlaybackFinished = 5,  // the end of the log was reached; a start plays it again
};

// The value is the factor by which playback runs faster than the recording did.
enum PlaybackSpeedType : std::int32_t {
  PlaybackSpeedStopped = 0,
  PlaybackSpeed1x = 1,
  PlaybackSpeed2x = 2,
  PlaybackSpeed4x = 4,
  PlaybackSpeed10x = 10,
  PlaybackSpeedNone = 255,  // of a notification that is not about speed
};

}  // namespace kestrav

#endif  // KESTRAV_TYPES_PLAYBACK_TYPES_H_
