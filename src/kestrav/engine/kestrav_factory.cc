#include "kestrav/engine/kestrav_factory.h"

#include "kestrav/host/memory/try.h"

namespace kestrav {
namespace {

// The recorder's threads need their owner as long as there is a recorder, also when the factory
// has gone.
struct OwnedKestrav {
  SmartPtr::Ptr<Thread::ThreadModule> threads;
  KestravImpl recorder;
};

}  // namespace

SmartPtr::Ptr<Module::IModule> KestravFactoryDef::Factory() {
  return Memory::MakeShared<KestravFactoryImpl>();
}

SmartPtr::Ptr<KestravImpl> KestravFactoryImpl::CreateNewKestrav(const String& name) {
  if (name.empty() || !ThreadModule()) return nullptr;
  const SmartPtr::Ptr<OwnedKestrav> owned = Memory::MakeShared<OwnedKestrav>();
  if (!owned) return nullptr;
  owned->threads = ThreadModule();
  if (!owned->recorder.Init(owned->threads.get(), name)) return nullptr;
  return {owned, &owned->recorder};
}

}  // namespace kestrav
