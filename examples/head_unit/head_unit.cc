#include "head_unit.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "kestrav/engine/settings_file.h"
#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/thread/event.h"

namespace kestrav::example {
namespace {

constexpr const wchar_t* kConfiguration = L"/kestrav.conf";
constexpr const wchar_t* kSettings = L"/settings.txt";
constexpr const wchar_t* kLog = L"/head_unit.klog";

// A log that cannot be started sends no notification.
constexpr std::uint32_t kStartLimitMs = 5000;

bool Fail(const std::string& what) {
  std::fprintf(stderr, "head_unit: %s\n", what.c_str());
  return false;
}

bool FileExists(const String& path) {
  std::error_code error;  // what cannot be looked at is not there
  return std::filesystem::exists(Text::ToUtf8(path), error);
}

}  // namespace

HeadUnit::HeadUnit(const std::string& folder) : folder_(Text::FromUtf8(folder)) {}

HeadUnit::~HeadUnit() {
  // Clients leave before they go: the recorder holds plain pointers to them.
  for (Component* const component : Components()) {
    component->StopProducing();
    if (recorder_) recorder_->UnRegisterClient(component);
  }
  recorder_.reset();
  modules_.Shutdown();
}

bool HeadUnit::Start() {
  if (!StartModules()) return false;
  for (Component* const component : Components()) {
    if (!recorder_->RegisterClient(component)) return Fail("a client cannot be registered");
  }
  return ReadConfiguration() && SelectClients();
}

bool HeadUnit::StartModules() {
  Module::Result result = modules_.Add<KestravFactoryDef>();
  if (result) result = modules_.Add<KestravDef>();
  if (result) result = modules_.StartAll();
  if (!result) return Fail("module " + Text::ToUtf8(result.module) + " cannot be started");
  recorder_ = modules_.Get<KestravDef>();
  return true;
}

bool HeadUnit::ReadConfiguration() {
  first_start_ = !FileExists(folder_ + kConfiguration);
  const bool loaded = store_.Load(folder_ + kConfiguration);
  if (!config_.Init(recorder_.get())) return Fail("no memory for the configuration");
  // A value that cannot be read keeps its default; the recorder works all the same.
  static_cast<void>(config_.Read(store_));
  for (const auto& problem : store_.Problems()) {
    Fail("kestrav.conf:" + std::to_string(problem.line) + ": " + Text::ToUtf8(problem.what));
  }
  if (!loaded) return Fail("the configuration cannot be read");
  // The switches are only stored; whoever hosts the recorder applies them.
  return (!first_start_ || config_.SetLoggingStatus(true)) &&
         recorder_->EnableEncryption(config_.IsEncryptionEnabled());
}

// The settings file, when it selects anything, before the stored selection. Where nothing was ever
// stored, everything is recorded.
bool HeadUnit::SelectClients() {
  selection_is_whole_ = config_.ReadClientLoggingSelection(selection_);
  if (first_start_) {
    for (auto& client : selection_) client.second = true;
  }
  std::map<String, bool> settings = selection_;
  if (ReadSettingsFile(settings, (folder_ + kSettings).c_str())) selection_ = settings;
  for (const auto& [client, selected] : selection_) {
    if (selected && !recorder_->SelectForLogging(client))
      return Fail("a client cannot be selected");
  }
  return true;
}

bool HeadUnit::RunUntil(std::initializer_list<NotificationIdType> expected, std::uint32_t limit_ms,
                        const std::function<bool()>& start) {
  Thread::ManualResetEvent notified;
  // Observers are called on the recorder's own threads: note what happened and return.
  const std::uint32_t id = recorder_->notifier.Connect([&](const NotificationInfo& info) {
    if (std::find(expected.begin(), expected.end(), info.id) != expected.end()) notified.Set();
  });
  if (id == 0) return false;
  const bool started = start();
  Thread::ManualResetEvent* const events[] = {&notified};
  const bool came = started && Thread::WaitForFirst(events, limit_ms) == 0;
  recorder_->notifier.Disconnect(id);
  return came;
}

bool HeadUnit::OpenLog() {
  const auto file = std::make_shared<Io::BufferedFileOutputStream>();
  if (!file->Open(folder_ + kLog, Io::OpenMode::kCreate)) return Fail("the log cannot be written");
  return recorder_->SetLoggingOutputStream(file);
}

// Produces once the log runs, so that its first record is the dictionary.
bool HeadUnit::StartComponents() {
  for (Component* const component : Components()) {
    if (!component->StartProducing(threads_, *recorder_)) return Fail("no thread for a client");
  }
  return true;
}

bool HeadUnit::Record(std::uint32_t seconds) {
  const auto is_selected = [](const auto& client) { return client.second; };
  if (!config_.GetLoggingStatus() ||
      std::none_of(selection_.begin(), selection_.end(), is_selected)) {
    std::printf("nothing is recorded: logging is off, or no client is selected\n");
    return true;
  }
  if (!OpenLog()) return false;
  if (!RunUntil({NotifyLoggingStarted}, kStartLimitMs,
                [this] { return recorder_->StartLogging(); })) {
    return Fail("the log cannot be written");
  }
  const bool produced = StartComponents();
  Thread::ManualResetEvent never;
  Thread::ManualResetEvent* const events[] = {&never};
  if (produced) Thread::WaitForFirst(events, seconds * 1000);
  for (Component* const component : Components()) component->StopProducing();
  return RunUntil({NotifyLoggingFinished}, Time::kNoLimit,
                  [this] { return recorder_->StopLogging(); }) &&
         produced;
}

bool HeadUnit::PlayBack() {
  if (!FileExists(folder_ + kLog)) return true;  // nothing was ever recorded
  const auto file = std::make_shared<Io::BufferedFileInputStream>();
  if (!file->Open(folder_ + kLog) || !recorder_->SetPlaybackInputStream(file)) {
    return Fail("the log cannot be opened");
  }
  unsigned int length_ms = 0;
  unsigned int size = 0;
  std::vector<String> clients;
  if (!recorder_->GetPlaybackAttributes(length_ms, size, clients)) {
    return Fail("the log cannot be read");
  }
  std::printf("log: %u bytes, %u.%03u s, %zu clients\n", size, length_ms / 1000, length_ms % 1000,
              clients.size());
  for (const String& client : clients) {
    if (!recorder_->SelectForPlayback(client)) return Fail("a client cannot be played to");
  }
  // The second half of the log; a client that accepts offset data is given the first half at once.
  if (!recorder_->SetStartPlaybackOffsetScnds(length_ms / 2000) ||
      !recorder_->SetStartPlaybackSpeed(PlaybackSpeed10x)) {
    return Fail("the log cannot be played");
  }
  // A log without a record of these clients stops without coming to its end.
  if (!RunUntil({NotifyEndOfLog, NotifyPlaybackStopped}, Time::kNoLimit,
                [this] { return recorder_->StartPlayback(); })) {
    return Fail("the playback cannot be started");
  }
  recorder_->StopPlayback(true);
  return true;
}

bool HeadUnit::Save() {
  // The clients behind the value that makes no sense were not read, so they must not be written.
  if (!selection_is_whole_) return Fail("kestrav.conf is left as it is until a person mends it");
  if (!config_.WriteClientLoggingSelection() || !config_.Write(store_) || !store_.Save()) {
    return Fail("the configuration cannot be written; the old one is still there");
  }
  return true;
}

void HeadUnit::PrintSummary() const {
  for (const Component* const component :
       {static_cast<const Component*>(&bus_), static_cast<const Component*>(&climate_),
        static_cast<const Component*>(&position_)}) {
    std::printf("%-12s id %-3u recorded %5u, played back %5u\n",
                Text::ToUtf8(component->GetClientStringID()).c_str(), component->client_id,
                component->Accepted(), component->Delivered());
  }
}

}  // namespace kestrav::example
