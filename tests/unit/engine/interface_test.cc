#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstddef>
#include <map>
#include <type_traits>
#include <vector>

#include "kestrav/engine/kestrav.h"

namespace kestrav::test {
namespace {

// Where an operation stands in the table of virtual operations: a pointer to it holds the offset in
// bytes, with the lowest bit as a mark on some machines.
template <class Operation>
std::size_t Slot(Operation operation) {
  static_assert(sizeof(operation) == sizeof(std::array<std::size_t, 2>));
  return (std::bit_cast<std::array<std::size_t, 2>>(operation)[0] & ~std::size_t{1}) /
         sizeof(void*);
}

// The destructor is the first operation and takes the slots 0 and 1, so operation n has slot n.
TEST(IKestrav, KeepsTheOrderOfItsOperations) {
  using Id = const String&;
  using Client = IClient*;
  const std::vector<std::size_t> slots = {
      Slot(&IKestrav::EnableEncryption),
      Slot(&IKestrav::FastForwardPlayback),
      Slot(&IKestrav::GetClientsList),
      Slot(&IKestrav::GetPlaybackLogLengthMs),
      Slot(&IKestrav::GetPlaybackLogSize),
      Slot(&IKestrav::GetLoggingClientsList),
      Slot(&IKestrav::GetLoggingStatus),
      Slot(&IKestrav::GetPlaybackAttributes),
      Slot(&IKestrav::GetPlaybackRewindTimeScnds),
      Slot(&IKestrav::GetPlaybackSpeed),
      Slot(&IKestrav::GetPlaybackStatus),
      Slot(&IKestrav::GetPlaybackTimeScnds),
      Slot(&IKestrav::GetRecordingTimeScnds),
      Slot(&IKestrav::GetStartPlaybackOffsetScnds),
      Slot(&IKestrav::SetPlaybackMode),
      Slot(&IKestrav::SetPeriodicEventDuration),
      Slot(&IKestrav::IsLogging),
      Slot(&IKestrav::IsSelectedForLogging),
      Slot(&IKestrav::IsSelectedForPlayback),
      Slot(&IKestrav::IsValidPlaybackOffset),
      Slot(&IKestrav::PausePlayback),
      Slot(&IKestrav::PlaybackNextMessage),
      Slot(&IKestrav::RegisterClient),
      Slot(static_cast<bool (IKestrav::*)()>(&IKestrav::ResetLoggingSelection)),
      Slot(static_cast<bool (IKestrav::*)(Id)>(&IKestrav::ResetLoggingSelection)),
      Slot(&IKestrav::ResetPlaybackSelection),
      Slot(&IKestrav::ResumePlayback),
      Slot(&IKestrav::RewindPlayback),
      Slot(&IKestrav::SendControlStringToClient),
      Slot(&IKestrav::SelectForLogging),
      Slot(&IKestrav::SelectForPlayback),
      Slot(&IKestrav::PlaybackData),
      Slot(&IKestrav::SearchAndGetClientData),
      Slot(&IKestrav::SetLoggingOutputStream),
      Slot(&IKestrav::SetPlaybackInputStream),
      Slot(&IKestrav::SetPlaybackRewindTimeScnds),
      Slot(&IKestrav::SetStartPlaybackOffsetScnds),
      Slot(&IKestrav::SetStartPlaybackSpeed),
      Slot(&IKestrav::StartLogging),
      Slot(&IKestrav::StartPlayback),
      Slot(&IKestrav::StopLogging),
      Slot(&IKestrav::StopPlayback),
      Slot(static_cast<bool (IKestrav::*)(Client)>(&IKestrav::UnRegisterClient)),
      Slot(static_cast<bool (IKestrav::*)(Id)>(&IKestrav::UnRegisterClient)),
      Slot(&IKestrav::WriteData),
  };
  ASSERT_EQ(slots.size(), 45u);
  for (std::size_t i = 0; i < slots.size(); ++i) EXPECT_EQ(slots[i], i + 2) << i;
}

TEST(NotificationInfo, IsFiveWordsInAFixedOrder) {
  static_assert(std::is_trivially_copyable_v<NotificationInfo>);
  static_assert(std::is_standard_layout_v<NotificationInfo>);
  EXPECT_EQ(sizeof(NotificationInfo), 20u);
  EXPECT_EQ(offsetof(NotificationInfo, id), 0u);
  EXPECT_EQ(offsetof(NotificationInfo, clients), 4u);
  EXPECT_EQ(offsetof(NotificationInfo, value), 12u);
  EXPECT_EQ(offsetof(NotificationInfo, speed), 16u);
}

void ExpectInfo(const NotificationInfo& info, int id, std::uint64_t clients, std::uint32_t value,
                int speed) {
  EXPECT_EQ(static_cast<int>(info.id), id);
  EXPECT_EQ(info.clients.Mask(), clients);
  EXPECT_EQ(info.value, value);
  EXPECT_EQ(static_cast<int>(info.speed), speed);
}

TEST(NotificationInfo, IsEmptyButForWhatItsConstructorIsGiven) {
  ExpectInfo(NotificationInfo(), 255, 0, 0, 255);
  ExpectInfo(NotificationInfo(NotifyRecordingTime, 42u), 10, 0, 42, 255);
  ExpectInfo(NotificationInfo(NotifyPlaybackSpeed, PlaybackSpeed4x), 12, 0, 0, 4);
  const NotificationInfo whom(NotifyLoggingFinished, ClientIdSet(0x8000000000000001));
  ExpectInfo(whom, 9, 0x8000000000000001, 0, 255);
  NotificationInfo copy;
  copy = whom;
  ExpectInfo(copy, 9, 0x8000000000000001, 0, 255);
}

TEST(NotificationInfo, TellsWhichClientsItIsAbout) {
  std::array<std::uint32_t, 5> words{0, 1u << 5, 1u << 8, 0, 0};
  const auto info = std::bit_cast<NotificationInfo>(words);
  for (unsigned short id = 0; id < 64; ++id) {
    EXPECT_EQ(info.IsClientSelected(id), id == 5 || id == 40) << id;
  }
}

TEST(NotificationIdType, HasTheValuesThatObserversKnow) {
  const std::vector<NotificationIdType> ids = {
      NotifyLoggingStarted, NotifyLoggingStopped,  NotifyPlaybackStarted, NotifyPlaybackStopped,
      NotifyPlaybackPaused, NotifyPlaybackResumed, NotifyRewindStarted,   NotifyRewindFinished,
      NotifyEndOfLog,       NotifyLoggingFinished, NotifyRecordingTime,   NotifyPlaybackTime,
      NotifyPlaybackSpeed,  NotifyPeriodicEvent};
  for (std::size_t i = 0; i < ids.size(); ++i) EXPECT_EQ(static_cast<std::size_t>(ids[i]), i);
  EXPECT_EQ(static_cast<int>(NotifyNone), 255);
  static_assert(sizeof(NotificationIdType) == 4);
}

}  // namespace
}  // namespace kestrav::test
