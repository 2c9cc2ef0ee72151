#include "kestrav/format/header_repair.h"

#include <utility>

#include "kestrav/format/decoder.h"
#include "kestrav/format/stream_header.h"
#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/memory/try.h"
#include "kestrav/host/text/string.h"

namespace kestrav {
namespace {

constexpr std::uint32_t kBufferBytes = 4096;

bool ScanFile(const String& path, BinaryLogStreamHeader& header) {
  const auto file = Memory::MakeShared<Io::BufferedFileInputStream>(kBufferBytes);
  if (!file || !file->Open(path)) return false;
  BinaryDecoder decoder(file);
  return decoder.ScanStreamHeaderInfo(header) && file->Error() == 0;
}

bool WriteFile(const String& path, const BinaryLogStreamHeader& header) {
  const auto file = Memory::MakeShared<Io::BufferedFileOutputStream>(kBufferBytes);
  if (!file || !file->Open(path, Io::OpenMode::kInPlace)) return false;
  // The buffer holds all of the header, so the file gets it in one write.
  const bool written = header.WriteData(file) == kStreamHeaderSize;
  return file->Close() && written;
}

}  // namespace

bool RepairBinaryLogStreamHeader(const wchar_t* path) {
  String file;
  if (path == nullptr || *path == L'\0' || !Memory::Try([&] { file = path; })) return false;
  BinaryLogStreamHeader header;
  return ScanFile(file, header) && WriteFile(file, header);
}

}  // namespace kestrav
