#include "components.h"

#include <cstdio>
#include <string>
#include <string_view>

#include "kestrav/host/memory/byte_order.h"
#include "kestrav/host/memory/try.h"
#include "kestrav/host/text/integer.h"

namespace kestrav::example {
namespace {

bool SetText(Memory::MemBlock& payload, const char* text) {
  const std::string_view bytes(text);
  return payload.Assign(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                        static_cast<std::uint32_t>(bytes.size()));
}

}  // namespace

bool Component::StartProducing(Thread::ThreadModule& threads, IKestrav& recorder) {
  recorder_ = &recorder;
  accepted_ = delivered_ = 0;
  return SetName(name_) && Start(threads);
}

void Component::StopProducing() {
  Quit();
  WaitForCompletion();
}

void Component::Main() {
  Memory::MemBlock payload;
  Thread::ManualResetEvent* const quit[] = {&QuitEvent()};
  for (std::uint32_t count = 0; Thread::WaitForFirst(quit, interval_ms_) == Thread::kWaitTimedOut;
       ++count) {
    Sample(count, payload);
    // A message belongs to the recorder from `WriteData` on, so each sample gets a new one.
    const auto message = Memory::MakeShared<LogMessage>();
    if (message && message->Assign(client_id, kSample, payload.Data(), payload.Size(), 0) &&
        recorder_->WriteData(message)) {
      ++accepted_;
    }
  }
}

bool Component::OnPlaybackData(const ILogMessage& message) {
  if (message.GetDataID() == kSample) ++delivered_;
  return true;
}

void VehicleBus::Sample(std::uint32_t count, Memory::MemBlock& payload) {
  if (payload.Resize(8)) Memory::PutLittleEndian<std::uint64_t>(payload.Data(), count);
}

bool Climate::HandleConfigControlString(const String& control) {
  constexpr std::wstring_view kInterval = L"interval=";
  constexpr std::uint32_t kLongest = 10'000;
  std::uint32_t interval_ms = 0;
  if (!control.starts_with(kInterval) ||
      !Text::ReadUnsigned(std::wstring_view(control).substr(kInterval.size()), interval_ms,
                          kLongest) ||
      interval_ms == 0) {
    return false;
  }
  SetInterval(interval_ms);
  return true;
}

void Climate::Sample(std::uint32_t count, Memory::MemBlock& payload) {
  char text[32];
  std::snprintf(text, sizeof(text), "inside %u.%u C", 18 + count % 5, count % 10);
  static_cast<void>(SetText(payload, text));
}

void Position::Sample(std::uint32_t count, Memory::MemBlock& payload) {
  char text[48];
  std::snprintf(text, sizeof(text), "37.40%04u,-122.08%04u", count % 10'000, count % 10'000);
  static_cast<void>(SetText(payload, text));
}

}  // namespace kestrav::example
