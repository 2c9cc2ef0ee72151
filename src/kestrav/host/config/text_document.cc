#include "kestrav/host/config/text_document.h"

#include <cstdint>
#include <utility>

#include "kestrav/host/config/problem_list.h"
#include "kestrav/host/config/text_line.h"

namespace kestrav::Config {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// Takes a line with its end off the front of `text`.
std::string_view TakeLine(std::string_view& text) {
  const std::string_view line = text.substr(0, text.find('\n'));
  const std::size_t size = line.size() < text.size() ? line.size() + 1 : line.size();
  const std::string_view whole = text.substr(0, size);
  text.remove_prefix(size);
  return whole;
}

std::string_view WithoutLineEnd(std::string_view text) {
  if (text.ends_with('\n')) text.remove_suffix(1);
  if (text.ends_with('\r')) text.remove_suffix(1);
  return text;
}

bool EndsWithBlankLine(std::string_view text) {
  if (!text.ends_with('\n')) return false;
  const std::string_view last = WithoutLineEnd(text);
  return last.empty() || last.ends_with('\n');
}

std::string Comment(const std::string& description) {
  std::string comment = "# " + description;
  for (char& c : comment) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  return comment;
}

}  // namespace

// Splits a text into the pieces of a document.
class TextDocument::Parser {
 public:
  Parser(TextDocument& document, std::vector<Problem>& problems)
      : document_(document), problems_(problems) {}

  void Take(std::string_view text) {
    while (!text.empty()) {
      ++number_;
      TakeOne(TakeLine(text));
    }
  }

 private:
  // What the last piece holds, and with it which lines may join it.
  enum class Last : std::uint8_t { kEntry, kHeader, kLoose, kUnused };

  void TakeOne(std::string_view whole) {
    const TextLine line = ReadLine(whole);
    switch (line.kind) {
      case TextLine::Kind::kBlank:
        Keep(whole, last_ == Last::kLoose, Last::kLoose);
        break;
      case TextLine::Kind::kComment:
        Keep(whole, last_ == Last::kLoose || last_ == Last::kHeader, last_);
        if (last_ != Last::kHeader) last_ = Last::kLoose;
        break;
      case TextLine::Kind::kSection:
        Section(whole, line.name);
        break;
      case TextLine::Kind::kBadSection:
        group_ = nullptr;  // it ends the section before it
        skips_ = true;
        last_ = Last::kHeader;
        Unused(whole, "The name of this section cannot be read; its entries are not used.");
        break;
      case TextLine::Kind::kEntry:
        Entry(whole, line);
        break;
      case TextLine::Kind::kUnreadable:
        Unused(whole, IsUtf8(whole) ? "This is neither a section, an entry nor a comment."
                                    : "This line is no valid UTF-8.");
        break;
    }
  }

  void Keep(std::string_view whole, bool joins, Last kind) {
    if (joins) {
      document_.pieces_.back() += whole;
    } else {
      document_.pieces_.emplace_back(whole);
    }
    last_ = kind;
  }

  // A line of a section that is of no use but stays where it is.
  void Unused(std::string_view whole, const std::string& why) {
    Keep(whole, last_ == Last::kUnused, Last::kUnused);
    if (group_ != nullptr) group_->end = std::prev(document_.pieces_.end());
    if (!why.empty()) AddProblem(problems_, number_, why);
  }

  void Section(std::string_view whole, const std::string& name) {
    Keep(whole, false, Last::kHeader);
    group_ = &document_.groups_[name];
    group_->end = std::prev(document_.pieces_.end());
    skips_ = false;
  }

  void Entry(std::string_view whole, const TextLine& line) {
    if (group_ == nullptr) {
      Unused(whole, skips_ ? "" : "This entry stands before any section and is not used.");
      return;
    }
    const auto [place, is_new] = group_->entries.try_emplace(line.name);
    if (!is_new) {
      Unused(whole, "The entry " + ShownName(line.name) + " stands here again; the one in line " +
                        std::to_string(place->second.line) + " counts.");
      return;
    }
    Keep(whole, false, Last::kEntry);
    group_->end = std::prev(document_.pieces_.end());
    place->second = {group_->end, line.value_at, line.value_size, number_};
    std::string value;
    const std::string_view written = whole.substr(line.value_at, line.value_size);
    if (ReadValue(written, value)) return;
    AddProblem(problems_, number_,
               "The value of " + ShownName(line.name) +
                   (IsUtf8(written) ? " has wrong quotes or escapes." : " is no valid UTF-8."));
  }

