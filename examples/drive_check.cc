// Pulls a log back through polling playback and compares every payload that its clients are given
// with the recorded lines: drive_check LOG NAME=KIND:FILE...
//
// KIND says how a line became a payload: nmea and csv are the line itself, candump is the frame as
// the Linux kernel lays it out. Exits with 0 only if every line was delivered, once and in order.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "kestrav/engine/kestrav_impl.h"
#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/memory/byte_order.h"

namespace kestrav {
namespace {

constexpr std::size_t kFrameBytes = 16;
constexpr std::uint16_t kUnreadable = 98;  // the data id of a line that is recorded as it stands

std::string Hex(std::uint32_t value, int digits) {
  char text[16];
  std::snprintf(text, sizeof(text), "%0*X", digits, static_cast<unsigned int>(value));
  return text;
}

// The frame as candump writes it: id#data, or id#R when it is a request for data.
std::string FrameText(const std::uint8_t* frame) {
  constexpr std::uint32_t kLongId = 0x80000000;
  constexpr std::uint32_t kRequest = 0x40000000;
  constexpr std::uint32_t kError = 0x20000000;
  const auto id = Memory::GetLittleEndian<std::uint32_t>(frame);
  const bool is_long = (id & (kLongId | kError)) != 0;
  std::string text = is_long ? Hex(id & ~(kLongId | kRequest), 8) : Hex(id & 0x7FF, 3);
  text += '#';
  const std::uint8_t length = frame[4];
  if ((id & kRequest) != 0) return text + (length > 0 ? "R" + std::to_string(length) : "R");
  for (std::size_t i = 0; i < length && i < 8; ++i) text += Hex(frame[8 + i], 2);
  return text;
}

// What is expected of one source, and the client that is given it.
class SourceClient final : public IClient {
 public:
  SourceClient(std::string name, std::string kind, const std::string& file)
      : name_(std::move(name)), is_can_(kind == "candump"), lines_(file) {}

  bool IsOpen() const { return lines_.is_open(); }
  const std::string& Name() const { return name_; }
  std::uint64_t Count() const { return count_; }
  // What went wrong first; empty if nothing did.
  const std::string& Problem() const { return problem_; }

  // After the playback: whether the source has a line that was not delivered.
  bool HasMore() { return NextLine(false).has_value(); }

  bool AcceptsPlaybackOffsetData() override { return false; }
  String GetClientStringID() const override { return Text::FromUtf8(name_); }
  bool IsUserSelectableForLogging() override { return true; }
  bool IsUserSelectableForPlayback() override { return true; }

  bool OnPlaybackData(const ILogMessage& message) override {
    const bool is_frame = is_can_ && message.GetDataID() != kUnreadable;
    const std::optional<std::string> expected = NextLine(is_frame);
    const std::string delivered = Shown(message, is_frame);
    ++count_;
    if (!problem_.empty()) return false;
    if (!expected) {
      problem_ = "more was delivered than the source has: " + delivered;
    } else if (delivered != *expected) {
      problem_ =
          "line " + std::to_string(line_) + " is " + *expected + ", delivered was " + delivered;
    }
    return problem_.empty();
  }

 private:
  static std::string Shown(const ILogMessage& message, bool is_frame) {
    const std::uint8_t* const data = message.GetDataPointer();
    if (is_frame && message.GetDataSize() == kFrameBytes) return FrameText(data);
    return {reinterpret_cast<const char*>(data), message.GetDataSize()};
  }

