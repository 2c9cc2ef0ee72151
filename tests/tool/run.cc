#include "run.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

extern char** environ;

namespace kestrav::test {
namespace {

constexpr const char* kTool = KESTRAV_BIN_DIR "/kestrav";

pid_t Spawn(const Arguments& command, const Process::Streams& streams) {
  std::vector<char*> argv;
  for (const std::string& argument : command) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const int given[] = {streams.in, streams.out, streams.err};
  for (int i = 0; i < 3; ++i) {
    if (given[i] >= 0) {
      posix_spawn_file_actions_adddup2(&actions, given[i], i);
    } else {
      posix_spawn_file_actions_addopen(&actions, i, "/dev/null", O_RDWR, 0);
    }
  }
  // A test run in the background may have been started with signals ignored, and the tool keeps
  // to that.
  sigset_t usual;
  sigemptyset(&usual);
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) sigaddset(&usual, signal);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setsigdefault(&attributes, &usual);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  pid_t pid = -1;
  EXPECT_EQ(posix_spawn(&pid, argv[0], &actions, &attributes, argv.data(), environ), 0) << argv[0];
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

int WaitFor(pid_t pid) {
  int status = 0;
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

Result RunCommand(const Arguments& command, std::string_view input) {
  const Folder folder;
  const auto open_file = [](const std::string& path) {
    return open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  };
  const Process::Streams streams{open_file(folder.Write("in", input)),
                                 open_file(folder.Path("out")), open_file(folder.Path("err"))};
  Result result;
  result.code = WaitFor(Spawn(command, streams));
  for (const int file : {streams.in, streams.out, streams.err}) close(file);
  result.out = ReadFile(folder.Path("out"));
  result.err = ReadFile(folder.Path("err"));
  return result;
}

Arguments WithTool(Arguments before, const Arguments& arguments) {
  before.emplace_back(kTool);
  before.insert(before.end(), arguments.begin(), arguments.end());
  return before;
}

}  // namespace

Folder::Folder() {
  std::string name = (std::filesystem::temp_directory_path() / "kestrav-test-XXXXXX").string();
  EXPECT_NE(mkdtemp(name.data()), nullptr);
  path_ = name;
}

Folder::~Folder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string Folder::Write(const std::string& name, std::string_view content) const {
  std::ofstream file(path_ / name, std::ios::binary);
  file.write(content.data(), static_cast<std::streamsize>(content.size()));
  EXPECT_TRUE(file.flush().good());
  return Path(name);
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << path;
  return std::string(std::istreambuf_iterator<char>(file), {});
}

bool Exists(const std::string& path) { return std::filesystem::exists(path); }

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

Result RunTool(const Arguments& arguments, std::string_view input) {
  return RunCommand(WithTool({}, arguments), input);
}

Result RunProgram(const Arguments& command, std::string_view input) {
  Arguments found = {"/usr/bin/env", "--"};
  found.insert(found.end(), command.begin(), command.end());
  return RunCommand(found, input);
}

Result RunWithFileLimit(int blocks, const Arguments& arguments, std::string_view input) {
  const std::string script = "ulimit -f " + std::to_string(blocks) + " && exec \"$@\"";
  return RunCommand(WithTool({"/bin/sh", "-c", script, "sh"}, arguments), input);
}

Process::Process(const Arguments& arguments, const Streams& streams)
    : pid_(Spawn(WithTool({}, arguments), streams)) {}

void Process::Signal(int signal) const { EXPECT_EQ(kill(pid_, signal), 0); }

int Process::Wait() const { return WaitFor(pid_); }

}  // namespace kestrav::test
