#ifndef KESTRAV_HOST_MODULE_REGISTRY_H_
#define KESTRAV_HOST_MODULE_REGISTRY_H_

#include <cstdint>
#include <functional>
#include <vector>

#include "kestrav/host/api.h"
#include "kestrav/host/memory/ptr.h"
#include "kestrav/host/module/module.h"
#include "kestrav/host/text/string.h"
#include "kestrav/host/thread/thread_module.h"

namespace kestrav::Module {

enum class Code : std::uint8_t {
  kDone,
  kKnownAlready,       // `module` has been added before, or another one has its name
  kStartedAlready,     // `module` runs
  kUnknownModule,      // `module` has not been added, or does not run and so cannot stop
  kUnknownDependency,  // `module` needs `dependency`, which has not been added
  kCycle,              // `module` needs `dependency`, which, by way of others, needs `module`
  kUndeclared,         // `module` has an accessor to `dependency`, but does not say that it needs
                       // it, or `dependency` lacks the interface of its tag
  kNotMade,            // the factory of `module` gave nothing, or no thread owner was to be had
  kStartFailed,        // `module` answered false
  kDependencyFailed,   // `module` was not started: `dependency`, which it needs, failed
  kInUse,              // `module` is needed by `dependency`, which still runs
  kBusy,               // asked for from within a module's factory, `Start` or `Shutdown`
  kNoMemory,
};

// What came of a call, and of which module it tells.
struct Result {
  Code code = Code::kDone;
  String module;
  String dependency;

  explicit operator bool() const { return code == Code::kDone; }
};

// The modules of a program: starts them in the order of their dependencies, each with a thread
// owner of its own, and shuts them down in the opposite one. For one thread; a module's own
// operations may be called from any that the module allows. While a module starts or shuts down it
// may ask for others (`Get`); everything else is refused then.
class KESTRAV_API Registry {
 public:
  // Makes the thread owner of the module of this name; empty: none is to be had.
  using ThreadOwners = std::function<SmartPtr::Ptr<Thread::ThreadModule>(const String& module)>;

  // Without `owners` each module gets an owner of the system's threads.
  explicit Registry(ThreadOwners owners = {});
  Registry(const Registry&) = delete;
  Registry& operator=(const Registry&) = delete;
  // Shuts down and lets go of every module, the ones that others need last.
  ~Registry();

  template <class Tag>
  [[nodiscard]] Result Add() {
    return Add(&DefinitionOf<Tag>);
  }

  // Starts the module and, before it, what it needs and does not run yet. When one fails, those
  // that were started for it run on; `Stop` or `Shutdown` ends them.
  template <class Tag>
  [[nodiscard]] Result Start() {
    return Start(typeid(Tag), Tag::kName);
  }
  // Starts every module that does not run, in the order of their dependencies and, among those that
  // are ready, in the one in which they were added. Nothing is made or started when a dependency is
  // unknown or goes in a circle; stops at the first that fails.
  [[nodiscard]] Result StartAll();

  // Shuts the module down and lets go of it; it may then be started again.
  template <class Tag>
  [[nodiscard]] Result Stop() {
    return Stop(typeid(Tag), Tag::kName);
  }
  // Does so with every module, in the opposite order of their starts.
  void Shutdown();

  // The module, which lives as long as somebody holds it. Empty: it does not run.
  template <class Tag>
  SmartPtr::Ptr<typename Tag::Interface> Get() const {
    return std::dynamic_pointer_cast<typename Tag::Interface>(Find(typeid(Tag)));
  }

 private:
  struct Entry {
    Definition definition;
    std::vector<Definition> dependencies;
    SmartPtr::Ptr<IModule> module;  // empty: it does not run
  };

  Result Add(Definition (*definition)());
  Result Start(std::type_index tag, const wchar_t* name);
  Result Stop(std::type_index tag, const wchar_t* name);
  SmartPtr::Ptr<IModule> Find(std::type_index tag) const;
  std::size_t IndexOf(std::type_index tag) const;
  Result Plan(std::size_t index, std::vector<std::size_t>& trail,
              std::vector<std::size_t>& order) const;
  Result StartPlanned(const std::vector<std::size_t>& order);
  Result StartOne(Entry& entry);
  Result FillAccessors(const Entry& entry, IModule& module) const;

  const ThreadOwners owners_;
  bool busy_ = false;                 // a module's code runs
  std::vector<Entry> entries_;        // in the order in which they were added
  std::vector<std::size_t> started_;  // indexes of entries, in the order of their starts
};

}  // namespace kestrav::Module

#endif  // KESTRAV_HOST_MODULE_REGISTRY_H_
