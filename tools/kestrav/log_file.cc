#include "log_file.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "exit_codes.h"
#include "kestrav/host/text/string.h"
#include "os.h"
#include "text.h"

namespace kestrav::tool {

String WidePath(const std::string& path) {
  String wide = Text::FromUtf8(path);
  if (Text::ToUtf8(wide) != path) throw Failure(path + ": the name of the file is not UTF-8");
  return wide;
}

SmartPtr::Ptr<LogFile::Stream> LogFile::OpenStream() const {
  auto stream = std::make_shared<Stream>();
  if (!stream->Open(WidePath(path_))) {
    const bool special = stream->Error() == EINVAL;
    throw Failure(path_ + ": " + (special ? "not a regular file" : ErrorText(stream->Error())));
  }
  return stream;
}

LogFile::LogFile(const std::string& path) : path_(path), stream_(OpenStream()) {
  std::error_code error;
  size_ = std::filesystem::file_size(path, error);
  decoder_.SetInputStream(stream_);
  const bool is_log = decoder_.Initialize();
  CheckReads();
  if (!is_log) throw Failure(path + ": not a log");
}

void LogFile::GoTo(std::uint32_t checkpoint) {
  if (decoder_.Initialize() && decoder_.SetOffset(checkpoint)) return;
  CheckReads();
  throw Failure(path_ + ": changes while it is read");
}

bool LogFile::Reopen(BinaryLogStreamHeader& header) {
  const SmartPtr::Ptr<Stream> stream = OpenStream();
  const std::uint64_t size = stream->Remaining();
  if (!header.ReadData(stream) || !stream->Seek(decoder_.Getoffset())) return false;
  size_ = size;
  stream_ = stream;
  decoder_.SetInputStream(stream_);
  return true;
}

std::string LogFile::ReadErrorText() const { return path_ + ": " + ErrorText(stream_->Error()); }

void LogFile::CheckReads() const {
  if (HasReadError()) throw Failure(ReadErrorText());
}

ClientNames::ClientNames(const Dictionary& dictionary) {
  for (const auto& [string_id, id] : dictionary) {
    std::string name;  // the reader of dictionaries makes a character of each byte
    for (const wchar_t character : string_id) name += static_cast<char>(character);
    ids_.emplace(name, id);
    names_.emplace(id, name);
  }
}

const std::string* ClientNames::Find(std::uint16_t id) const {
  const auto found = names_.find(id);
  return found == names_.end() ? nullptr : &found->second;
}

std::optional<std::uint16_t> ClientNames::Find(const std::string& name) const {
  const auto found = ids_.find(name);
  return found == ids_.end() ? std::nullopt : std::optional<std::uint16_t>(found->second);
}

std::string ClientNames::Label(std::uint16_t id) const {
  const std::string* const name = Find(id);
  return name != nullptr ? Printable(*name) : std::to_string(id);
}

bool ReadNames(std::uint16_t client_id, std::uint16_t data_id, const Memory::MemBlock& payload,
               ClientNames& names) {
  Dictionary dictionary;
  if (client_id != kInfoClientId || data_id != kDictionaryDataId ||
      !InfoClientUtility::ReadDictionaryData(dictionary, payload)) {
    return false;
  }
  names = ClientNames(dictionary);
  return true;
}

}  // namespace kestrav::tool
