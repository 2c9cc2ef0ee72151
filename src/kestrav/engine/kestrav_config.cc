#include "kestrav/engine/kestrav_config.h"

#include <algorithm>
#include <limits>
#include <string_view>

#include "kestrav/host/memory/try.h"
#include "kestrav/host/text/integer.h"

namespace kestrav {
namespace {

constexpr const wchar_t* kLogging = L"Logging";
constexpr const wchar_t* kEncryption = L"Encryption";
constexpr std::size_t kMaxClientValue = 256;  // characters

template <class Kind>
SmartPtr::Ptr<Kind> FindIn(const std::vector<SmartPtr::Ptr<Kind>>& entries,
                           std::wstring_view name) {
  const auto is_it = [&](const SmartPtr::Ptr<Kind>& entry) { return entry->Name() == name; };
  const auto found = std::find_if(entries.begin(), entries.end(), is_it);
  return found == entries.end() ? nullptr : *found;
}

// Runs `step`, which answers whether it succeeded and may run out of memory.
template <class Step>
bool Succeeds(Step&& step) {
  bool done = false;
  return Memory::Try([&] { done = step(); }) && done;
}

}  // namespace

KestravConfig::KestravConfig()
    : Config::ConfigGroupBase(L"Kestrav-Settings", L"Kestrav Settings") {}

bool KestravConfig::Init(IKestrav* recorder) {
  if (recorder == nullptr || recorder_ != nullptr) return false;
  recorder_ = recorder;
  return AddSwitch(kLogging, L"", false) && AddSwitch(kEncryption, L"KEY_ENCRYPTION", true);
}

bool KestravConfig::AddSwitch(const wchar_t* name, const wchar_t* key, bool preset) {
  return Succeeds([&] {
    switches_.reserve(switches_.size() + 1);
    const auto entry = std::make_shared<Config::BoolEntry>(name, key, preset, false, true, preset);
    if (!AddEntry(entry)) return false;
    switches_.push_back(entry);
    return true;
  });
}

bool KestravConfig::Read(const Config::IConfigReader& reader) {
  if (recorder_ == nullptr) return false;
  std::vector<String> clients;
  static_cast<void>(InitClientConfigList(clients));
  const bool read = ConfigGroupBase::Read(reader);
  ReportWhatIsNoSelection(reader);
  static_cast<void>(ProcessClientControlStrings(clients));
  return read;
}

// A value that the group took as a text may still be none for a client.
void KestravConfig::ReportWhatIsNoSelection(const Config::IConfigReader& reader) const {
  for (const SmartPtr::Ptr<Config::StringEntry>& client : clients_) {
    bool selected = false;
    String control;
    if (!ParseClientString(selected, control, client->Value().c_str())) {
      static_cast<void>(
          Memory::Try([&] { reader.ReportRefused(GetName(), client->StoredName()); }));
    }
  }
}

bool KestravConfig::SwitchValue(const wchar_t* name, bool otherwise) const {
  const SmartPtr::Ptr<Config::BoolEntry> entry = FindIn(switches_, name);
  return entry ? entry->Value() : otherwise;
}

bool KestravConfig::SetSwitch(const wchar_t* name, bool value) {
  const SmartPtr::Ptr<Config::BoolEntry> entry = FindIn(switches_, name);
  return entry && entry->SetValue(value);
}

bool KestravConfig::IsEncryptionEnabled() const { return SwitchValue(kEncryption, true); }

bool KestravConfig::GetLoggingStatus() const { return SwitchValue(kLogging, false); }

bool KestravConfig::EnableEncryption(bool enable) { return SetSwitch(kEncryption, enable); }

bool KestravConfig::SetLoggingStatus(bool logging) { return SetSwitch(kLogging, logging); }

bool KestravConfig::GetLoggingClientList(std::map<String, bool>& clients) const {
  return recorder_ != nullptr && recorder_->GetLoggingClientsList(clients) && !clients.empty();
}

bool KestravConfig::ReadClientLoggingSelection(std::map<String, bool>& selection) {
  selection.clear();
  if (!GetLoggingClientList(selection)) return false;
  return std::all_of(selection.begin(), selection.end(),
                     [this](auto& client) { return ReadClient(client.first, client.second); });
}

bool KestravConfig::ReadClient(const String& client, bool& selected) {
  const SmartPtr::Ptr<Config::StringEntry> entry = FindClient(client);
  if (!entry) {
    selected = false;
    return AddClientToConfigClientList(client, false);
  }
  String control;
  return ParseClientString(selected, control, entry->Value().c_str());
}

bool KestravConfig::WriteClientLoggingSelection() {
  std::map<String, bool> selection;
  if (!GetLoggingClientList(selection)) return false;
  return std::all_of(selection.begin(), selection.end(), [this](const auto& client) {
    return WriteClient(client.first, client.second);
  });
}

bool KestravConfig::WriteClient(const String& client, bool selected) {
  const SmartPtr::Ptr<Config::StringEntry> entry = FindClient(client);
  if (!entry) return AddClientToConfigClientList(client, selected);
  return Succeeds([&] {
    String value = selected ? L"1" : L"0";
    const auto control = control_strings_.find(client);
    if (control != control_strings_.end() && !control->second.empty()) {
      value += L"," + control->second;
    }
    return entry->SetValue(value);
  });
}

bool KestravConfig::InitClientConfigList(std::vector<String>& clients) {
  if (recorder_ == nullptr) return false;
  if (!recorder_->GetClientsList(clients) || clients.empty()) {
    clients.clear();
    return false;
  }
  for (const String& client : clients) {
    static_cast<void>(AddClientToConfigClientList(client, false));
  }
  return true;
}

bool KestravConfig::ProcessClientControlStrings(const std::vector<String>& clients) {
  if (recorder_ == nullptr || clients.empty()) return false;
  return std::all_of(clients.begin(), clients.end(),
                     [this](const String& client) { return ProcessClient(client); });
}

bool KestravConfig::ProcessClient(const String& client) {
  return Succeeds([&] {
    bool selected = false;
    String control;
    if (const SmartPtr::Ptr<Config::StringEntry> entry = FindClient(client)) {
      if (!ParseClientString(selected, control, entry->Value().c_str())) return false;
    } else {
      control = L"0";
      if (!AddClientToConfigClientList(client, false)) return false;
    }
    recorder_->SendControlStringToClient(client, control);
    control_strings_[client] = control;
    return true;
  });
}

bool KestravConfig::ParseClientString(bool& selected, String& control, const wchar_t* text) {
  selected = false;
  control.clear();
  const std::wstring_view whole = text != nullptr ? text : L"";
  const std::size_t comma = whole.find(L',');
  std::uint32_t number = 0;
  if (!Text::ReadUnsigned(whole.substr(0, comma), number,
                          std::numeric_limits<std::uint8_t>::max())) {
    return false;
  }
  if (comma != std::wstring_view::npos && !Memory::Copy(control, whole.substr(comma + 1))) {
    return false;
  }
  selected = number == 1;
  return true;
}

bool KestravConfig::AddClientToConfigClientList(const String& client, bool selected) {
  return Succeeds([&] {
    clients_.reserve(clients_.size() + 1);
    const auto entry =
        std::make_shared<Config::StringEntry>(client, L"", kMaxClientValue, selected ? L"1" : L"0");
    if (!AddEntry(entry)) return false;
    clients_.push_back(entry);
    return true;
  });
}

SmartPtr::Ptr<Config::StringEntry> KestravConfig::FindClient(const String& client) const {
  return FindIn(clients_, client);
}

}  // namespace kestrav
