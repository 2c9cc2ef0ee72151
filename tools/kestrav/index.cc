#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "commands.h"
#include "damage.h"
#include "log_file.h"
#include "log_index.h"
#include "output.h"
#include "text.h"

namespace kestrav::tool {
namespace {

struct IndexOptions {
  std::vector<std::string> logs;
  bool force = false;
};

void Say(const std::string& text) {
  std::fprintf(stderr, "kestrav: index: %s\n", OneLine(text).c_str());
}

LogIndex MakeIndex(LogFile& log, std::string& told) {
  const LogIdentity identity = IdentityOf(log);
  LogIndex index = BuildIndex(log);
  const std::uint64_t size = KeepIndex(log, identity, index);
  told = Counted(index.scan.records, "record", "records") + ", " +
         Counted(index.blocks.size(), "checkpoint", "checkpoints") + ", " + HumanSize(size);
  return index;
}

ExitCode IndexOne(const std::string& path, bool force, Output& output) {
  LogFile log(path);
  std::string told = "up to date";
  std::optional<LogIndex> index;
  if (!force) index = ReadIndex(log);
  if (!index) index = MakeIndex(log, told);
  output.Text() += OneLine(IndexPath(path)) + ": " + told + "\n";
  output.Flush();
  const Damage& damage = index->scan.damage;
  if (damage.IsNone()) return kDone;
  Say(path + ": " + DamageText(damage));
  return kLost;
}

// A log that fails is told of, and the others get theirs.
ExitCode Index(const IndexOptions& options) {
  Output output;
  bool failed = false;
  bool lost = false;
  for (const std::string& path : options.logs) {
    try {
      lost = IndexOne(path, options.force, output) == kLost || lost;
    } catch (const Failure& failure) {
      if (options.logs.size() == 1) throw;
      Say(failure.what());
      failed = true;
    }
  }
  return failed ? kFailed : lost ? kLost : kDone;
}

}  // namespace

void AddIndex(CLI::App& app, ExitCode& exit_code) {
  const auto options = std::make_shared<IndexOptions>();
  CLI::App* const command =
      app.add_subcommand("index", "Keep beside a log what makes later readings quick");
  command->add_option("LOG", options->logs, "The logs to walk through")->required();
  command->add_flag("--force", options->force, "Also where there is an index that fits");
  command->footer(
      "Writes LOG.kidx: what each client recorded, and where to find any time of the log. With it\n"
      "info --scan and the --from of cat, play and trim answer at once, and the same. It may be\n"
      "deleted at any time. One that is damaged or does not fit the log, which may have changed, "
      "is\n"
      "not used; these commands make it anew, unless the log may still grow.\n"
      "Exit code 3: a log is damaged, as kestrav info --scan tells.");
  command->callback([options, &exit_code] { exit_code = Index(*options); });
}

}  // namespace kestrav::tool
