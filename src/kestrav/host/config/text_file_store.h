#ifndef KESTRAV_HOST_CONFIG_TEXT_FILE_STORE_H_
#define KESTRAV_HOST_CONFIG_TEXT_FILE_STORE_H_

#include <cstdint>
#include <string_view>
#include <vector>

#include "kestrav/host/api.h"
#include "kestrav/host/config/problem.h"
#include "kestrav/host/config/store.h"
#include "kestrav/host/config/text_document.h"
#include "kestrav/host/text/string.h"

namespace kestrav::Config {

inline constexpr std::uint32_t kLongestConfigFile = 16 * 1024 * 1024;

// Keeps groups in a UTF-8 text file that a person can edit:
//
//   [Kestrav-Settings]
//   # Kestrav Settings
//   Logging = true
//   GPS = 1,mode=3
//   " odd = name" = "with a line\nend"
//
// docs/host.md tells the format. What cannot be read is kept and told by `Problems`; only the lines
// of changed values change. No operation throws. For one thread at a time.
class KESTRAV_API TextFileStore final : public IConfigReader, public IConfigWriter {
 public:
  TextFileStore() = default;
  TextFileStore(const TextFileStore&) = delete;
  TextFileStore& operator=(const TextFileStore&) = delete;

  // Replaces everything by what the file holds; nothing if there is no such file. false: it is no
  // regular file, cannot be read, is longer than kLongestConfigFile, or memory is short. The store
  // is then empty and takes and saves nothing until a file has been loaded.
  [[nodiscard]] bool Load(const String& path);
  // Writes the loaded file if a value has changed since: the old file or the new one is there at
  // any moment. What was put into the file otherwise since `Load` is lost. false: it cannot be
  // written, `Problems` tells why, and a later call tries again.
  [[nodiscard]] bool Save();

  // What the file holds that cannot be used, by the lines of the file as it was loaded, and why a
  // call failed.
  const std::vector<Problem>& Problems() const { return problems_; }

  [[nodiscard]] Found ReadValue(const String& group, const String& entry,
                                String& value) const override;
  void ReportRefused(const String& group, const String& entry) const override;
  // false too: a name or the value holds what is no code point.
  [[nodiscard]] bool WriteValue(const String& group, const String& description, const String& entry,
                                const String& value) override;

 private:
  bool Fail(std::string_view what) const;
  bool FailFile(std::string_view what, int error) const;
  bool LoadFile(const String& path);

  String path_;
  TextDocument document_;
  mutable std::vector<Problem> problems_;
  bool loaded_ = false;
  bool changed_ = false;
};

}  // namespace kestrav::Config

#endif  // KESTRAV_HOST_CONFIG_TEXT_FILE_STORE_H_
