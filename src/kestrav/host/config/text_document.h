#ifndef KESTRAV_HOST_CONFIG_TEXT_DOCUMENT_H_
#define KESTRAV_HOST_CONFIG_TEXT_DOCUMENT_H_

#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "kestrav/host/config/problem.h"
#include "kestrav/host/config/store.h"

namespace kestrav::Config {

// The text of a configuration file, in which values are looked up and changed. What is not changed
// stays byte for byte. All text is UTF-8; operations throw std::bad_alloc only.
class TextDocument {
 public:
  TextDocument() = default;
  TextDocument(TextDocument&&) = default;
  TextDocument& operator=(TextDocument&&) = default;

  // Replaces the whole text. What cannot be used of it is added to `problems`.
  void Parse(std::string_view text, std::vector<Problem>& problems);

  Found Find(const std::string& group, const std::string& entry, std::string& value) const;
  // The number of an entry's line in the text that was parsed; 0: there was none.
  std::size_t LineOf(const std::string& group, const std::string& entry) const;
  // Whether this changed the text. A new entry ends its section, a new section, with `description`
  // as a comment, ends the text. When it throws, nothing has changed.
  bool Set(const std::string& group, const std::string& description, const std::string& entry,
           const std::string& value);

  std::string Text() const;

 private:
  class Parser;
  using Pieces = std::list<std::string>;
  struct Entry {
    Pieces::iterator piece;
    std::size_t value_at = 0;
    std::size_t value_size = 0;
    std::size_t line = 0;
  };
  struct Group {
    Pieces::iterator end;  // new entries stand behind it
    std::map<std::string, Entry> entries;
  };

  const Entry* FindEntry(const std::string& group, const std::string& entry) const;
  void AddGroup(const std::string& name, const std::string& description, const std::string& entry,
                const std::string& value);
  void AddEntry(Group& group, const std::string& name, const std::string& value);
  std::string WholeLine(std::string_view before, const std::string& line) const;

  // The whole text in order: an entry's line each, and between them what is never changed.
  Pieces pieces_;
  std::map<std::string, Group> groups_;
  std::string_view byte_order_mark_;
  std::string_view line_end_ = "\n";
};

}  // namespace kestrav::Config

#endif  // KESTRAV_HOST_CONFIG_TEXT_DOCUMENT_H_
