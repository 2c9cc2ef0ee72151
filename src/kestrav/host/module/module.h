#ifndef KESTRAV_HOST_MODULE_MODULE_H_
#define KESTRAV_HOST_MODULE_MODULE_H_

#include <cstdint>
#include <typeindex>
#include <vector>

#include "kestrav/host/api.h"
#include "kestrav/host/memory/ptr.h"
#include "kestrav/host/text/string.h"
#include "kestrav/host/thread/thread_module.h"

namespace kestrav::Module {

class IModule;

// What a tag tells of its module. A tag is a type that nobody makes objects of:
//
//   struct ClockDef {
//     using Interface = IClock;                     // derives from Module::Interface<ClockDef>
//     static constexpr const wchar_t* kName = L"ClockDef";
//     static constexpr std::uint32_t kVersion = 0;
//     using Dependencies = Module::DependsOn<TimeDef>;
//     static SmartPtr::Ptr<Module::IModule> Factory();  // empty: it cannot be made
//   };
//
// A module is identified by the type of its tag; the names are for people.
struct Definition {
  std::type_index tag;
  const wchar_t* name;
  std::uint32_t version;
  std::vector<Definition> (*dependencies)();
  SmartPtr::Ptr<IModule> (*factory)();
};

template <class Tag>
Definition DefinitionOf();

template <class... Tags>
struct DependsOn {
  static std::vector<Definition> List() { return {DefinitionOf<Tags>()...}; }
};

template <class Tag>
Definition DefinitionOf() {
  return {typeid(Tag), Tag::kName, Tag::kVersion, &Tag::Dependencies::List, &Tag::Factory};
}

// A module's way to one that it depends on. Declared as a member of the module; filled before the
// module starts and valid until it has shut down and the registry has let go of it.
class KESTRAV_API AccessorBase {
 public:
  AccessorBase(const AccessorBase&) = delete;
  AccessorBase& operator=(const AccessorBase&) = delete;
  virtual ~AccessorBase() = default;

  const Definition& Target() const { return target_; }
  // false: `module` does not have the interface of the target.
  [[nodiscard]] virtual bool Fill(IModule& module) = 0;

 protected:
  AccessorBase(IModule& owner, const Definition& target);

 private:
  friend class IModule;

  const Definition target_;
  AccessorBase* next_ = nullptr;
};

// One module of the host. The registry makes it, hands it what it needs, starts it, shuts it down
// and lets go of it; all on one thread.
class KESTRAV_API IModule {
 public:
  IModule() = default;
  IModule(const IModule&) = delete;
  IModule& operator=(const IModule&) = delete;
  virtual ~IModule() = default;

  // The thread owner of this module, before `Start`.
  virtual void SetThreadModule(const SmartPtr::Ptr<Thread::ThreadModule>& threads) = 0;
  // Everything that the module depends on has started. false: it cannot run.
  [[nodiscard]] virtual bool Start() = 0;
  // Once for every good `Start`, while all that it depends on still runs.
  virtual void Shutdown() = 0;

  AccessorBase* FirstAccessor() const { return accessors_; }
  static AccessorBase* NextAccessor(const AccessorBase& accessor) { return accessor.next_; }

 private:
  friend class AccessorBase;

  AccessorBase* accessors_ = nullptr;
};

// What others see of the module of `Tag`; derived from by `Tag::Interface`.
template <class Tag>
class Interface : public virtual IModule {};

// The usual module: starts and shuts down by doing nothing.
class KESTRAV_API ModuleBase : public virtual IModule {
 public:
  void SetThreadModule(const SmartPtr::Ptr<Thread::ThreadModule>& threads) override {
    threads_ = threads;
  }
  [[nodiscard]] bool Start() override { return true; }
  void Shutdown() override {}

 protected:
  const SmartPtr::Ptr<Thread::ThreadModule>& ThreadModule() const { return threads_; }

 private:
  SmartPtr::Ptr<Thread::ThreadModule> threads_;
};

template <class Tag>
class Accessor final : public AccessorBase {
 public:
  using Target = typename Tag::Interface;

  explicit Accessor(IModule& owner) : AccessorBase(owner, DefinitionOf<Tag>()) {}

  [[nodiscard]] bool Fill(IModule& module) override {
    module_ = dynamic_cast<Target*>(&module);
    return module_ != nullptr;
  }

  // Null before the registry has filled it.
  Target* Get() const { return module_; }
  Target* operator->() const { return module_; }

 private:
  Target* module_ = nullptr;
};

}  // namespace kestrav::Module

#endif  // KESTRAV_HOST_MODULE_MODULE_H_
