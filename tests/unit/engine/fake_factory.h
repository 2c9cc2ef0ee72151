#ifndef KESTRAV_TESTS_UNIT_ENGINE_FAKE_FACTORY_H_
#define KESTRAV_TESTS_UNIT_ENGINE_FAKE_FACTORY_H_

#include <stdexcept>
#include <utility>
#include <vector>

#include "kestrav/engine/kestrav_factory.h"
#include "kestrav/engine/kestrav_module.h"

namespace kestrav::test {

// Hands out the engine that a test gives it, and remembers the names that it was asked for.
class FakeFactory final : public IKestravFactory, public Module::ModuleBase {
 public:
  explicit FakeFactory(SmartPtr::Ptr<KestravImpl> its_engine = nullptr)
      : engine(std::move(its_engine)) {}

  SmartPtr::Ptr<KestravImpl> CreateNewKestrav(const String& name) override {
    if (throws) throw std::runtime_error("no engine");
    if (!quiet) names.push_back(name);
    return engine;
  }

  SmartPtr::Ptr<KestravImpl> engine;
  std::vector<String> names;
  bool throws = false;
  bool quiet = false;  // remembers nothing, which needs memory
};

// Makes `factory` the one that the module asks.
inline bool Connect(KestravModuleImpl& module, FakeFactory& factory) {
  Module::AccessorBase* const accessor = module.FirstAccessor();
  return accessor != nullptr && Module::IModule::NextAccessor(*accessor) == nullptr &&
         accessor->Fill(factory);
}

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_UNIT_ENGINE_FAKE_FACTORY_H_
