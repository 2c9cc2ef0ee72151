#ifndef KESTRAV_TOOLS_COMMANDS_H_
#define KESTRAV_TOOLS_COMMANDS_H_

#include <CLI/CLI.hpp>

#include "exit_codes.h"

namespace kestrav::tool {

// Each adds its subcommand to `app`. When the subcommand is the one on the command line, it runs
// while `app` parses, leaves its exit code in `exit_code` and throws `Failure` when it fails.
void AddImport(CLI::App& app, ExitCode& exit_code);
void AddRecord(CLI::App& app, ExitCode& exit_code);
void AddInfo(CLI::App& app, ExitCode& exit_code);
void AddCat(CLI::App& app, ExitCode& exit_code);
void AddPlay(CLI::App& app, ExitCode& exit_code);
void AddRepair(CLI::App& app, ExitCode& exit_code);
void AddCheck(CLI::App& app, ExitCode& exit_code);
void AddRecover(CLI::App& app, ExitCode& exit_code);
void AddTrim(CLI::App& app, ExitCode& exit_code);
void AddMerge(CLI::App& app, ExitCode& exit_code);
void AddSplit(CLI::App& app, ExitCode& exit_code);
void AddDiff(CLI::App& app, ExitCode& exit_code);
void AddExport(CLI::App& app, ExitCode& exit_code);
void AddReport(CLI::App& app, ExitCode& exit_code);
void AddIndex(CLI::App& app, ExitCode& exit_code);

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_COMMANDS_H_
