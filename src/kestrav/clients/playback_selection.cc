#include <cstdint>

#include "kestrav/clients/client_manager.h"
#include "kestrav/host/memory/try.h"

// The playback side of the registry: a log names its clients by the ids they had when it was
// recorded (the dictionary ids), and the clients registered now may have other ones.

namespace kestrav {
namespace {

using Lock = Thread::ScopedLock<Thread::CritSec>;

}  // namespace

bool ClientManager::UpdatePlaybackClientList(std::vector<String>& out, const Dictionary& dictionary,
                                             std::uint16_t recordedMask) {
  Lock lock(lock_);
  playback_list_.Clear();
  out.clear();
  return dictionary.empty() ? OfferByMask(recordedMask, out) : OfferByDictionary(dictionary, out);
}

bool ClientManager::OfferByDictionary(const Dictionary& dictionary, std::vector<String>& out) {
  bool offered = false;
  for (const auto& [string_id, recorded_id] : dictionary) {
    if (GetDictonaryId(string_id) == kNoId || !IsSelectableForPlayback(string_id)) continue;
    offered = OfferForPlayback(string_id, recorded_id, out);
  }
  return offered;
}

// Without a dictionary a client is taken to have the id now that it had then, as fixed ids do.
bool ClientManager::OfferByMask(std::uint16_t recordedMask, std::vector<String>& out) {
  constexpr std::uint16_t kMaskBits = 16;
  bool offered = false;
  for (std::uint16_t id = 0; id < kMaskBits; ++id) {
    if ((recordedMask >> id & 1) == 0 || !IsIdInDictionary(id)) continue;
    String string_id;
    offered = GetClientStringId(id, string_id) &&
              (!IsSelectableForPlayback(string_id) || OfferForPlayback(string_id, id, out));
  }
  return offered;
}

bool ClientManager::OfferForPlayback(const String& stringId, std::uint16_t recordedId,
                                     std::vector<String>& out) {
  return playback_list_.Insert(stringId, recordedId) && Memory::Append(out, stringId);
}

bool ClientManager::SelectForPlayback(const String& stringId) {
  Lock lock(lock_);
  const std::uint16_t* const recorded_id = playback_list_.Find(stringId);
  if (recorded_id == nullptr) return false;
  playback_client_ids_.Add(GetDictonaryId(stringId));
  playback_dictionary_ids_.Add(*recorded_id);
  return true;
}

bool ClientManager::IsSelectedForPlayback(const String& stringId) const {
  Lock lock(lock_);
  const std::uint16_t* const recorded_id = playback_list_.Find(stringId);
  return recorded_id != nullptr && playback_dictionary_ids_.Contains(*recorded_id);
}

bool ClientManager::IsSelectedForPlayback(const std::uint16_t& id) const {
  Lock lock(lock_);
  String string_id;
  return GetClientStringId(id, string_id) && IsSelectedForPlayback(string_id);
}

bool ClientManager::IsDictionaryIdSelectedForPlayback(const std::uint16_t& dictionaryId) const {
  return playback_dictionary_ids_.Contains(dictionaryId);
}

bool ClientManager::IsInPlaybackList(const String& stringId) const {
  Lock lock(lock_);
  return playback_list_.Find(stringId) != nullptr;
}

bool ClientManager::RemoveFromPlaybackList(const String& stringId) {
  const std::uint16_t* const recorded_id = playback_list_.Find(stringId);
  if (recorded_id == nullptr) return false;
  playback_dictionary_ids_.Remove(*recorded_id);
  return playback_list_.Erase(stringId);
}

void ClientManager::ResetPlaybackSelection() {
  Lock lock(lock_);
  playback_list_.Clear();
  playback_dictionary_ids_.Clear();
  playback_client_ids_.Clear();
}

bool ClientManager::IsPlaybackSelectionEmpty() const { return playback_client_ids_.IsEmpty(); }

bool ClientManager::IsSelectableForPlayback(const String& stringId) const {
  return AnyInstance(stringId, &IClient::IsUserSelectableForPlayback);
}

bool ClientManager::GetPlaybackInstances(const String& stringId, std::vector<IClient*>& out) const {
  out.clear();
  const Instances* const instances = FindInstances(stringId);
  if (instances == nullptr) return false;
  const bool copied = Memory::Try([&] {
    for (IClient* const client : *instances) {
      if (Ask(client, &IClient::IsUserSelectableForPlayback)) out.push_back(client);
    }
  });
  if (!copied) out.clear();
  return !out.empty();
}

bool ClientManager::GetPlaybackSelectionInfo(Receivers& receivers, ClientIdSet& clientIds,
                                             ClientIdSet& dictionaryIds,
                                             ClientIdSet& offsetDataIds) const {
  Lock lock(lock_);
  receivers.clear();
  clientIds.Clear();
  dictionaryIds.Clear();
  offsetDataIds.Clear();
  const bool complete = playback_list_.ForEach([&](const String& key, const std::uint16_t& id) {
    if (!playback_dictionary_ids_.Contains(id)) return true;
    std::vector<IClient*> instances;
    bool inserted = false;
    if (!GetPlaybackInstances(key, instances)) {
      offsetDataIds.Remove(id);  // which another entry of the same recorded id may have set
      return false;
    }
    if (Ask(instances.front(), &IClient::AcceptsPlaybackOffsetData)) offsetDataIds.Add(id);
    const bool stored =
        Memory::Try([&] { inserted = receivers.emplace(id, std::move(instances)).second; });
    if (stored && inserted) return true;
    offsetDataIds.Remove(id);
    return false;
  });
  if (!complete || receivers.empty()) return false;
  clientIds = playback_client_ids_.Get();
  dictionaryIds = playback_dictionary_ids_.Get();
  return true;
}

}  // namespace kestrav
