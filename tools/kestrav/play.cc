#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "kestrav/host/time/manual_source.h"
#include "play_status.h"
#include "player.h"
#include "terminal.h"

namespace kestrav::tool {
namespace {

constexpr int kStatusPeriodMs = 100;

const char* const kKeyHelp =
    "space pause or resume, f faster (1, 2, 4, 10, 1, ...), r back, q stop, ? this help";

struct Options {
  std::string path;
  PlayerSettings player;
  PlayFormat format = PlayFormat::kText;
  bool unpaced = false;
  bool virtual_time = false;
};

// Whether the person wants to stop.
bool Obey(int key, IKestrav& engine, PlayOutput& output) {
  switch (key) {
    case 'q':
    case Terminal::kInterrupt:
      return true;
    case ' ':
      if (engine.GetPlaybackStatus() == PlaybackPaused) {
        engine.ResumePlayback();
      } else {
        engine.PausePlayback();
      }
      break;
    case 'f':
      engine.FastForwardPlayback();
      break;
    case 'r':
      engine.RewindPlayback();
      break;
    case '?':
    case 'h':
      output.Say(kKeyHelp);
      break;
    default:
      break;
  }
  return false;
}

// Whether the person stopped it.
bool PlayForPerson(Player& player, PlayOutput& output, Terminal& terminal) {
  player.Start([&terminal] { terminal.Wake(); });
  bool quit = false;
  while (!player.IsOver() && !output.IsBroken() && !quit) {
    const bool shown = terminal.IsInteractive();
    output.ShowStatus(shown ? PlayStatus(player.Engine(), terminal.Columns()) : "");
    const int key = terminal.WaitForKey(terminal.HasKeys() ? kStatusPeriodMs : -1);
    quit = Obey(key, player.Engine(), output);
  }
  player.Engine().StopPlayback(true);
  return quit;
}

// The clock moves from one thing that is due to the next, so what a real run waits for happens at
// once.
bool PlayVirtually(Player& player, Time::ManualSource& clock, Terminal& terminal) {
  player.Start({});
  clock.Settle();
  bool quit = false;
  while (!player.IsOver() && !quit && clock.AdvanceToNextDue()) {
    quit = terminal.WaitForKey(0) == Terminal::kInterrupt;
  }
  player.Engine().StopPlayback(true);
  return quit;
}

bool PlayAtOnce(Player& player, PlaybackModeType mode, Terminal& terminal) {
  bool quit = false;
  const auto interrupted = [&] {
    quit = quit || terminal.WaitForKey(0) == Terminal::kInterrupt;
    return quit;
  };
  if (mode == PlaybackModePolling) {
    player.Poll(interrupted);
  } else {
    player.PassThrough(interrupted);
  }
  return quit;
}

// The manual clock while it is wanted: put in use for as long as the object lives.
class VirtualTime {
 public:
  explicit VirtualTime(std::int64_t wall_scnds) : clock_(1000, wall_scnds) {
    Time::SetSource(&clock_);
  }
  ~VirtualTime() { Time::SetSource(nullptr); }
  VirtualTime(const VirtualTime&) = delete;
  VirtualTime& operator=(const VirtualTime&) = delete;

  Time::ManualSource& Clock() { return clock_; }

