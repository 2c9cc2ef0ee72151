#ifndef KESTRAV_EXAMPLES_HEAD_UNIT_HEAD_UNIT_H_
#define KESTRAV_EXAMPLES_HEAD_UNIT_HEAD_UNIT_H_

#include <array>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <string>

#include "components.h"
#include "kestrav/engine/kestrav_config.h"
#include "kestrav/engine/kestrav_module.h"
#include "kestrav/host/config/text_file_store.h"
#include "kestrav/host/module/registry.h"

namespace kestrav::example {

// A head unit with a recorder: its files stand in one folder.
//   kestrav.conf   the configuration
//   settings.txt   optional: which clients are recorded, before what the configuration says
//   head_unit.klog the log
// Every operation answers whether it succeeded; a failure has been told on standard error.
class HeadUnit {
 public:
  explicit HeadUnit(const std::string& folder);
  ~HeadUnit();

  // Modules, recorder, configuration and clients.
  bool Start();
  bool Record(std::uint32_t seconds);
  // Plays the log of this folder back, ten times as fast, and counts what is delivered.
  bool PlayBack();
  // Writes the recorder's selection and the control strings back to the configuration.
  bool Save();

  void PrintSummary() const;

 private:
  bool StartModules();
  bool ReadConfiguration();
  bool SelectClients();
  bool OpenLog();
  bool StartComponents();
  // Runs `start` and waits for one of these notifications. false: `start` answered false, or none
  // came in time.
  bool RunUntil(std::initializer_list<NotificationIdType> expected, std::uint32_t limit_ms,
                const std::function<bool()>& start);

  std::array<Component*, 3> Components() { return {&bus_, &climate_, &position_}; }

  const String folder_;
  bool first_start_ = false;  // there is no configuration yet
  bool selection_is_whole_ = false;

  Thread::ThreadModule threads_;  // of the components; each module of the registry has its own
  Module::Registry modules_;
  SmartPtr::Ptr<KestravModule> recorder_;
  Config::TextFileStore store_;
  KestravConfig config_;
  VehicleBus bus_;
  Climate climate_;
  Position position_;
  std::map<String, bool> selection_;
};

}  // namespace kestrav::example

#endif  // KESTRAV_EXAMPLES_HEAD_UNIT_HEAD_UNIT_H_
