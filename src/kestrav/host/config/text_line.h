#ifndef KESTRAV_HOST_CONFIG_TEXT_LINE_H_
#define KESTRAV_HOST_CONFIG_TEXT_LINE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kestrav::Config {

// What one line of a configuration file says. All text is UTF-8; everything here throws
// std::bad_alloc only.
struct TextLine {
  enum class Kind : std::uint8_t {
    kBlank,
    kComment,     // "# ..." or "; ..."
    kSection,     // "[name]"
    kBadSection,  // begins as a section, but has no readable name
    kEntry,       // "name = value"
    kUnreadable,
  };

  Kind kind = Kind::kBlank;
  std::string name;            // of a section or an entry
  std::size_t value_at = 0;    // of an entry: where in the line its value is written,
  std::size_t value_size = 0;  // in so many bytes
};

// Reads a line, with or without its end.
TextLine ReadLine(std::string_view line);
// The value that `written` stands for. false: it is no UTF-8, or its quotes or escapes are wrong.
[[nodiscard]] bool ReadValue(std::string_view written, std::string& value);

// How a name, a value is written so that it is read back as it is: plain where that is clear, in
// quotes otherwise.
std::string WrittenName(std::string_view name);
std::string WrittenValue(std::string_view value);

bool IsUtf8(std::string_view bytes);

}  // namespace kestrav::Config

#endif  // KESTRAV_HOST_CONFIG_TEXT_LINE_H_
