// Checks that the straightforward version does what the library does, so that comparing their
// speed means something: same bytes written, same messages read. Exits with 1 and says why if not.
#include <cstdio>
#include <fstream>
#include <iterator>

#include "baseline/reader.h"
#include "baseline/recorder.h"
#include "baseline/writer.h"
#include "kestrav/format/decoder.h"
#include "kestrav/format/encoder.h"
#include "kestrav/host/time/manual_source.h"
#include "support/logs.h"
#include "support/product.h"
#include "support/settings.h"

namespace kestrav::bench {
namespace {

constexpr int kMessages = 1000;
constexpr std::uint32_t kStartMs = 1000;

std::string Content(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::uint8_t> PayloadOf(int i) {
  return Payload(static_cast<std::uint32_t>(1 + i * i % 300), static_cast<std::uint32_t>(i));
}

std::uint32_t TimeOf(int i) { return kStartMs + static_cast<std::uint32_t>(i) / 3; }

bool WriteWithLibrary(const std::string& path, bool scrambled) {
  const auto stream = OpenOutput(path, Io::OpenMode::kCreate);
  BinaryEncoder encoder(stream);
  encoder.EnableEncryption(scrambled);
  if (stream == nullptr || !encoder.Start(1 << 3)) return false;
  for (int i = 0; i < kMessages; ++i) {
    const auto payload = PayloadOf(i);
    const auto message = MakeMessage();
    if (!message->Assign(3, 7, payload.data(), static_cast<std::uint32_t>(payload.size()),
                         TimeOf(i)) ||
        !encoder.WriteBinaryLogRecord(message)) {
      return false;
    }
  }
  encoder.Stop();
  return stream->Close();
}

bool WriteStraightforwardly(const std::string& path, const baseline::StreamHeader& header) {
  baseline::Writer writer;
  if (!writer.Open(path, header)) return false;
  for (int i = 0; i < kMessages; ++i) {
    baseline::Message message{3, 7, TimeOf(i), PayloadOf(i)};
    if (!writer.Write(message)) return false;
  }
  return writer.Close(0);
}

bool IsMessage(int i, const std::uint8_t* data, std::size_t size) {
  const auto payload = PayloadOf(i);
  return payload.size() == size && std::equal(payload.begin(), payload.end(), data);
}

const char* CompareWriters(bool scrambled) {
  const ScratchFile library("library");
  const ScratchFile straightforward("straightforward");
  if (!WriteWithLibrary(library.Path(), scrambled)) return "the library cannot write";
  const std::string expected = Content(library.Path());
  baseline::StreamHeader header;
  if (!baseline::Parse(reinterpret_cast<const std::uint8_t*>(expected.data()), header)) {
    return "no stream header";
  }
  if ((header.header_key != 0) != scrambled) return "scrambled by mistake";
  if (!WriteStraightforwardly(straightforward.Path(), header)) return "cannot write";
  if (Content(straightforward.Path()) != expected) return "the bytes differ";
  baseline::Reader reader;
  baseline::Message message;
  if (!reader.Open(library.Path())) return "cannot read";
  for (int i = 0; i < kMessages; ++i) {
    if (!reader.Next(message)) return "a message is missing";
    if (!IsMessage(i, message.payload.data(), message.payload.size())) return "a message differs";
  }
  return reader.Next(message) ? "a message too many" : nullptr;
}

const char* CheckRecorder() {
  const ScratchFile file("recorder");
  baseline::StreamHeader header;
  header.header_key = 1;
  header.data_key = 255;
  baseline::Recorder recorder;
  if (!recorder.Start(file.Path(), header)) return "the recorder cannot start";
  for (int i = 0; i < kMessages; ++i) {
    recorder.Write(std::make_shared<baseline::Message>(baseline::Message{3, 7, 0, PayloadOf(i)}));
  }
  if (!recorder.Finish()) return "the recorder cannot write";
  BinaryDecoder decoder(OpenInput(file.Path()));
  LogMessage message;
  if (!decoder.Initialize()) return "the recorder wrote no log";
  for (int i = 0; i < kMessages; ++i) {
    if (decoder.GetNextLogRecord(message) != kSuccess) return "a recorded message is missing";
    if (!IsMessage(i, message.GetDataPointer(), message.GetDataSize())) {
      return "a recorded message differs";
    }
  }
  return decoder.GetNextLogRecord(message) == kSuccess ? "a recorded message too many" : nullptr;
}

int Main() {
  Time::ManualSource clock(kStartMs);
  Time::ISource* const before = Time::SetSource(&clock);
  const char* wrong = CompareWriters(false);
  if (wrong == nullptr) wrong = CompareWriters(true);
  if (wrong == nullptr) wrong = CheckRecorder();
  Time::SetSource(before);
  if (wrong != nullptr) std::fprintf(stderr, "same_bytes: %s\n", wrong);
  return wrong == nullptr ? 0 : 1;
}

}  // namespace
}  // namespace kestrav::bench

int main() { return kestrav::bench::Main(); }
