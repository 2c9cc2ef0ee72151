#include <cerrno>
#include <cstdio>
#include <exception>
#include <new>
#include <string>

#include "commands.h"
#include "os.h"
#include "text.h"

namespace kestrav::tool {
namespace {

ExitCode ReportError(const CLI::App& app, const std::string& message, ExitCode code) {
  std::string where = "kestrav: ";
  for (const CLI::App* const command : app.get_subcommands()) where += command->get_name() + ": ";
  std::fprintf(stderr, "%s%s\n", where.c_str(), OneLine(message).c_str());
  return code;
}

// The parser by itself would only say that there is none.
void CheckSubcommand(const CLI::App& app, const std::string& first) {
  if (first.empty() || first[0] == '-') return;
  const auto is_it = [&](const CLI::App* command) { return command->check_name(first); };
  if (!app.get_subcommands(is_it).empty()) return;
  throw Failure("no subcommand '" + first + "'; see kestrav --help", kWrongUsage);
}

int Run(int argc, char** argv) {
  CLI::App app("Records the traces of a vehicle in logs and reads logs back.", "kestrav");
  app.set_version_flag("--version", "kestrav " KESTRAV_VERSION);
  app.require_subcommand(1);
  app.footer(
      "Exit codes: 0 done and nothing lost, 1 failed, 2 wrong usage,\n"
      "3 done, but the log is damaged and something in it is lost.");
  ExitCode exit_code = kDone;
  AddImport(app, exit_code);
  AddRecord(app, exit_code);
  AddInfo(app, exit_code);
  AddCat(app, exit_code);
  AddPlay(app, exit_code);
  AddRepair(app, exit_code);
  AddCheck(app, exit_code);
  AddRecover(app, exit_code);
  AddTrim(app, exit_code);
  AddMerge(app, exit_code);
  AddSplit(app, exit_code);
  AddDiff(app, exit_code);
  AddExport(app, exit_code);
  AddReport(app, exit_code);
  AddIndex(app, exit_code);
  try {
    CheckSubcommand(app, argc > 1 ? argv[1] : "");
    app.parse(argc, argv);
  } catch (const Failure& failure) {
    return ReportError(app, failure.what(), failure.code);
  } catch (const CLI::Success& help_or_version) {
    return app.exit(help_or_version);
  } catch (const CLI::ParseError& error) {
    return ReportError(app, error.what(), kWrongUsage);
  } catch (const std::bad_alloc&) {
    return ReportError(app, "out of memory", kFailed);
  } catch (const std::exception& error) {
    return ReportError(app, error.what(), kFailed);
  }
  if (std::fflush(stdout) != 0 && errno != EPIPE) {
    return ReportError(app, "standard output: " + ErrorText(errno), kFailed);
  }
  return exit_code;
}

}  // namespace
}  // namespace kestrav::tool

int main(int argc, char** argv) {
  kestrav::tool::OpenStandardStreams();
  kestrav::tool::IgnoreWriteSignals();
  return kestrav::tool::Run(argc, argv);
}
