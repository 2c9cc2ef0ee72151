#ifndef KESTRAV_HOST_CONFIG_STORE_H_
#define KESTRAV_HOST_CONFIG_STORE_H_

#include <cstdint>

#include "kestrav/host/api.h"
#include "kestrav/host/text/string.h"

namespace kestrav::Config {

enum class Found : std::uint8_t {
  kValue,
  kNothing,     // nothing is stored under this name
  kUnreadable,  // something is, but it cannot be read
};

// Where configuration is read from. For one thread at a time.
class KESTRAV_API IConfigReader {
 public:
  virtual ~IConfigReader() = default;

  // `value` is changed by kValue only.
  [[nodiscard]] virtual Found ReadValue(const String& group, const String& entry,
                                        String& value) const = 0;
  // Takes note of a stored value that makes no sense to its entry, so that a person can be told.
  virtual void ReportRefused(const String& group, const String& entry) const = 0;
};

// Where configuration is written to. For one thread at a time.
class KESTRAV_API IConfigWriter {
 public:
  virtual ~IConfigWriter() = default;

  // `description` is for a person, where a group is written for the first time. false: it cannot be
  // kept, and what was stored before still is.
  [[nodiscard]] virtual bool WriteValue(const String& group, const String& description,
                                        const String& entry, const String& value) = 0;
};

}  // namespace kestrav::Config

#endif  // KESTRAV_HOST_CONFIG_STORE_H_
