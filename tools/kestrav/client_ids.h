#ifndef KESTRAV_TOOLS_CLIENT_IDS_H_
#define KESTRAV_TOOLS_CLIENT_IDS_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "source_log.h"

namespace kestrav::tool {

// The clients of several logs in one. Clients of one name are one client; a client without a name
// is none of another log's. The first log's clients keep their ids, those of the others do where
// they are free.
class ClientIds {
 public:
  // The logs are told apart by the order in which they are added. Throws `Failure` when there are
  // more clients than ids.
  void AddLog(const SourceLog& log);

  // The id of a client of a log; one that was not known yet gets one. Throws as above.
  std::uint16_t Find(std::size_t log, std::uint16_t id) {
    const auto found = logs_[log].find(id);
    return found != logs_[log].end() ? found->second : AddNameless(log, id);
  }

  const std::map<std::string, std::uint16_t>& Names() const { return names_; }
  // Bit n: there is a client of id n.
  std::uint64_t Selection() const;

 private:
  std::uint16_t AddNameless(std::size_t log, std::uint16_t id);
  std::uint16_t Take(std::uint16_t wanted);

  std::map<std::string, std::uint16_t> names_;
  std::vector<std::map<std::uint16_t, std::uint16_t>> logs_;  // from a log's ids to ours
  std::set<std::uint16_t> taken_;
};

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_CLIENT_IDS_H_
