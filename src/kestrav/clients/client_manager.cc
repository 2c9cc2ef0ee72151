#include "kestrav/clients/client_manager.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "kestrav/host/memory/try.h"

namespace kestrav {
namespace {

using Lock = Thread::ScopedLock<Thread::CritSec>;

constexpr std::size_t kShortestStringId = 3;
constexpr std::size_t kLongestStringId = 50;
constexpr std::size_t kLettersFirst = 3;
constexpr std::uint16_t kLastFixedId = 20;

// A client's code may throw, and a string needs memory.
bool AskStringId(const IClient& client, String& out) {
  return Memory::Try([&] { out = client.GetClientStringID(); });
}

template <class Map, class Key, class Value>
bool InsertOnce(Map& map, const Key& key, Value value) {
  bool inserted = false;
  return Memory::Try([&] { inserted = map.emplace(key, std::move(value)).second; }) && inserted;
}

}  // namespace

bool ClientManager::RegisterClient(IClient* client) {
  Lock lock(lock_);
  return Register(client);
}

bool ClientManager::Register(IClient* client) {
  String key;
  if (client == nullptr || !AskStringId(*client, key) || !IsValidStringId(key)) return false;
  if (!IsStringRegistered(key)) {
    const std::uint16_t id = AllocateId(client->client_id);
    return id != kNoId && UpdateClientRegister(client, id);
  }
  if (IsInstanceRegistered(client)) return true;
  const std::uint16_t id = GetDictonaryId(key);
  const bool insists_on_another = client->client_id != kNoId && client->client_id != id;
  return !insists_on_another && UpdateClientRegister(client, id);
}

bool ClientManager::UpdateClientRegister(IClient* client, const std::uint16_t& id) {
  String key;
  if (client == nullptr || !AskStringId(*client, key)) return false;
  if (Instances* const instances = clients_.Find(key)) {
    if (instances->empty() || !Memory::Append(*instances, client)) return false;
    client->client_id = id;
    return true;
  }
  Instances first;
  if (!Memory::Append(first, client) || !clients_.Insert(key, std::move(first))) return false;
  client->client_id = id;
  return MarkIdAsUsed(id);
}

bool ClientManager::UnRegisterClient(IClient* client) {
  Lock lock(lock_);
  return UnRegister(client);
}

bool ClientManager::UnRegister(IClient* client) {
  String key;
  if (client == nullptr || !AskStringId(*client, key)) return false;
  Instances* const instances = clients_.Find(key);
  if (instances == nullptr) return false;
  const auto found = std::find(instances->begin(), instances->end(), client);
  if (found == instances->end()) return false;
  instances->erase(found);
  if (instances->empty()) {
    clients_.Erase(key);
    if (IsInPlaybackList(key) && !RemoveFromPlaybackList(key)) return false;
    logging_selection_.Remove(client->client_id);
    playback_client_ids_.Remove(client->client_id);
  }
  if (client->client_id > kLastFixedId) client->client_id = kNoId;
  return true;
}

bool ClientManager::UnRegisterClient(const String& stringId) {
  Lock lock(lock_);
  std::vector<IClient*> instances;
  if (GetClientId(stringId) == kNoId || !GetInstanceVector(stringId, instances)) return false;
  bool all = true;
  for (IClient* const client : instances) all = UnRegister(client) && all;
  return all;
}

const ClientManager::Instances* ClientManager::FindInstances(const String& stringId) const {
  return clients_.Find(stringId);
}

bool ClientManager::IsInstanceRegistered(IClient* client) const {
  String key;
  if (client == nullptr || !AskStringId(*client, key)) return false;
  const Instances* const instances = FindInstances(key);
  return instances != nullptr &&
         std::find(instances->begin(), instances->end(), client) != instances->end();
}

bool ClientManager::IsStringRegistered(const String& stringId) const {
  Lock lock(lock_);
  return FindInstances(stringId) != nullptr;
}

bool ClientManager::IsValidStringId(const String& stringId) const {
  return stringId.size() >= kShortestStringId && stringId.size() <= kLongestStringId &&
         std::all_of(stringId.begin(), std::next(stringId.begin(), kLettersFirst), Text::IsLetter);
}

std::uint16_t ClientManager::GetDictonaryId(const String& stringId) const {
  Lock lock(lock_);
  const Instances* const instances = FindInstances(stringId);
  const bool known = instances != nullptr && !instances->empty() && instances->front() != nullptr;
  return known ? instances->front()->client_id : kNoId;
}

bool ClientManager::GetClientStringId(const std::uint16_t& id, String& out) const {
  bool found = false;
  clients_.ForEach([&](const String& key, const Instances& instances) {
    if (instances.empty() || instances.front() == nullptr) return false;
    if (instances.front()->client_id != id) return true;
    found = Memory::Copy(out, key);
    return false;
  });
  return found;
}

bool ClientManager::GetInstanceVector(const String& stringId, std::vector<IClient*>& out) const {
  out.clear();
  const Instances* const instances = FindInstances(stringId);
  return instances != nullptr && !instances->empty() && Memory::Copy(out, *instances);
}

bool ClientManager::IsIdInDictionary(const std::uint16_t& id) const {
  Lock lock(lock_);
  return used_ids_.Contains(id);
}

std::uint16_t ClientManager::AllocateId(const std::uint16_t& requested) const {
  if (requested == kNoId) return GetUnAllocatedId();
  return requested <= kLastFixedId ? requested : kNoId;
}

std::uint16_t ClientManager::GetUnAllocatedId() const {
  for (std::uint16_t id = kLastFixedId + 1; id < kClientIdLimit; ++id) {
    if (!used_ids_.Contains(id)) return id;
  }
  return kNoId;
}

bool ClientManager::MarkIdAsUsed(const std::uint16_t& id) {
  used_ids_.Add(id);
  return id < kClientIdLimit;
}

bool ClientManager::MarkIdAsFree(const std::uint16_t& id) {
  used_ids_.Remove(id);
  return id != kNoId;
}

bool ClientManager::GetClientsList(std::vector<String>& out) const {
  Lock lock(lock_);
  out.clear();
  if (!Memory::Try([&] { out.reserve(clients_.Size()); })) return false;
  return clients_.ForEach([&](const String& key, const Instances&) {
    return GetDictonaryId(key) != kNoId && Memory::Append(out, key);
  });
}

bool ClientManager::GetDictionary(Dictionary& out) const {
  Lock lock(lock_);
  out.clear();
  return clients_.ForEach([&](const String& key, const Instances& instances) {
    if (instances.empty() || instances.front() == nullptr) return false;
    const std::uint16_t id = instances.front()->client_id;
    return !logging_selection_.Contains(id) || InsertOnce(out, key, id);
  });
}

bool ClientManager::GetLoggingClientList(std::map<String, bool>& out) const {
  Lock lock(lock_);
  out.clear();
  return clients_.ForEach([&](const String& key, const Instances&) {
    const std::uint16_t id = GetDictonaryId(key);
    if (id == kNoId) return false;
    return !IsSelectableForLogging(key) || InsertOnce(out, key, logging_selection_.Contains(id));
  });
}

bool ClientManager::SelectForLogging(const String& stringId) {
  Lock lock(lock_);
  const std::uint16_t id = GetDictonaryId(stringId);
  if (id == kNoId) return false;
  logging_selection_.Add(id);
  return true;
}

void ClientManager::ResetLoggingSelection() {
  Lock lock(lock_);
  logging_selection_.Clear();
}

bool ClientManager::ResetLoggingSelection(const String& stringId) {
  Lock lock(lock_);
  if (!IsStringRegistered(stringId)) return false;
  logging_selection_.Remove(GetDictonaryId(stringId));
  return true;
}

// Asked for every message, so it costs one atomic load and no lock.
bool ClientManager::IsSelectedForLogging(const std::uint16_t& id) const {
  return logging_selection_.Contains(id);
}

bool ClientManager::Ask(IClient* client, Question question) {
  bool yes = false;
  return client != nullptr && Memory::Try([&] { yes = (client->*question)(); }) && yes;
}

bool ClientManager::AnyInstance(const String& stringId, Question question) const {
  const Instances* const instances = FindInstances(stringId);
  const auto says_yes = [question](IClient* client) { return Ask(client, question); };
  return instances != nullptr && std::any_of(instances->begin(), instances->end(), says_yes);
}

bool ClientManager::IsSelectableForLogging(const String& stringId) const {
  return AnyInstance(stringId, &IClient::IsUserSelectableForLogging);
}

bool ClientManager::IsLoggingSelectionEmpty() const { return logging_selection_.IsEmpty(); }

bool ClientManager::SendControlStringToClient(const String& clientId, const String& control) {
  Lock lock(lock_);
  std::vector<IClient*> instances;
  if (!GetInstanceVector(clientId, instances)) return false;
  for (IClient* const client : instances) {
    static_cast<void>(Memory::Try([&] { client->HandleConfigControlString(control); }));
  }
  return true;
}

}  // namespace kestrav
