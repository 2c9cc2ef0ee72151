#include "client_ids.h"

#include "exit_codes.h"
#include "kestrav/types/client_id_set.h"

namespace kestrav::tool {

// The recorder's own id is the same everywhere, whether or not a dictionary names it.
void ClientIds::AddLog(const SourceLog& log) {
  std::map<std::uint16_t, std::uint16_t>& ids = logs_.emplace_back();
  ids[kInfoClientId] = kInfoClientId;
  taken_.insert(kInfoClientId);
  for (const auto& [name, id] : log.Names().Ids()) {
    auto known = names_.find(name);
    if (known == names_.end()) {
      const auto other_name = ids.find(id);
      const std::uint16_t ours = other_name != ids.end() ? other_name->second : Take(id);
      known = names_.emplace(name, ours).first;
    }
    ids.emplace(id, known->second);
  }
  for (const std::uint16_t id : log.Ids()) {
    if (ids.count(id) == 0) AddNameless(logs_.size() - 1, id);
  }
}

std::uint16_t ClientIds::AddNameless(std::size_t log, std::uint16_t id) {
  return logs_[log][id] = Take(id);
}

std::uint16_t ClientIds::Take(std::uint16_t wanted) {
  if (taken_.insert(wanted).second) return wanted;
  for (std::uint16_t id = 0; id < kClientIdLimit; ++id) {
    if (taken_.insert(id).second) return id;
  }
  throw Failure("the logs have more than " + std::to_string(kClientIdLimit) + " clients");
}

std::uint64_t ClientIds::Selection() const {
  std::uint64_t selection = 0;
  for (const std::uint16_t id : taken_) selection |= ClientIdSet::Bit(id);
  return selection;
}

}  // namespace kestrav::tool
