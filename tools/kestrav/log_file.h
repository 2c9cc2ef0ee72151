#ifndef KESTRAV_TOOLS_LOG_FILE_H_
#define KESTRAV_TOOLS_LOG_FILE_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "kestrav/clients/dictionary_record.h"
#include "kestrav/format/decoder.h"
#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/memory/ptr.h"

namespace kestrav::tool {

// A file's name as the library takes it. Throws `Failure` when it is not UTF-8.
String WidePath(const std::string& path);

// An opened log, standing behind its header.
class LogFile {
 public:
  // Throws `Failure` when the file cannot be opened or is no log.
  explicit LogFile(const std::string& path);

  const std::string& Path() const { return path_; }
  std::uint64_t Size() const { return size_; }
  const BinaryLogStreamHeader& Header() const { return decoder_.StreamHeader(); }
  BinaryDecoder& Decoder() { return decoder_; }

  // A record's time in milliseconds since the start of the log.
  std::uint32_t SinceStart(std::uint32_t time_stamp) const {
    return time_stamp - Header().start_clock;
  }

  // Stands at a checkpoint of the log's index, as if all before it had been read. Throws `Failure`
  // when the file does not reach there any more.
  void GoTo(std::uint32_t checkpoint);

  // Opens the file anew, with what was written to it since; the decoder stays where it stands and
  // keeps its header, `header` is what the file has now. false: the file does not reach there any
  // more, or is no log, and nothing changed. Throws `Failure` when it cannot be opened.
  [[nodiscard]] bool Reopen(BinaryLogStreamHeader& header);

  // Whether the file could not be read, and how `CheckReads` says it.
  bool HasReadError() const { return stream_->Error() != 0; }
  std::string ReadErrorText() const;
  // Throws `Failure` when the file could not be read: what looked like damage may be none.
  void CheckReads() const;

 private:
  using Stream = Io::BufferedFileInputStream;

  SmartPtr::Ptr<Stream> OpenStream() const;

  const std::string path_;
  std::uint64_t size_ = 0;
  SmartPtr::Ptr<Stream> stream_;
  BinaryDecoder decoder_;
};

// The names of a log's clients.
class ClientNames {
 public:
  ClientNames() = default;
  explicit ClientNames(const Dictionary& dictionary);

  bool IsEmpty() const { return ids_.empty(); }
  const std::map<std::string, std::uint16_t>& Ids() const { return ids_; }
  // Null: the dictionary has no client of this id.
  const std::string* Find(std::uint16_t id) const;
  std::optional<std::uint16_t> Find(const std::string& name) const;
  // The name, or the id in decimal when there is none; fit for a terminal.
  std::string Label(std::uint16_t id) const;

 private:
  std::map<std::string, std::uint16_t> ids_;  // the names as the bytes that the log holds
  std::map<std::uint16_t, std::string> names_;
};

// Reads the names out of a record that is one of the info client's dictionaries. false: it is none,
// or its content makes no sense.
bool ReadNames(std::uint16_t client_id, std::uint16_t data_id, const Memory::MemBlock& payload,
               ClientNames& names);

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_LOG_FILE_H_
