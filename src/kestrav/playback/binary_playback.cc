#include "kestrav/playback/binary_playback.h"

#include "kestrav/host/memory/try.h"

namespace kestrav {

bool IBinaryPlayback::SearchAndGetClientData(Memory::MemBlock& /*data*/,
                                             const std::uint16_t& /*clientId*/,
                                             const std::uint16_t& /*dataId*/,
                                             const std::uint32_t& /*offsetScnds*/) const {
  return false;
}

bool IBinaryPlayback::GetPlaybackAttributes(std::uint32_t& lengthMs, std::uint32_t& size,
                                            std::uint16_t& recordedClientsMask,
                                            Memory::MemBlock& /*data*/,
                                            const std::uint16_t& /*clientId*/) const {
  lengthMs = 0;
  size = 0;
  recordedClientsMask = 0;
  return false;
}

bool IBinaryPlayback::InitPlaybackClientInfo() {
  if (client_info_ready_) return true;
  if (clients_ != nullptr && engine_ != nullptr) {
    ClientIdSet decoded;
    const bool filled = clients_->GetPlaybackSelectionInfo(receivers_, playback_clients_, decoded,
                                                           offset_data_ids_);
    client_info_ready_ =
        filled && !receivers_.empty() && !playback_clients_.IsEmpty() && !decoded.IsEmpty();
    if (client_info_ready_) decoder_.SetPlaybackSelection(decoded);
  }
  return client_info_ready_;
}

bool IBinaryPlayback::SendData(const LogMessage& message) {
  const std::uint16_t id = message.GetClientID();
  if (clients_ == nullptr || !clients_->IsDictionaryIdSelectedForPlayback(id)) return true;
  bool taken = receivers_.contains(id);
  // Looked up anew for each client: one of them may stop the playback, which empties the map.
  for (std::size_t i = 0;; ++i) {
    const auto receivers = receivers_.find(id);
    if (receivers == receivers_.end() || i >= receivers->second.size()) return taken;
    IClient* const client = receivers->second[i];
    // A client that throws has not taken the message.
    if (!Memory::Try([&] { taken = client->OnPlaybackData(message); })) taken = false;
  }
}

void IBinaryPlayback::Notify(NotificationIdType id) const {
  if (engine_ != nullptr) engine_->SendNotification({id, playback_clients_});
}

}  // namespace kestrav
