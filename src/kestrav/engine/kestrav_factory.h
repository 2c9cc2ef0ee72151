#ifndef KESTRAV_ENGINE_KESTRAV_FACTORY_H_
#define KESTRAV_ENGINE_KESTRAV_FACTORY_H_

#include <cstdint>

#include "kestrav/engine/kestrav_impl.h"
#include "kestrav/host/api.h"
#include "kestrav/host/memory/ptr.h"
#include "kestrav/host/module/module.h"
#include "kestrav/host/text/string.h"

namespace kestrav {

class IKestravFactory;

// The tag of the module that makes recorders.
struct KESTRAV_API KestravFactoryDef {
  using Interface = IKestravFactory;
  static constexpr const wchar_t* kName = L"KestravFactoryDef";
  static constexpr std::uint32_t kVersion = 0;
  using Dependencies = Module::DependsOn<>;
  static SmartPtr::Ptr<Module::IModule> Factory();
};

// Makes recorders for whoever wants one of its own. Any thread, once the module has started.
class KESTRAV_API IKestravFactory : public Module::Interface<KestravFactoryDef> {
 public:
  // A new recorder, ready for use, whose threads are named after it. Only the caller holds it; it
  // keeps the thread owner of the factory alive. Empty: the name is empty, the factory has no
  // thread owner, or memory is short.
  virtual SmartPtr::Ptr<KestravImpl> CreateNewKestrav(const String& name) = 0;
};

class KESTRAV_API KestravFactoryImpl : public IKestravFactory, public Module::ModuleBase {
 public:
  SmartPtr::Ptr<KestravImpl> CreateNewKestrav(const String& name) override;
};

}  // namespace kestrav

#endif  // KESTRAV_ENGINE_KESTRAV_FACTORY_H_
