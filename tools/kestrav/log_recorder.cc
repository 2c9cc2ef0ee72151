#include "log_recorder.h"

#include <chrono>
#include <filesystem>
#include <system_error>
#include <thread>

#include "exit_codes.h"
#include "kestrav/format/log_message.h"
#include "kestrav/format/record_header.h"
#include "kestrav/format/stream_header.h"
#include "kestrav/host/text/string.h"
#include "log_file.h"
#include "os.h"
#include "text.h"

namespace kestrav::tool {

class LogRecorder::Client final : public IClient {
 public:
  explicit Client(String string_id) : string_id_(std::move(string_id)) {}

  bool AcceptsPlaybackOffsetData() override { return false; }
  String GetClientStringID() const override { return string_id_; }
  bool IsUserSelectableForLogging() override { return true; }
  bool IsUserSelectableForPlayback() override { return true; }

 private:
  const String string_id_;
};

LogRecorder::LogRecorder(const std::string& path, const std::string& name, bool plain,
                         const Io::FileOutputSettings& settings)
    : path_(path), name_(name), stream_(std::make_shared<Io::BufferedFileOutputStream>(settings)) {
  if (!stream_->Open(WidePath(path), Io::OpenMode::kCreate)) {
    const bool special = stream_->Error() == static_cast<int>(std::errc::invalid_argument);
    Fail(special ? "not a regular file" : ErrorText(stream_->Error()));
  }
  const auto on_notification = [this](const NotificationInfo& info) {
    if (info.id != NotifyLoggingFinished) return;
    const std::lock_guard lock(mutex_);
    finished_ = true;
    changed_.notify_all();
  };
  if (engine_.notifier.Connect(on_notification) == 0 || !engine_.Init(&threads_, L"kestrav") ||
      !engine_.EnableEncryption(!plain) || !engine_.SetLoggingOutputStream(stream_)) {
    Fail("the recorder cannot be set up");
  }
}

void LogRecorder::Fail(const std::string& reason) const { throw Failure(name_ + ": " + reason); }

std::size_t LogRecorder::AddClient(const std::string& name) {
  const String string_id = Text::FromUtf8(name);
  clients_.push_back(std::make_unique<Client>(string_id));
  if (!engine_.RegisterClient(clients_.back().get()) || !engine_.SelectForLogging(string_id)) {
    Fail("there is no room for the client '" + name + "'");
  }
  return clients_.size() - 1;
}

void LogRecorder::Start() {
  if (!engine_.StartLogging()) Fail("the recording cannot be started");
  // What is written earlier would come before the dictionary.
  while (engine_.GetLoggingStatus() == LoggingStarting) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  if (engine_.GetLoggingStatus() == LoggingRunning) return;
  CheckWrites();
  Fail("the log cannot be started");
}

void LogRecorder::Write(std::size_t client, std::uint16_t data_id, std::string_view payload) {
  auto message = std::make_shared<LogMessage>();
  const bool written = message->Assign(clients_[client]->client_id, data_id,
                                       reinterpret_cast<const std::uint8_t*>(payload.data()),
                                       static_cast<std::uint32_t>(payload.size()), 0) &&
                       engine_.WriteData(message);
  if (!written) Fail("a record was refused");
  ++records_;
  payload_bytes_ += payload.size();
}

void LogRecorder::WaitUntilFinished() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return finished_; });
}

void LogRecorder::CheckWrites() const {
  if (stream_->Error() != 0) Fail(ErrorText(stream_->Error()));
}

void LogRecorder::Finish() {
  if (engine_.StopLogging()) WaitUntilFinished();
  const bool closed = stream_->Close();
  if (const LoggingCounters counters = Counters(); counters.Dropped() > 0) {
    Fail((stream_->Error() != 0 ? ErrorText(stream_->Error()) : "memory is short") + "; " +
         Counted(counters.Dropped(), "record is", "records are") + " missing");
  }
  if (!closed) Fail(stream_->Error() != 0 ? ErrorText(stream_->Error()) : "may not be on the disk");
  CheckFile();
}

// The final header tells how many bytes the recorder wrote.
void LogRecorder::CheckFile() const {
  auto file = std::make_shared<Io::BufferedFileInputStream>();
  BinaryLogStreamHeader header;
  const bool read = file->Open(WidePath(path_)) && header.ReadData(file);
  const std::uint64_t own_bytes = kStreamHeaderSize + records_ * kRecordHeaderSize + payload_bytes_;
  if (!read || header.stream_length != std::filesystem::file_size(path_) ||
      header.stream_length < own_bytes) {
    Fail("not everything could be written");
  }
}

}  // namespace kestrav::tool
