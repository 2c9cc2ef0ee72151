#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fuzz/support.h"
#include "kestrav/engine/kestrav_config.h"
#include "kestrav/host/config/config_group.h"
#include "kestrav/host/config/entry.h"
#include "kestrav/host/config/problem_list.h"
#include "kestrav/host/config/text_document.h"
#include "kestrav/host/config/text_file_store.h"
#include "kestrav/host/config/text_line.h"

namespace kestrav::fuzz {
namespace {

using Config::Found;
using Config::TextDocument;
using Config::TextLine;

using Name = std::pair<std::string, std::string>;  // of the section and of the entry
using Values = std::map<Name, std::pair<Found, std::string>>;

TextDocument Parsed(std::string_view text) {
  TextDocument document;
  std::vector<Config::Problem> problems;
  document.Parse(text, problems);
  Require(problems.size() <= Config::kMostProblems, "a bad file gives a short list of problems");
  Require(document.Text() == text, "a text that was read is kept byte for byte");
  return document;
}

// The entries of a text as its lines tell them, and what the document says of each.
Values ValuesOf(std::string_view text, const TextDocument& document) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  Values values;
  std::string section;
  bool in_section = false;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const TextLine line = Config::ReadLine(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.kind == TextLine::Kind::kBadSection) in_section = false;
    if (line.kind == TextLine::Kind::kSection) {
      in_section = true;
      section = line.name;
    }
    if (line.kind != TextLine::Kind::kEntry || !in_section) continue;
    std::string value;
    const Found found = document.Find(section, line.name, value);
    Require(found != Found::kNothing, "an entry that stands in a section is found");
    values[{section, line.name}] = {found, found == Found::kValue ? value : ""};
  }
  return values;
}

// Sets a value and expects that it is there, also in the text, and that no other one changes.
void SetAndReadAgain(TextDocument& document, const Name& name, const std::string& value) {
  const std::string before = document.Text();
  Values expected = ValuesOf(before, document);
  document.Set(name.first, "what it is for\nin two lines", name.second, value);
  expected[name] = {Found::kValue, value};
  const std::string after = document.Text();
  Require(ValuesOf(after, document) == expected, "a value that is set is the only one to change");
  Require(ValuesOf(after, Parsed(after)) == expected, "what is written is what is read");
  Require(!document.Set(name.first, "", name.second, value), "a value can be set once");
  Require(document.Text() == after, "a value that is there already changes no byte");
}

void KeepItsOwnValues(std::string_view text, TextDocument& document, const Values& values) {
  for (const auto& [name, value] : values) {
    if (value.first != Found::kValue) continue;
    Require(!document.Set(name.first, "", name.second, value.second), "its own value changes none");
  }
  Require(document.Text() == text, "its own values change no byte");
}

// Sets a value of the text's own choice: one that is there, a new one, in a new section.
void ChangeAValue(std::string_view text) {
  TextDocument document = Parsed(text);
  const Values values = ValuesOf(text, document);
  KeepItsOwnValues(text, document, values);
  const std::string all = Text::ToUtf8(Text::FromUtf8(text.substr(0, 64)));
  const std::size_t choice = values.empty() ? 0 : text.size() % 4;
  const Name first = values.empty() ? Name() : values.begin()->first;
  if (choice == 1) SetAndReadAgain(document, first, all);
  if (choice == 2) SetAndReadAgain(document, {first.first, "new"}, "plain");
  if (choice == 3) SetAndReadAgain(document, {first.first, all}, "");
  SetAndReadAgain(document, {all, "new"}, all);
}

class Settings final : public Config::ConfigGroupBase {
 public:
  Settings() : ConfigGroupBase(L"Kestrav-Settings", L"Kestrav Settings") {
    const bool added =
        AddEntry(std::make_shared<Config::BoolEntry>(L"Logging", L"", false, false, true, false)) &&
        AddEntry(std::make_shared<Config::BoolEntry>(L"Encryption", L"KEY_ENCRYPTION", true, false,
                                                     true, true)) &&
        AddEntry(std::make_shared<Config::StringEntry>(L"GPS", L"", 256, L"0"));
    Require(added, "entries can be added");
  }
};

struct State {
  bool read = false;
  std::vector<std::pair<bool, String>> entries;  // kept?, value

  friend bool operator==(const State&, const State&) = default;
};

// Loads the scratch file into a group and saves it again.
State LoadAndSave() {
  Config::TextFileStore store;
  Require(store.Load(ScratchFile::Get().Path()), "a short file can be loaded");
  Settings settings;
  State state;
  state.read = settings.Read(store);
  for (const SmartPtr::Ptr<Config::Entry>& entry : settings.Entries()) {
    state.entries.emplace_back(entry->IsKept(), entry->ToText());
  }
  Require(settings.Write(store) && store.Save(), "what was loaded can be saved");
  return state;
}

void SaveTwice(Input file) {
  ScratchFile& scratch = ScratchFile::Get();
  scratch.Put(file);
  const State first = LoadAndSave();
  const Bytes saved = scratch.Content();
  Require(LoadAndSave() == first, "what is saved is what is loaded");
  Require(scratch.Content() == saved, "a second save changes no byte");
}

void ParseAsClient(std::string_view text) {
  bool selected = true;
  String control = L"before";
  const String wide = Text::FromUtf8(text);
  const bool parsed = KestravConfig::ParseClientString(selected, control, wide.c_str());
  Require(parsed || (!selected && control.empty()), "what is no selection selects nothing");
  Require(wide.find(control) != String::npos, "a control string is part of the text");
}

}  // namespace

void FuzzConfiguration(Input file) {
  const std::string_view text(reinterpret_cast<const char*>(file.data()), file.size());
  ChangeAValue(text);
  SaveTwice(file);
  ParseAsClient(text);
}

}  // namespace kestrav::fuzz