 private:
  Time::ManualSource clock_;
};

ExitCode Play(const Options& options) {
  const Player::Log log = Player::ReadLog(options.path);
  const bool normal = options.player.mode == PlaybackModeNormal;
  const bool for_person = normal && !options.virtual_time;
  std::optional<VirtualTime> virtual_time;
  if (options.virtual_time) virtual_time.emplace(log.header.start_time);
  // The reader of a pipe, a pager say, may want the keyboard for itself.
  Terminal terminal(for_person && !IsOutputPipe());
  PlayOutput output(options.format, log.header.start_clock, for_person && !options.unpaced);
  Player player(options.path, log, options.player, output);
  bool quit = false;
  if (!normal) {
    quit = PlayAtOnce(player, options.player.mode, terminal);
  } else if (virtual_time) {
    quit = PlayVirtually(player, virtual_time->Clock(), terminal);
  } else {
    quit = PlayForPerson(player, output, terminal);
  }
  output.Finish();
  if (player.HasEnded() || quit || output.IsBroken()) return kDone;
  throw Failure(options.path + ": the playback stopped before the end of the log, which is damaged",
                kLost);
}

void Check(const CLI::App& command, const Options& options) {
  if (options.player.mode == PlaybackModeNormal) {
    // The recorder paces up to that time, and at speed 0 such a wait has no end.
    if (!options.unpaced || command.count("--from") == 0) return;
    throw CLI::ValidationError("--from does not go with --unpaced; --virtual also plays at once");
  }
  for (const char* const name : {"--speed", "--from", "--rewind", "--history", "--virtual"}) {
    if (command.count(name) == 0) continue;
    throw CLI::ValidationError(std::string(name) + " goes with --mode normal only");
  }
}

// An option that takes one of these words, and nothing else.
template <class Value>
CLI::Option* AddChoice(CLI::App& command, const char* name, Value& value,
                       const std::vector<std::pair<std::string, Value>>& choices,
                       const std::string& description) {
  std::vector<std::string> words;
  for (const auto& choice : choices) words.push_back(choice.first);
  const auto take = [&value, choices](const std::string& word) {
    for (const auto& choice : choices) {
      if (choice.first == word) value = choice.second;
    }
  };
  return command.add_option_function<std::string>(name, take, description)
      ->check(CLI::IsMember(words))
      ->option_text(CLI::detail::join(words, "|"));
}

void AddOptions(CLI::App& command, Options& options) {
  PlayerSettings& player = options.player;
  command.add_option("LOG", options.path, "The log to play")->required();
  command.add_option("--client", player.clients, "Play to this client only (repeatable)")
      ->allow_extra_args(false)
      ->option_text("NAME");
  auto* const speed = AddChoice(command, "--speed", player.speed,
                                {{"1", PlaybackSpeed1x},
                                 {"2", PlaybackSpeed2x},
                                 {"4", PlaybackSpeed4x},
                                 {"10", PlaybackSpeed10x}},
                                "How many times faster than it was recorded (1)");
  command.add_option("--from", player.offset_scnds, "Start this far into the log (whole seconds)")
      ->option_text("SECONDS");
  command.add_flag("--history", player.history,
                   "The clients get the records from before --from too, all at once");
  command.add_option("--rewind", player.rewind_scnds, "How far the key r goes back (5)")
      ->check(CLI::Range(1U, 1'000'000U))
      ->option_text("SECONDS");
  AddChoice(command, "--format", options.format,
            {{"text", PlayFormat::kText}, {"jsonl", PlayFormat::kJsonl}}, "What to print (text)");
  command
      .add_flag("--unpaced", options.unpaced,
                "Play without waiting between records, not with --from")
      ->excludes(speed);
  command.add_flag("--virtual", options.virtual_time,
                   "Print at once what a run in real time would, with its wall times");
  AddChoice(command, "--mode", player.mode,
            {{"normal", PlaybackModeNormal},
             {"polling", PlaybackModePolling},
             {"pass-through", PlaybackModePassThrough}},
            "How the recorder plays (normal); the others never wait, and take none of\n"
            "--speed, --from, --history, --rewind, --virtual");
}

}  // namespace

void AddPlay(CLI::App& app, ExitCode& exit_code) {
  CLI::App* const command = app.add_subcommand("play", "Play a log to clients that print it");
  const auto options = std::make_shared<Options>();
  AddOptions(*command, *options);
  command->footer(
      "text   wall time and log time in seconds, client, data id, payload\n"
      "jsonl  an object a delivery: wall_ms, time_ms, client, client_id, data_id, size, payload;\n"
      "       an object a notification: wall_ms, notification, name, value, speed, clients\n"
      "wall_ms counts from the start of the playback, time_ms is the record's time stamp, a\n"
      "payload is in hex, and speed is 255 where the notification is not about speed.\n\n"
      "Keys, unless the output goes to a pipe:\n"
      "  " +
      std::string(kKeyHelp) +
      "\n\n"
      "Damaged records are left out. Exit code 3: the playback stopped before the end of the log.");
  command->callback([command, options, &exit_code] {
    Check(*command, *options);
    if (options->unpaced) options->player.speed = PlaybackSpeedStopped;
    exit_code = Play(*options);
  });
}

}  // namespace kestrav::tool
