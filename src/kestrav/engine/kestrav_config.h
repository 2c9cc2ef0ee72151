#ifndef KESTRAV_ENGINE_KESTRAV_CONFIG_H_
#define KESTRAV_ENGINE_KESTRAV_CONFIG_H_

#include <map>
#include <vector>

#include "kestrav/engine/kestrav.h"
#include "kestrav/host/api.h"
#include "kestrav/host/config/config_group.h"
#include "kestrav/host/config/entry.h"
#include "kestrav/host/memory/ptr.h"
#include "kestrav/host/text/string.h"

namespace kestrav {

// The configuration group "Kestrav-Settings" of one recorder: the switches "Logging" and
// "Encryption" and, for each client, its selection and control string ("1,mode=3"). It stores the
// switches; whoever hosts the recorder applies them. A client of the name of a switch has no entry.
//
// For one thread at a time; clients are sent their control strings on it. No operation throws;
// every failure is the answer false, and what was changed until then stays. Without a recorder
// every operation that concerns clients answers false.
class KESTRAV_API KestravConfig : public virtual Config::ConfigGroupBase {
 public:
  KestravConfig();

  // Binds the recorder, which must outlive this object, and makes the switches. false: null, bound
  // already, or memory is short.
  [[nodiscard]] bool Init(IKestrav* recorder);

  // Makes an entry "0" for each registered client that has none, reads the group and sends every
  // client its control string. The result is that of the group's reading. A client's value that
  // makes no sense is reported to `reader`; the clients behind it are then sent nothing.
  [[nodiscard]] bool Read(const Config::IConfigReader& reader) override;
  [[nodiscard]] bool Read(const Config::IConfigReader& reader, bool) { return Read(reader); }

  bool IsEncryptionEnabled() const;  // true unless stored otherwise
  bool GetLoggingStatus() const;     // false unless stored otherwise
  [[nodiscard]] bool EnableEncryption(bool enable);
  [[nodiscard]] bool SetLoggingStatus(bool logging);

  // The clients that the user may choose for recording, as the recorder has them now. false too:
  // there is none.
  [[nodiscard]] bool GetLoggingClientList(std::map<String, bool>& clients) const;
  // The same clients, selected as it is stored. A client without an entry gets one, not selected.
  [[nodiscard]] bool ReadClientLoggingSelection(std::map<String, bool>& selection);
  // Puts the recorder's present selection into the entries, each with the control string that was
  // read for the client. The entries are stored by `Write`.
  [[nodiscard]] bool WriteClientLoggingSelection();

  // Fills `clients` with all registered clients and makes an entry "0" for each that has none.
  // false too: there is no client; the list is then empty.
  [[nodiscard]] bool InitClientConfigList(std::vector<String>& clients);
  // Sends each client the control string of its entry, which is empty for a bare number, and keeps
  // it for a later write. A client without an entry gets the entry and the control string "0".
  [[nodiscard]] bool ProcessClientControlStrings(const std::vector<String>& clients);
  // "1,mode=3": a number, of which 1 means selected, and a control string. false: it begins with no
  // number from 0 to 255; `selected` is then false and `control` empty.
  [[nodiscard]] static bool ParseClientString(bool& selected, String& control, const wchar_t* text);
  [[nodiscard]] bool AddClientToConfigClientList(const String& client, bool selected);

 private:
  void ReportWhatIsNoSelection(const Config::IConfigReader& reader) const;
  bool AddSwitch(const wchar_t* name, const wchar_t* key, bool preset);
  bool SwitchValue(const wchar_t* name, bool otherwise) const;
  bool SetSwitch(const wchar_t* name, bool value);
  SmartPtr::Ptr<Config::StringEntry> FindClient(const String& client) const;
  bool WriteClient(const String& client, bool selected);
  bool ProcessClient(const String& client);
  bool ReadClient(const String& client, bool& selected);

  IKestrav* recorder_ = nullptr;
  std::vector<SmartPtr::Ptr<Config::BoolEntry>> switches_;
  std::vector<SmartPtr::Ptr<Config::StringEntry>> clients_;
  std::map<String, String> control_strings_;
};

}  // namespace kestrav

#endif  // KESTRAV_ENGINE_KESTRAV_CONFIG_H_
