#ifndef KESTRAV_CLIENTS_CLIENT_MANAGER_H_
#define KESTRAV_CLIENTS_CLIENT_MANAGER_H_

#include <cstdint>
#include <map>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "kestrav/clients/client.h"
#include "kestrav/clients/dictionary_record.h"
#include "kestrav/clients/slot_map.h"
#include "kestrav/host/api.h"
#include "kestrav/host/text/string.h"
#include "kestrav/host/thread/lock.h"
#include "kestrav/types/client_id_set.h"

namespace kestrav {

// Recorded id to the instances that receive its records.
using Receivers = std::unordered_map<std::uint16_t, std::vector<IClient*>>;

// The registry: which clients there are under which string id and client id, which are selected for
// recording, and which clients of the current log are selected for playback. Clients belong to
// their callers. A client id, once given to a string id, is never handed out again.
//
// Any thread may call any operation. Those that say so take no lock: they are meant for a caller
// that holds it and see a state that others may be changing. Clients are asked under the lock, so a
// client must not call back from another thread while it answers. No operation throws.
class KESTRAV_API ClientManager {
 public:
  ClientManager() = default;
  virtual ~ClientManager() = default;
  ClientManager(const ClientManager&) = delete;
  ClientManager& operator=(const ClientManager&) = delete;

  // Takes a client in under its string id and sets its client id. Registering an instance twice is
  // harmless. false: null, a string id that is not valid, or an id that cannot be had.
  [[nodiscard]] bool RegisterClient(IClient* client);
  // Takes one instance out, and the selections of its string id with the last one.
  bool UnRegisterClient(IClient* client);
  // Takes all instances out; true only if each of them could be.
  bool UnRegisterClient(const String& stringId);

  bool IsInstanceRegistered(IClient* client) const;  // takes no lock
  bool IsStringRegistered(const String& stringId) const;
  bool IsValidStringId(const String& stringId) const;

  // The client id under which a string id is registered now, or kNoId.
  std::uint16_t GetDictonaryId(const String& stringId) const;
  std::uint16_t GetClientId(const String& stringId) const { return GetDictonaryId(stringId); }
  // The first string id, in the order of the map, whose client has `id`. Takes no lock.
  [[nodiscard]] bool GetClientStringId(const std::uint16_t& id, String& out) const;
  [[nodiscard]] bool GetInstanceVector(const String& stringId,
                                       std::vector<IClient*>& out) const;  // takes no lock

  // Whether `id` was ever given to a client.
  bool IsIdInDictionary(const std::uint16_t& id) const;
  // 0 to 20: itself. kNoId: the lowest id from 21 on that was never given. Takes no lock.
  std::uint16_t AllocateId(const std::uint16_t& requested) const;
  std::uint16_t GetUnAllocatedId() const;      // takes no lock
  bool MarkIdAsUsed(const std::uint16_t& id);  // takes no lock
  bool MarkIdAsFree(const std::uint16_t& id);  // takes no lock

  // On false the output holds what was appended so far.
  [[nodiscard]] bool GetClientsList(std::vector<String>& out) const;
  // The clients that are selected for logging now.
  [[nodiscard]] bool GetDictionary(Dictionary& out) const;
  // The clients that let the user choose them, each with its present choice.
  [[nodiscard]] bool GetLoggingClientList(std::map<String, bool>& out) const;

  bool SelectForLogging(const String& stringId);
  void ResetLoggingSelection();
  bool ResetLoggingSelection(const String& stringId);
  bool IsSelectedForLogging(const std::uint16_t& id) const;
  bool IsSelectableForLogging(const String& stringId) const;  // takes no lock
  bool IsLoggingSelectionEmpty() const;
  // The live set; it goes with this object.
  const SharedClientIdSet& GetLoggingSelectionMap() const { return logging_selection_; }

  // Hands `control` to every instance of `clientId`. false: there is none.
  bool SendControlStringToClient(const String& clientId, const String& control);

  // Makes the list of clients that the current log can be played to, from the log's dictionary or,
  // when that is empty, from the 16-bit selection of its stream header. `out` is that list. The
  // playback selection stays. false: the list is empty, or its last addition failed.
  bool UpdatePlaybackClientList(std::vector<String>& out, const Dictionary& dictionary,
                                std::uint16_t recordedMask);

  // false: the client is not in the playback list.
  bool SelectForPlayback(const String& stringId);
  bool IsSelectedForPlayback(const String& stringId) const;
  bool IsSelectedForPlayback(const std::uint16_t& id) const;
  // Asked for every record that is played.
  bool IsDictionaryIdSelectedForPlayback(const std::uint16_t& dictionaryId) const;
  bool IsInPlaybackList(const String& stringId) const;
  bool RemoveFromPlaybackList(const String& stringId);  // takes no lock
  void ResetPlaybackSelection();
  bool IsPlaybackSelectionEmpty() const;
  bool IsSelectableForPlayback(const String& stringId) const;  // takes no lock
  [[nodiscard]] bool GetPlaybackInstances(const String& stringId,
                                          std::vector<IClient*>& out) const;  // takes no lock

  // What a playback needs of the selection: who receives which recorded id, the current ids and the
  // recorded ids that are selected, and the recorded ids whose clients want offset data.
  // false: nothing is selected, or an entry has no instance to play to.
  [[nodiscard]] bool GetPlaybackSelectionInfo(Receivers& receivers, ClientIdSet& clientIds,
                                              ClientIdSet& dictionaryIds,
                                              ClientIdSet& offsetDataIds) const;

 private:
  using Instances = std::vector<IClient*>;
  using Question = bool (IClient::*)();

  bool UpdateClientRegister(IClient* client, const std::uint16_t& id) REQUIRES(lock_);
  bool Register(IClient* client) REQUIRES(lock_);
  bool UnRegister(IClient* client) REQUIRES(lock_);
  bool OfferForPlayback(const String& stringId, std::uint16_t recordedId, std::vector<String>& out)
      REQUIRES(lock_);
  bool OfferByDictionary(const Dictionary& dictionary, std::vector<String>& out) REQUIRES(lock_);
  bool OfferByMask(std::uint16_t recordedMask, std::vector<String>& out) REQUIRES(lock_);
  const Instances* FindInstances(const String& stringId) const;
  // A client that throws has answered false.
  static bool Ask(IClient* client, Question question);
  bool AnyInstance(const String& stringId, Question question) const;

  mutable Thread::CritSec lock_;
  // The maps and `used_ids_` are changed under the lock only; the operations that take no lock read
  // them for a caller that holds it, which the analysis cannot see.
  SlotMap<String, Instances> clients_;
  ClientIdSet used_ids_;
  SharedClientIdSet logging_selection_;
  SharedClientIdSet playback_dictionary_ids_;
  SharedClientIdSet playback_client_ids_;
  SlotMap<String, std::uint16_t> playback_list_;  // string id to recorded id
};

}  // namespace kestrav

#endif  // KESTRAV_CLIENTS_CLIENT_MANAGER_H_
