#include "player.h"

#include <algorithm>
#include <set>
#include <utility>

#include "exit_codes.h"
#include "kestrav/format/decoder.h"
#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/text/string.h"
#include "log_file.h"
#include "log_index.h"
#include "os.h"
#include "playback_gap.h"
#include "text.h"

namespace kestrav::tool {
namespace {

using Io::BufferedFileInputStream;

std::shared_ptr<BufferedFileInputStream> OpenFile(const std::string& path) {
  auto file = std::make_shared<BufferedFileInputStream>();
  if (!file->Open(WidePath(path))) {
    throw Failure(path + ": " + ErrorText(file->Error()));
  }
  return file;
}

// Without a dictionary a log can be played to clients with the fixed ids that its header names.
Dictionary NamesByMask(std::uint16_t mask) {
  Dictionary names;
  for (std::uint16_t id = 0; id < 16; ++id) {
    const bool recorded = (mask >> id & 1) != 0 && id != kInfoClientId;
    if (recorded) names.emplace(L"Client " + std::to_wstring(id), id);
  }
  return names;
}

}  // namespace

class Player::Client final : public IClient {
 public:
  Client(String string_id, std::uint16_t id, bool history, PlayOutput& output)
      : IClient(id),
        string_id_(std::move(string_id)),
        name_(Text::ToUtf8(string_id_)),
        history_(history),
        output_(output) {}

  const std::string& Name() const { return name_; }

  bool AcceptsPlaybackOffsetData() override { return history_; }
  String GetClientStringID() const override { return string_id_; }
  bool IsUserSelectableForLogging() override { return false; }
  bool IsUserSelectableForPlayback() override { return true; }
  bool OnPlaybackData(const ILogMessage& message) override {
    return output_.Deliver(name_, dynamic_cast<const LogMessage&>(message));
  }