  TextDocument& document_;
  std::vector<Problem>& problems_;
  Group* group_ = nullptr;
  bool skips_ = false;  // the entries of a section without a readable name
  Last last_ = Last::kEntry;
  std::size_t number_ = 0;
};

void TextDocument::Parse(std::string_view text, std::vector<Problem>& problems) {
  TextDocument parsed;
  if (text.starts_with(kByteOrderMark)) {
    parsed.byte_order_mark_ = kByteOrderMark;
    text.remove_prefix(kByteOrderMark.size());
  }
  if (text.substr(0, text.find('\n')).ends_with('\r')) parsed.line_end_ = "\r\n";
  Parser(parsed, problems).Take(text);
  // Swaps of lists keep their iterators.
  pieces_.swap(parsed.pieces_);
  groups_.swap(parsed.groups_);
  byte_order_mark_ = parsed.byte_order_mark_;
  line_end_ = parsed.line_end_;
}

const TextDocument::Entry* TextDocument::FindEntry(const std::string& group,
                                                   const std::string& entry) const {
  const auto in = groups_.find(group);
  if (in == groups_.end()) return nullptr;
  const auto found = in->second.entries.find(entry);
  return found == in->second.entries.end() ? nullptr : &found->second;
}

Found TextDocument::Find(const std::string& group, const std::string& entry,
                         std::string& value) const {
  const Entry* const found = FindEntry(group, entry);
  if (found == nullptr) return Found::kNothing;
  const std::string_view line = *found->piece;
  return ReadValue(line.substr(found->value_at, found->value_size), value) ? Found::kValue
                                                                           : Found::kUnreadable;
}

std::size_t TextDocument::LineOf(const std::string& group, const std::string& entry) const {
  const Entry* const found = FindEntry(group, entry);
  return found != nullptr ? found->line : 0;
}

bool TextDocument::Set(const std::string& group, const std::string& description,
                       const std::string& entry, const std::string& value) {
  const auto in = groups_.find(group);
  if (in == groups_.end()) {
    AddGroup(group, description, entry, value);
    return true;
  }
  const auto found = in->second.entries.find(entry);
  if (found == in->second.entries.end()) {
    AddEntry(in->second, entry, value);
    return true;
  }
  std::string before;
  if (Find(group, entry, before) == Found::kValue && before == value) return false;
  Entry& place = found->second;
  const std::string written = WrittenValue(value);
  place.piece->replace(place.value_at, place.value_size, written);
  place.value_size = written.size();
  return true;
}

// `line` behind `before`, the end of a section: with an end of its own, unless the text so far has
// none at its end, or half of one.
std::string TextDocument::WholeLine(std::string_view before, const std::string& line) const {
  if (before.empty() || before.ends_with('\n')) return std::string(line).append(line_end_);
  return std::string(before.ends_with('\r') ? "\n" : line_end_) + line;
}

void TextDocument::AddEntry(Group& group, const std::string& name, const std::string& value) {
  const std::string written = WrittenValue(value);
  Pieces line{WholeLine(*group.end, WrittenName(name) + " = " + written)};
  const std::size_t end = line.front().ends_with('\n') ? line_end_.size() : 0;
  const Entry entry{line.begin(), line.front().size() - end - written.size(), written.size(), 0};
  group.entries.emplace(name, entry);
  pieces_.splice(std::next(group.end), line);
  group.end = entry.piece;
}

void TextDocument::AddGroup(const std::string& name, const std::string& description,
                            const std::string& entry, const std::string& value) {
  const std::string_view before = pieces_.empty() ? std::string_view() : pieces_.back();
  std::string header = '[' + WrittenName(name) + ']';
  if (!before.empty() && !EndsWithBlankLine(before)) header.insert(0, line_end_);
  if (!description.empty()) header.append(line_end_).append(Comment(description));
  TextDocument added;
  added.line_end_ = line_end_;
  added.pieces_.push_back(WholeLine(before, header));
  Group group{added.pieces_.begin(), {}};
  added.AddEntry(group, entry, value);
  groups_.emplace(name, std::move(group));
  pieces_.splice(pieces_.end(), added.pieces_);
}

std::string TextDocument::Text() const {
  std::string text(byte_order_mark_);
  for (const std::string& piece : pieces_) text += piece;
  return text;
}

}  // namespace kestrav::Config
