#include "kestrav/host/config/config_group.h"

#include <algorithm>
#include <utility>

#include "kestrav/host/memory/try.h"

namespace kestrav::Config {
namespace {

// false: what is stored cannot be read or makes no sense to the entry.
bool LoadEntry(const IConfigReader& reader, const String& group, Entry& entry) {
  String text;
  switch (reader.ReadValue(group, entry.StoredName(), text)) {
    case Found::kNothing:
      entry.Reset();
      return true;
    case Found::kUnreadable:
      entry.Keep();
      return false;
    case Found::kValue:
      break;
  }
  if (entry.Load(text)) return true;
  reader.ReportRefused(group, entry.StoredName());
  return false;
}

}  // namespace

ConfigGroupBase::ConfigGroupBase(String name, String description)
    : name_(std::move(name)), description_(std::move(description)) {}

bool ConfigGroupBase::AddEntry(const SmartPtr::Ptr<Entry>& entry) {
  if (!entry) return false;
  const auto same = [&](const SmartPtr::Ptr<Entry>& other) {
    return other->Name() == entry->Name() || other->StoredName() == entry->StoredName();
  };
  if (std::any_of(entries_.begin(), entries_.end(), same)) return false;
  return Memory::Append(entries_, entry);
}

SmartPtr::Ptr<Entry> ConfigGroupBase::FindEntry(const String& name) const {
  const auto is_it = [&](const SmartPtr::Ptr<Entry>& entry) { return entry->Name() == name; };
  const auto found = std::find_if(entries_.begin(), entries_.end(), is_it);
  return found == entries_.end() ? nullptr : *found;
}

bool ConfigGroupBase::Read(const IConfigReader& reader) {
  bool all = true;
  for (const SmartPtr::Ptr<Entry>& entry : entries_) {
    bool loaded = false;
    const bool whole = Memory::Try([&] { loaded = LoadEntry(reader, name_, *entry); });
    if (!whole) entry->Keep();
    if (!loaded) all = false;
  }
  return all;
}

bool ConfigGroupBase::Write(IConfigWriter& writer) const {
  bool all = true;
  for (const SmartPtr::Ptr<Entry>& entry : entries_) {
    if (entry->IsKept()) continue;
    bool written = false;
    const bool whole = Memory::Try([&] {
      written = writer.WriteValue(name_, description_, entry->StoredName(), entry->ToText());
    });
    if (!whole || !written) all = false;
  }
  return all;
}

}  // namespace kestrav::Config
