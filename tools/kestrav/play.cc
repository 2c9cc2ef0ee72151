#include <atomic>
#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include "commands.h"
#include "kestrav/host/time/manual_source.h"
#include "player.h"
#include "terminal.h"
#include "text.h"

namespace kestrav::tool {
namespace {

constexpr int kStatusPeriodMs = 100;

const char* const kKeyHelp =
    "space pause, resume   f faster (1, 2, 4, 10 times)   r back   q stop   ? this help";

struct Options {
  std::string path;
  PlayerSettings player;
  PlayFormat format = PlayFormat::kText;
  bool unpaced = false;
  bool virtual_time = false;
};

const char* StateText(PlaybackStatusType status) {
  switch (status) {
    case PlaybackStarting:
      return "starting";
    case PlaybackPlaying:
      return "playing";
    case PlaybackPaused:
      return "paused";
    case PlaybackRewinding:
      return "rewinding";
    case PlaybackFinished:
      return "finished";
    case PlaybackOff:
      break;
  }
  return "off";
}

std::string Clock(std::uint32_t scnds) {
  char text[16];
  std::snprintf(text, sizeof(text), "%u:%02u", scnds / 60, scnds % 60);
  return text;
}

std::string StatusLine(const IKestrav& engine) {
  constexpr std::uint32_t kBarWidth = 30;
  const std::uint32_t length = engine.GetPlaybackLogLengthMs() / 1000;
  const std::uint32_t position = engine.GetPlaybackTimeScnds();
  const std::uint32_t filled =
      length == 0 ? 0
                  : static_cast<std::uint32_t>(std::uint64_t{std::min(position, length)} *
                                               kBarWidth / length);
  return std::string(StateText(engine.GetPlaybackStatus())) + "  " +
         std::to_string(engine.GetPlaybackSpeed()) + "x  " + Clock(position) + " / " +
         Clock(length) + "  [" + std::string(filled, '#') + std::string(kBarWidth - filled, '-') +
         "]  ? help";
}

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
  while (!player.IsOver() && !quit) {
    if (terminal.IsInteractive()) output.ShowStatus(StatusLine(player.Engine()));
    const int key = terminal.WaitForKey(terminal.IsInteractive() ? kStatusPeriodMs : -1);
    quit = Obey(key, player.Engine(), output);
  }
  player.Engine().StopPlayback(true);
  output.ShowStatus("");
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

ExitCode Play(const Options& options) {
  const Player::Log log = Player::ReadLog(options.path);
  std::unique_ptr<Time::ManualSource> clock;
  if (options.virtual_time) {
    clock = std::make_unique<Time::ManualSource>(1000, log.header.start_time);
    Time::SetSource(clock.get());
  }
  const bool normal = options.player.mode == PlaybackModeNormal;
  const bool paced = normal && !options.unpaced && !options.virtual_time;
  bool quit = false;
  bool ended = false;
  bool broken = false;
  {
    Terminal terminal;
    PlayOutput output(options.format, log.header.start_clock, paced);
    Player player(options.path, log, options.player, output);
    if (!normal) {
      quit = PlayAtOnce(player, options.player.mode, terminal);
    } else if (clock) {
      quit = PlayVirtually(player, *clock, terminal);
    } else {
      quit = PlayForPerson(player, output, terminal);
    }
    ended = player.HasEnded();
    broken = output.IsBroken();
  }
  Time::SetSource(nullptr);
  if (ended || quit || broken) return kDone;
  throw Failure(options.path + ": the playback stopped before the end of the log, which is damaged",
                kLost);
}

void Check(const CLI::App& command, const Options& options) {
  if (options.player.mode == PlaybackModeNormal) return;
  for (const char* const name : {"--speed", "--from", "--rewind", "--history", "--virtual"}) {
    if (command.count(name) == 0) continue;
    throw CLI::ValidationError(std::string(name) + " goes with --mode normal only");
  }
}

void AddOptions(CLI::App& command, Options& options) {
  static const std::map<std::string, PlaybackSpeedType> kSpeeds = {{"1", PlaybackSpeed1x},
                                                                   {"2", PlaybackSpeed2x},
                                                                   {"4", PlaybackSpeed4x},
                                                                   {"10", PlaybackSpeed10x}};
  static const std::map<std::string, PlaybackModeType> kModes = {
      {"normal", PlaybackModeNormal},
      {"polling", PlaybackModePolling},
      {"pass-through", PlaybackModePassThrough}};
  static const std::map<std::string, PlayFormat> kFormats = {{"text", PlayFormat::kText},
                                                             {"jsonl", PlayFormat::kJsonl}};
  command.add_option("LOG", options.path, "The log")->required();
  command.add_option("--client", options.player.clients, "Play to this client only; repeatable")
      ->allow_extra_args(false)
      ->option_text("NAME");
  command.add_option("--mode", options.player.mode, "How to play it")
      ->transform(CLI::CheckedTransformer(kModes))
      ->option_text("normal|polling|pass-through");
  auto* const speed = command.add_option("--speed", options.player.speed, "How fast to play it")
                          ->transform(CLI::CheckedTransformer(kSpeeds))
                          ->option_text("1|2|4|10");
  command.add_option("--from", options.player.offset_scnds, "Start this far into the log")
      ->option_text("SECONDS");
  command.add_option("--rewind", options.player.rewind_scnds, "How far the key r goes back (5)")
      ->option_text("SECONDS");
  command.add_option("--format", options.format, "What to print")
      ->transform(CLI::CheckedTransformer(kFormats))
      ->option_text("text|jsonl");
  command.add_flag("--history", options.player.history,
                   "The clients take their records from before --from at once");
  command.add_flag("--unpaced", options.unpaced, "Do not wait between records")->excludes(speed);
  command.add_flag("--virtual", options.virtual_time,
                   "Let time pass at once: the output of a real run, without the waiting");
}

}  // namespace

void AddPlay(CLI::App& app, ExitCode& exit_code) {
  CLI::App* const command = app.add_subcommand("play", "Plays a log to clients that print it");
  const auto options = std::make_shared<Options>();
  AddOptions(*command, *options);
  command->footer(
      "Text: wall time, log time (both in seconds), client, data id, payload.\n"
      "jsonl: an object a delivery (wall_ms, time_ms, client, client_id, data_id, size,\n"
      "payload) and a notification (wall_ms, notification, name, value, speed, clients).\n"
      "wall_ms counts from the start of the playback, time_ms is the record's time stamp,\n"
      "speed is 255 where a notification is not about speed.\n"
      "The modes polling and pass-through do not wait between records.\n\n"
      "Keys at a terminal: " +
      std::string(kKeyHelp) +
      ".\n\n"
      "Exit code 3: the playback stopped before the end of the log.");
  command->callback([command, options, &exit_code] {
    Check(*command, *options);
    if (options->unpaced) options->player.speed = PlaybackSpeedStopped;
    exit_code = Play(*options);
  });
}

}  // namespace kestrav::tool
