#include "record_filter.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "exit_codes.h"
#include "log_walk.h"

namespace kestrav::tool {
namespace {

// A name starts with letters, so digits alone are an id.
std::optional<std::uint16_t> ReadId(const std::string& client) {
  const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
  if (client.empty() || client.size() > 5 || !std::all_of(client.begin(), client.end(), is_digit)) {
    return std::nullopt;
  }
  const unsigned long id = std::stoul(client);
  return id < kNoId ? std::optional<std::uint16_t>(static_cast<std::uint16_t>(id)) : std::nullopt;
}

std::uint16_t ClientId(const std::string& client, const LogFile& log, const ClientNames& names) {
  if (const auto number = ReadId(client)) return *number;
  const auto id = names.Find(client);
  if (!id) throw Failure(log.Path() + ": no client '" + client + "' in its dictionary");
  return *id;
}

// Whole microseconds, so that 1.001 s is no less than 1001 ms.
double Milliseconds(double scnds) { return std::round(scnds * 1e6) / 1000; }

}  // namespace

bool RecordFilter::Options::HasNames() const {
  return std::any_of(clients.begin(), clients.end(),
                     [](const std::string& client) { return !ReadId(client); });
}

RecordFilter::RecordFilter(const Options& options, const LogFile& log, const ClientNames& names)
    : start_clock_(log.Header().start_clock),
      from_ms_(Milliseconds(options.from_scnds)),
      to_ms_(Milliseconds(options.to_scnds)) {
  if (std::isnan(from_ms_) || std::isnan(to_ms_)) {
    throw Failure("a time is a number of seconds", kWrongUsage);
  }
  if (from_ms_ > to_ms_) throw Failure("the end is earlier than the start", kWrongUsage);
  for (const std::string& client : options.clients) ids_.insert(ClientId(client, log, names));
}

void AddFilterOptions(CLI::App& command, RecordFilter::Options& options, const std::string& to) {
  command.add_option("--client", options.clients, "Only this client's records (repeatable)")
      ->type_name("NAME|ID")
      ->expected(1)
      ->take_all();
  command.add_option("--from", options.from_scnds, "Only from this time of the log on")
      ->type_name("SECONDS");
  command.add_option(to, options.to_scnds, "Only up to this time of the log")->type_name("SECONDS");
}

ClientNames FindNames(const std::string& path) {
  LogFile log(path);
  LogWalk walk(log.Decoder());
  ClientNames names;
  while (names.IsEmpty() && walk.Next() == kSuccess) {
    ReadNames(walk.Header().client_id, walk.Header().data_id, walk.Payload(), names);
  }
  return names;
}

}  // namespace kestrav::tool
