#ifndef KESTRAV_HOST_CONFIG_ENTRY_H_
#define KESTRAV_HOST_CONFIG_ENTRY_H_

#include <cstddef>

#include "kestrav/host/api.h"
#include "kestrav/host/text/string.h"

namespace kestrav::Config {

// One named value of a configuration group. Operations that need memory throw std::bad_alloc only.
class KESTRAV_API Entry {
 public:
  Entry(const Entry&) = delete;
  Entry& operator=(const Entry&) = delete;
  virtual ~Entry() = default;

  const String& Name() const { return name_; }
  // The name under which a store keeps the value: the key, or the name when there is no key.
  const String& StoredName() const { return key_.empty() ? name_ : key_; }

  // The value as a store keeps it.
  virtual String ToText() const = 0;
  // Takes a stored value. false: it makes no sense here, and the value stays as it was.
  [[nodiscard]] bool Load(const String& text);
  // Back to the default, for a value that is stored nowhere. Without a default nothing changes.
  virtual void Reset() {}

  // A stored value that could not be taken is not overwritten before this value has been changed.
  void Keep() { kept_ = true; }
  bool IsKept() const { return kept_; }

 protected:
  Entry(String name, String key);

  virtual bool FromText(const String& text) = 0;
  void Changed() { kept_ = false; }

 private:
  const String name_;
  const String key_;
  bool kept_ = false;
};

// On or off; stored as "true" or "false", also read from "1", "0", "yes", "no", "on", "off" in
// any case.
class KESTRAV_API BoolEntry final : public Entry {
 public:
  BoolEntry(String name, String key, bool preset, bool minimum, bool maximum, bool value);

  bool Value() const { return value_; }
  // false: beyond minimum or maximum, and nothing changed.
  [[nodiscard]] bool SetValue(bool value);

  String ToText() const override;
  void Reset() override { value_ = preset_; }

 private:
  bool FromText(const String& text) override;

  const bool preset_;
  const bool minimum_;
  const bool maximum_;
  bool value_;
};

class KESTRAV_API StringEntry final : public Entry {
 public:
  // `max_length` in characters; a longer `value` is cut off.
  StringEntry(String name, String key, std::size_t max_length, String value);

  const String& Value() const { return value_; }
  // false: too long, and nothing changed.
  [[nodiscard]] bool SetValue(const String& value);

  String ToText() const override { return value_; }

 private:
  bool FromText(const String& text) override;

  const std::size_t max_length_;
  String value_;
};

}  // namespace kestrav::Config

#endif  // KESTRAV_HOST_CONFIG_ENTRY_H_