 private:
  const String string_id_;
  const std::string name_;
  const bool history_;
  PlayOutput& output_;
};

Player::Log Player::ReadLog(const std::string& path) {
  BinaryDecoder decoder(OpenFile(path));
  if (!decoder.Initialize()) throw Failure(path + ": not a log");
  Log log;
  log.header = decoder.StreamHeader();
  LogMessage first;
  Memory::MemBlock payload;
  const bool found = decoder.GetNextLogRecord(first) == kSuccess &&
                     first.GetClientID() == kInfoClientId &&
                     first.GetDataID() == kDictionaryDataId &&
                     payload.Assign(first.GetDataPointer(), first.GetDataSize());
  if (found) static_cast<void>(InfoClientUtility::ReadDictionaryData(log.dictionary, payload));
  return log;
}

Player::Player(const std::string& path, const Log& log, const PlayerSettings& settings,
               PlayOutput& output)
    : path_(path), output_(output) {
  if (!engine_.Init(&threads_, L"kestrav") || !engine_.SetPlaybackMode(settings.mode)) {
    Fail("the recorder cannot be set up");
  }
  AddClients(log, settings);
  if (settings.mode != PlaybackModePassThrough) OpenLog(log, settings);
  ApplySettings(settings);
  const auto on_notification = [this](const NotificationInfo& info) {
    output_.Notify(info);
    if (info.id == NotifyEndOfLog) ended_ = true;
    if (info.id == NotifyPlaybackStopped) stopped_ = true;
    if ((IsOver() || output_.IsBroken()) && on_change_) on_change_();
  };
  if (engine_.notifier.Connect(on_notification) == 0) Fail("the recorder cannot be set up");
}

Player::~Player() = default;

void Player::Fail(const std::string& reason) const { throw Failure(path_ + ": " + reason); }

void Player::Warn(const std::string& text) { output_.Say("kestrav: play: " + path_ + ": " + text); }

void Player::AddClients(const Log& log, const PlayerSettings& settings) {
  const bool named = !log.dictionary.empty();
  if (!named) {
    Warn("its first record holds no names, so only clients with the ids 0 to 15 can be played to");
  }
  const Dictionary names = named ? log.dictionary : NamesByMask(log.header.client_selection);
  for (const auto& [string_id, id] : names) {
    if (string_id == InfoClientImpl::s_InfoClientString) continue;
    auto client =
        std::make_unique<Client>(string_id, named ? kNoId : id, settings.history, output_);
    const auto& wanted = settings.clients;
    const bool is_wanted = wanted.empty() || std::ranges::count(wanted, client->Name()) > 0;
    if (!is_wanted) continue;
    if (engine_.RegisterClient(client.get())) {
      clients_.push_back(std::move(client));
    } else {
      Warn("nothing is played to '" + Printable(client->Name()) +
           "', which is no name of a client or one too many");
    }
  }
  for (const std::string& name : settings.clients) {
    const auto is_named = [&name](const auto& client) { return client->Name() == name; };
    if (std::ranges::none_of(clients_, is_named)) Fail("there is no client '" + name + "' in it");
  }
  if (clients_.empty()) Fail("there is no client in it to play to");
  std::size_t width = 0;
  for (const auto& client : clients_) width = std::max(width, Printable(client->Name()).size());
  output_.SetClientWidth(width);
}

// The index knows where the records begin that --from asks for. With --history all are wanted.
std::optional<Gap> Player::SkippedByIndex(const Log& log, const PlayerSettings& settings,
                                          const std::vector<String>& played) const {
  if (settings.mode != PlaybackModeNormal || !settings.offset_scnds || settings.history) return {};
  LogFile file(path_);
  const std::optional<LogIndex> index = OpenIndex(file);
  if (!index) return {};
  std::set<std::uint16_t> ids;
  for (const auto& client : clients_) {
    const String string_id = client->GetClientStringID();
    if (std::ranges::count(played, string_id) == 0) continue;
    const auto named = log.dictionary.find(string_id);
    ids.insert(named != log.dictionary.end() ? named->second : client->client_id);
  }
  return FindGap(*index, log.header.start_clock, *settings.offset_scnds, ids);
}

void Player::OpenLog(const Log& log, const PlayerSettings& settings) {
  unsigned int length_ms = 0;
  unsigned int size = 0;
  std::vector<String> offered;
  const auto stream = std::make_shared<GapStream>(OpenFile(path_));
  if (!engine_.SetPlaybackInputStream(stream)) Fail("the log cannot be opened");
  if (!engine_.GetPlaybackAttributes(length_ms, size, offered)) {
    Fail(size == 0 ? "the recording was not finished, its header lacks length and duration; "
                     "kestrav repair works them out"
                   : "there is no client in it to play to");
  }
  for (const String& string_id : offered) {
    if (!engine_.SelectForPlayback(string_id)) Fail("a client cannot be selected");
  }
  if (settings.offset_scnds && !engine_.SetStartPlaybackOffsetScnds(*settings.offset_scnds)) {
    Fail("--from " + std::to_string(*settings.offset_scnds) + " is beyond its end at " +
         std::to_string(length_ms / 1000) + " s");
  }
  // The engine has asked for its attributes; what comes next is the playback.
  if (const auto gap = SkippedByIndex(log, settings, offered)) stream->LeaveOutOnce(*gap);
}

void Player::ApplySettings(const PlayerSettings& settings) {
  if (settings.mode != PlaybackModeNormal) return;
  engine_.SetPlaybackRewindTimeScnds(settings.rewind_scnds);
  if (!engine_.SetStartPlaybackSpeed(settings.speed)) Fail("the speed is refused");
}

void Player::Start(std::function<void()> on_change) {
  on_change_ = std::move(on_change);
  output_.Begin();
  if (!engine_.StartPlayback()) Fail("the playback cannot be started");
}

void Player::Poll(const std::function<bool()>& interrupted) {
  Start({});
  while (!IsOver() && !interrupted()) {
    if (!engine_.PlaybackNextMessage()) break;
  }
  engine_.StopPlayback(false);
}

// What is damaged is not handed in: one such piece would end the playback. So does the gap that it
// leaves, if the log is scrambled.
void Player::PassThrough(const std::function<bool()>& interrupted) {
  BinaryDecoder walk(OpenFile(path_));
  const auto file = OpenFile(path_);
  Memory::MemBlock piece;
  const auto hand_in = [&](std::uint32_t at, std::uint32_t size) {
    return piece.Resize(size) && file->Seek(at) && file->Read(piece.Data(), size) &&
           engine_.PlaybackData(piece);
  };
  Start({});
  bool taken = walk.Initialize() && hand_in(0, kStreamHeaderSize);
  ResultCode code = kSuccess;
  LogMessage record;
  while (taken && !interrupted()) {
    code = walk.GetNextLogRecord(record);
    if (code != kSuccess) break;
    const std::uint32_t size = kRecordHeaderSize + record.GetDataSize();
    taken = hand_in(walk.Getoffset() - size, size);
  }
  ended_ = taken && code == kNotEnoughData;
  engine_.StopPlayback(false);
}

}  // namespace kestrav::tool