  // The next line without its end, of a frame its third field; empty lines are not recorded.
  std::optional<std::string> NextLine(bool is_frame) {
    std::string line;
    while (std::getline(lines_, line)) {
      ++line_;
      if (!line.empty() && line.back() == '\r') line.pop_back();
      if (line.empty()) continue;
      std::string frame;
      if (!is_frame || !(std::istringstream(line) >> frame >> frame >> frame)) return line;
      std::transform(frame.begin(), frame.end(), frame.begin(),
                     [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
      return frame;
    }
    return std::nullopt;
  }

  const std::string name_;
  const bool is_can_;
  std::ifstream lines_;
  std::uint64_t line_ = 0;
  std::uint64_t count_ = 0;
  std::string problem_;
};

using Clients = std::vector<std::unique_ptr<SourceClient>>;

bool Fail(const std::string& text) {
  std::fprintf(stderr, "drive_check: %s\n", text.c_str());
  return false;
}

// Makes the client of NAME=KIND:FILE.
bool AddSource(const std::string& source, Clients& clients) {
  const std::size_t equals = source.find('=');
  const std::size_t colon = source.find(':', equals);
  if (equals == std::string::npos || colon == std::string::npos) {
    return Fail(source + " is not NAME=KIND:FILE");
  }
  const std::string kind = source.substr(equals + 1, colon - equals - 1);
  if (kind != "nmea" && kind != "csv" && kind != "candump") return Fail("no such kind: " + kind);
  const std::string file = source.substr(colon + 1);
  clients.push_back(std::make_unique<SourceClient>(source.substr(0, equals), kind, file));
  return clients.back()->IsOpen() || Fail("cannot open " + file);
}

bool Start(IKestrav& recorder, const std::string& log, const Clients& clients) {
  const auto file = std::make_shared<Io::BufferedFileInputStream>();
  if (!file->Open(Text::FromUtf8(log))) return Fail("cannot open " + log);
  unsigned int length_ms = 0;
  unsigned int size = 0;
  std::vector<String> offered;
  if (!recorder.SetPlaybackMode(PlaybackModePolling) || !recorder.SetPlaybackInputStream(file) ||
      !recorder.GetPlaybackAttributes(length_ms, size, offered)) {
    return Fail(log + " is no log of these clients");
  }
  for (const auto& client : clients) {
    if (!recorder.SelectForPlayback(client->GetClientStringID())) {
      return Fail(client->Name() + " is not in " + log);
    }
  }
  std::printf("%s: %.3f s, %u bytes\n", log.c_str(), length_ms / 1000.0, size);
  return recorder.StartPlayback() || Fail("the playback does not start");
}

bool Pull(IKestrav& recorder) {
  while (recorder.GetPlaybackStatus() == PlaybackPlaying) {
    if (!recorder.PlaybackNextMessage()) return false;
  }
  return true;
}

bool Report(const Clients& clients) {
  bool good = true;
  for (const auto& client : clients) {
    std::printf("%-8s %8llu payloads delivered\n", client->Name().c_str(),
                static_cast<unsigned long long>(client->Count()));
  }
  for (const auto& client : clients) {
    if (!client->Problem().empty()) {
      good = Fail(client->Name() + ": " + client->Problem());
    } else if (client->HasMore()) {
      good = Fail(client->Name() + ": not every line was delivered");
    }
  }
  return good;
}

bool Check(const std::string& log, const Clients& clients) {
  Thread::ThreadModule threads;
  KestravImpl recorder;
  if (!recorder.Init(&threads, L"DriveCheck")) return Fail("the recorder does not start");
  for (const auto& client : clients) {
    if (!recorder.RegisterClient(client.get())) return Fail(client->Name() + " is no valid name");
  }
  if (!Start(recorder, log, clients)) return false;
  const bool played = Pull(recorder);
  const bool same = Report(clients);
  if (same && !played) return Fail("the playback stopped early: the log is damaged");
  if (same) std::printf("every payload equals its source line\n");
  return same;
}

}  // namespace
}  // namespace kestrav

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: drive_check LOG NAME=KIND:FILE...\n");
    return 2;
  }
  kestrav::Clients clients;
  for (int i = 2; i < argc; ++i) {
    if (!kestrav::AddSource(argv[i], clients)) return 2;
  }
  return kestrav::Check(argv[1], clients) ? 0 : 1;
}
