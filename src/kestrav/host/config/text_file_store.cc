#include "kestrav/host/config/text_file_store.h"

#include <string>
#include <system_error>
#include <utility>

#include "kestrav/host/config/problem_list.h"
#include "kestrav/host/io/atomic_file.h"
#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/memory/mem_block.h"
#include "kestrav/host/memory/try.h"

namespace kestrav::Config {
namespace {

// false: `text` holds what is no code point.
bool ToBytes(const String& text, std::string& bytes) {
  bytes = Text::ToUtf8(text);
  return Text::FromUtf8(bytes) == text;
}

}  // namespace

// Notes a problem of the file as a whole; always false.
bool TextFileStore::Fail(std::string_view what) const {
  static_cast<void>(Memory::Try([&] { AddProblem(problems_, 0, what); }));
  return false;
}

bool TextFileStore::FailFile(std::string_view what, int error) const {
  static_cast<void>(Memory::Try([&] {
    AddProblem(problems_, 0,
               std::string(what) + ": " + std::generic_category().message(error) + '.');
  }));
  return false;
}

bool TextFileStore::Load(const String& path) {
  problems_.clear();
  document_ = {};
  loaded_ = changed_ = false;
  const bool whole = Memory::Try([&] {
    path_ = path;
    loaded_ = LoadFile(path);
  });
  return whole ? loaded_ : Fail("Memory is short.");
}

bool TextFileStore::LoadFile(const String& path) {
  if (path.empty()) return Fail("No file is named.");
  Io::BufferedFileInputStream file(1);  // read at once, past the buffer
  if (!file.Open(path)) {
    const bool is_missing = std::errc{file.Error()} == std::errc::no_such_file_or_directory;
    return is_missing || FailFile("The file cannot be read", file.Error());
  }
  if (file.Remaining() > kLongestConfigFile) return Fail("The file is longer than 16 MiB.");
  Memory::MemBlock bytes;
  if (!bytes.Resize(file.Remaining())) return Fail("Memory is short.");
  if (!file.Read(bytes.Data(), bytes.Size())) {
    return FailFile("The file cannot be read", file.Error());
  }
  document_.Parse({reinterpret_cast<const char*>(bytes.Data()), bytes.Size()}, problems_);
  return true;
}

bool TextFileStore::Save() {
  if (!loaded_) return Fail("Without a loaded file nothing is saved.");
  if (!changed_) return true;
  std::string text;
  if (!Memory::Try([&] { text = document_.Text(); })) return Fail("Memory is short.");
  if (text.size() > kLongestConfigFile) return Fail("The file would be longer than 16 MiB.");
  if (const int error = Io::ReplaceContent(path_, text); error != 0) {
    return FailFile("The file cannot be written", error);
  }
  changed_ = false;
  return true;
}

Found TextFileStore::ReadValue(const String& group, const String& entry, String& value) const {
  Found found = Found::kNothing;
  const bool whole = Memory::Try([&] {
    std::string group_bytes;
    std::string entry_bytes;
    std::string value_bytes;
    if (!ToBytes(group, group_bytes) || !ToBytes(entry, entry_bytes)) return;
    found = document_.Find(group_bytes, entry_bytes, value_bytes);
    if (found == Found::kValue) value = Text::FromUtf8(value_bytes);
  });
  return whole ? found : Found::kUnreadable;
}

void TextFileStore::ReportRefused(const String& group, const String& entry) const {
  static_cast<void>(Memory::Try([&] {
    const std::string name = Text::ToUtf8(entry);
    AddProblem(problems_, document_.LineOf(Text::ToUtf8(group), name),
               "The value of " + ShownName(name) + " is none that it can have; it is not used.");
  }));
}

bool TextFileStore::WriteValue(const String& group, const String& description, const String& entry,
                               const String& value) {
  if (!loaded_) return false;
  bool kept = false;
  const bool whole = Memory::Try([&] {
    std::string group_bytes;
    std::string entry_bytes;
    std::string value_bytes;
    if (!ToBytes(group, group_bytes) || !ToBytes(entry, entry_bytes) ||
        !ToBytes(value, value_bytes)) {
      return;
    }
    if (document_.Set(group_bytes, Text::ToUtf8(description), entry_bytes, value_bytes)) {
      changed_ = true;
    }
    kept = true;
  });
  return whole && kept;
}

}  // namespace kestrav::Config
