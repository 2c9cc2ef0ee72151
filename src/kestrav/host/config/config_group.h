#ifndef KESTRAV_HOST_CONFIG_CONFIG_GROUP_H_
#define KESTRAV_HOST_CONFIG_CONFIG_GROUP_H_

#include <vector>

#include "kestrav/host/api.h"
#include "kestrav/host/config/entry.h"
#include "kestrav/host/config/store.h"
#include "kestrav/host/memory/ptr.h"
#include "kestrav/host/text/string.h"

namespace kestrav::Config {

// A named set of entries that is read and written as a whole. For one thread at a time.
class KESTRAV_API ConfigGroupBase {
 public:
  ConfigGroupBase(String name, String description);
  ConfigGroupBase(const ConfigGroupBase&) = delete;
  ConfigGroupBase& operator=(const ConfigGroupBase&) = delete;
  virtual ~ConfigGroupBase() = default;

  const String& GetName() const { return name_; }
  const String& GetDescription() const { return description_; }

  // false: empty, an entry of this name or stored name is there already, or memory is short.
  [[nodiscard]] bool AddEntry(const SmartPtr::Ptr<Entry>& entry);
  // Empty: there is none.
  SmartPtr::Ptr<Entry> FindEntry(const String& name) const;
  // Empty too: the entry is of another kind.
  template <class Kind>
  SmartPtr::Ptr<Kind> FindEntry(const String& name) const {
    return std::dynamic_pointer_cast<Kind>(FindEntry(name));
  }
  const std::vector<SmartPtr::Ptr<Entry>>& Entries() const { return entries_; }

  // Takes what is stored for the entries. An entry of which nothing is stored gets its default; one
  // whose value cannot be read, or is refused, keeps the value that it has. false: there was such a
  // value, or memory is short; the others were read.
  [[nodiscard]] virtual bool Read(const IConfigReader& reader);
  // Hands every entry to the writer, except those whose stored value was refused and who have not
  // been changed since. false: the writer failed at one; the others were written.
  [[nodiscard]] virtual bool Write(IConfigWriter& writer) const;

 private:
  const String name_;
  const String description_;
  std::vector<SmartPtr::Ptr<Entry>> entries_;
};

}  // namespace kestrav::Config

#endif  // KESTRAV_HOST_CONFIG_CONFIG_GROUP_H_
