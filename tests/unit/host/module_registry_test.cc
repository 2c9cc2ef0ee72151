#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <typeindex>
#include <utility>
#include <vector>

#include "kestrav/host/module/registry.h"
#include "support/short_memory.h"
#include "support/thread_modules.h"
#include "unit/host/parts.h"

namespace kestrav::Module {

void PrintTo(const Result& result, std::ostream* out) {
  *out << static_cast<int>(result.code) << " " << Text::ToUtf8(result.module) << " "
       << Text::ToUtf8(result.dependency);
}

}  // namespace kestrav::Module

namespace kestrav::test {
namespace {

using Module::Code;
using Module::Registry;
using testing::ElementsAre;
using testing::IsEmpty;

MATCHER_P3(Says, code, module, dependency, "") {
  return arg.code == code && arg.module == module && arg.dependency == dependency &&
         static_cast<bool>(arg) == (code == Code::kDone);
}

const auto kIsDone = Says(Code::kDone, L"", L"");

struct Bottom : PartDef<Bottom, 'B'> {};
struct Middle : PartDef<Middle, 'M', Bottom> {};
struct Top : PartDef<Top, 'T', Middle, Bottom> {};
struct Alone : PartDef<Alone, 'A'> {};

struct Hen;
struct Egg : PartDef<Egg, 'E', Hen> {};
struct Hen : PartDef<Hen, 'H', Alone, Egg> {};
struct Self : PartDef<Self, 'S', Self> {};
struct FarmHouse : PartDef<FarmHouse, 'F', Hen> {};

// Has an accessor to `Bottom`, but does not say that it needs it.
struct Sly : PartDef<Sly, 'Y'> {
  static SmartPtr::Ptr<Module::IModule> Factory() { return std::make_shared<Part<Sly, Bottom>>(); }
};
// Makes a module that has not the interface of its tag.
struct Fraud : PartDef<Fraud, 'R'> {
  static SmartPtr::Ptr<Module::IModule> Factory() { return std::make_shared<Part<Alone>>(); }
};
struct Victim : PartDef<Victim, 'V', Fraud> {};
struct Namesake : PartDef<Namesake, 'B'> {};

// Asks the registry for things while its own code runs.
struct Nosy : PartDef<Nosy, 'N'> {
  using Interface = Module::IModule;
  static SmartPtr::Ptr<Module::IModule> Factory();
  static inline std::function<void()> asks;
};

class NosyModule final : public Module::ModuleBase {
 public:
  bool Start() override {
    Nosy::asks();
    return true;
  }
  void Shutdown() override { Nosy::asks(); }
};

SmartPtr::Ptr<Module::IModule> Nosy::Factory() {
  Nosy::asks();
  return std::make_shared<NosyModule>();
}

class ModuleRegistry : public testing::Test {
 protected:
  ModuleRegistry() { world = World(); }

  static std::vector<std::string> TakeEvents() { return std::exchange(world.events, {}); }
  // Adds the three that build on each other, the uppermost first.
  void AddTower() {
    EXPECT_THAT(registry_.Add<Top>(), kIsDone);
    EXPECT_THAT(registry_.Add<Middle>(), kIsDone);
    EXPECT_THAT(registry_.Add<Bottom>(), kIsDone);
  }

  Registry registry_;
};

TEST_F(ModuleRegistry, StartsAModuleAfterAllThatItNeeds) {
  AddTower();
  EXPECT_THAT(TakeEvents(), IsEmpty());
  EXPECT_THAT(registry_.Start<Top>(), kIsDone);
  // In brackets: which modules it reaches while it starts, each of which has started.
  EXPECT_THAT(TakeEvents(), ElementsAre("start B()", "start M(B)", "start T(MB)"));
}

TEST_F(ModuleRegistry, StartsNoMoreThanIsNeeded) {
  AddTower();
  EXPECT_THAT(registry_.Start<Middle>(), kIsDone);
  EXPECT_THAT(TakeEvents(), ElementsAre("start B()", "start M(B)"));
  EXPECT_EQ(registry_.Get<Top>(), nullptr);
  EXPECT_THAT(registry_.Start<Top>(), kIsDone);
  EXPECT_THAT(TakeEvents(), ElementsAre("start T(MB)"));
}

TEST_F(ModuleRegistry, StartsAllInTheOrderOfTheirNeedsAndThenOfTheirAdding) {
  EXPECT_THAT(registry_.Add<Alone>(), kIsDone);
  AddTower();
  EXPECT_THAT(registry_.StartAll(), kIsDone);
  EXPECT_THAT(TakeEvents(), ElementsAre("start A()", "start B()", "start M(B)", "start T(MB)"));
  EXPECT_THAT(registry_.StartAll(), kIsDone);
  EXPECT_THAT(TakeEvents(), IsEmpty());
}

TEST_F(ModuleRegistry, GivesTheModuleThatRuns) {
  AddTower();
  EXPECT_EQ(registry_.Get<Bottom>(), nullptr);
  EXPECT_THAT(registry_.StartAll(), kIsDone);
  ASSERT_NE(registry_.Get<Bottom>(), nullptr);
  EXPECT_EQ(registry_.Get<Bottom>()->Letter(), 'B');
  EXPECT_EQ(registry_.Get<Bottom>(), registry_.Get<Bottom>());
  EXPECT_EQ(registry_.Get<Alone>(), nullptr);
}

TEST_F(ModuleRegistry, ShutsDownInTheOppositeOrderBeforeItLetsGoOfAny) {
  AddTower();
  EXPECT_THAT(registry_.StartAll(), kIsDone);
  TakeEvents();
  registry_.Shutdown();
  EXPECT_THAT(TakeEvents(), ElementsAre("shut T(MB)", "shut M(B)", "shut B()", "gone T(MB)",
                                        "gone M(B)", "gone B()"));
  registry_.Shutdown();
  EXPECT_THAT(TakeEvents(), IsEmpty());
}

TEST_F(ModuleRegistry, ShutsDownAtItsEnd) {
  {
    Registry registry;
    EXPECT_THAT(registry.Add<Middle>(), kIsDone);
    EXPECT_THAT(registry.Add<Bottom>(), kIsDone);
    EXPECT_THAT(registry.StartAll(), kIsDone);
    TakeEvents();
  }
  EXPECT_THAT(TakeEvents(), ElementsAre("shut M(B)", "shut B()", "gone M(B)", "gone B()"));
}

TEST_F(ModuleRegistry, KnowsAModuleAndANameOnce) {
  EXPECT_THAT(registry_.Add<Bottom>(), kIsDone);
  EXPECT_THAT(registry_.Add<Bottom>(), Says(Code::kKnownAlready, L"Module B", L""));
  EXPECT_THAT(registry_.Add<Namesake>(), Says(Code::kKnownAlready, L"Module B", L""));
  EXPECT_THAT(registry_.StartAll(), kIsDone);
  EXPECT_THAT(TakeEvents(), ElementsAre("start B()"));
}

TEST_F(ModuleRegistry, RefusesToStartAModuleTwice) {
  AddTower();
  EXPECT_THAT(registry_.Start<Middle>(), kIsDone);
  TakeEvents();
  EXPECT_THAT(registry_.Start<Middle>(), Says(Code::kStartedAlready, L"Module M", L""));
  EXPECT_THAT(registry_.Start<Bottom>(), Says(Code::kStartedAlready, L"Module B", L""));
  EXPECT_THAT(TakeEvents(), IsEmpty());
}

TEST_F(ModuleRegistry, GivesWhatRunsAndRefusesTheRestWhileAModulesCodeRuns) {
  EXPECT_THAT(registry_.Add<Bottom>(), kIsDone);
  EXPECT_THAT(registry_.Add<Nosy>(), kIsDone);
  EXPECT_THAT(registry_.Start<Bottom>(), kIsDone);
  int asked = 0;
  Nosy::asks = [&] {
    ++asked;
    EXPECT_NE(registry_.Get<Bottom>(), nullptr);
    EXPECT_THAT(registry_.Add<Alone>(), Says(Code::kBusy, L"Module A", L""));
    EXPECT_THAT(registry_.Start<Nosy>(), Says(Code::kBusy, L"Module N", L""));
    EXPECT_THAT(registry_.StartAll(), Says(Code::kBusy, L"", L""));
    EXPECT_THAT(registry_.Stop<Bottom>(), Says(Code::kBusy, L"Module B", L""));
    registry_.Shutdown();
    EXPECT_NE(registry_.Get<Bottom>(), nullptr);
  };
  EXPECT_THAT(registry_.Start<Nosy>(), kIsDone);
  EXPECT_THAT(registry_.Stop<Nosy>(), kIsDone);
  EXPECT_EQ(asked, 3);  // made, started, shut down
  EXPECT_THAT(registry_.Add<Alone>(), kIsDone);
  Nosy::asks = nullptr;
}

TEST_F(ModuleRegistry, NamesTheModuleThatItDoesNotKnow) {
  EXPECT_THAT(registry_.Start<Top>(), Says(Code::kUnknownModule, L"Module T", L""));
  EXPECT_THAT(registry_.Stop<Top>(), Says(Code::kUnknownModule, L"Module T", L""));
  EXPECT_THAT(registry_.StartAll(), kIsDone);
}

TEST_F(ModuleRegistry, NamesTheUnknownDependencyAndMakesNothing) {
  EXPECT_THAT(registry_.Add<Alone>(), kIsDone);
  EXPECT_THAT(registry_.Add<Top>(), kIsDone);
  EXPECT_THAT(registry_.Add<Middle>(), kIsDone);
  const auto says = Says(Code::kUnknownDependency, L"Module M", L"Module B");
  EXPECT_THAT(registry_.Start<Top>(), says);
  EXPECT_THAT(registry_.StartAll(), says);
  EXPECT_THAT(TakeEvents(), IsEmpty());
  EXPECT_THAT(registry_.Start<Alone>(), kIsDone);
}

TEST_F(ModuleRegistry, NamesTheEndsOfACircleAndMakesNothing) {
  EXPECT_THAT(registry_.Add<Alone>(), kIsDone);
  EXPECT_THAT(registry_.Add<Hen>(), kIsDone);
  EXPECT_THAT(registry_.Add<Egg>(), kIsDone);
  EXPECT_THAT(registry_.Add<FarmHouse>(), kIsDone);
  EXPECT_THAT(registry_.Start<Hen>(), Says(Code::kCycle, L"Module E", L"Module H"));
  EXPECT_THAT(registry_.Start<Egg>(), Says(Code::kCycle, L"Module H", L"Module E"));
  EXPECT_THAT(registry_.Start<FarmHouse>(), Says(Code::kCycle, L"Module E", L"Module H"));
  EXPECT_THAT(registry_.StartAll(), Says(Code::kCycle, L"Module E", L"Module H"));
  EXPECT_THAT(TakeEvents(), IsEmpty());
}

TEST_F(ModuleRegistry, RefusesAModuleThatNeedsItself) {
  EXPECT_THAT(registry_.Add<Self>(), kIsDone);
  EXPECT_THAT(registry_.Start<Self>(), Says(Code::kCycle, L"Module S", L"Module S"));
}

TEST_F(ModuleRegistry, RefusesAnAccessorToWhatTheModuleDoesNotSayItNeeds) {
  EXPECT_THAT(registry_.Add<Bottom>(), kIsDone);
  EXPECT_THAT(registry_.Add<Sly>(), kIsDone);
  EXPECT_THAT(registry_.Start<Bottom>(), kIsDone);
  TakeEvents();
  EXPECT_THAT(registry_.Start<Sly>(), Says(Code::kUndeclared, L"Module Y", L"Module B"));
  EXPECT_THAT(TakeEvents(), ElementsAre("gone Y(-)"));
}

TEST_F(ModuleRegistry, RefusesAnAccessorToAModuleThatLacksItsInterface) {
  EXPECT_THAT(registry_.Add<Victim>(), kIsDone);
  EXPECT_THAT(registry_.Add<Fraud>(), kIsDone);
  EXPECT_THAT(registry_.Start<Victim>(), Says(Code::kUndeclared, L"Module V", L"Module R"));
  EXPECT_EQ(registry_.Get<Fraud>(), nullptr);
}

struct FailureCase {
  const char* name;
  Does does;
  Code code;
};

class ModuleFailure : public ModuleRegistry, public testing::WithParamInterface<FailureCase> {};

TEST_P(ModuleFailure, IsToldOfTheModuleItselfAndOfWhatNeedsIt) {
  AddTower();
  world.does['M'] = GetParam().does;
  EXPECT_THAT(registry_.Start<Middle>(), Says(GetParam().code, L"Module M", L""));
  EXPECT_EQ(registry_.Get<Middle>(), nullptr);
  EXPECT_NE(registry_.Get<Bottom>(), nullptr);
  EXPECT_THAT(registry_.Start<Top>(), Says(Code::kDependencyFailed, L"Module T", L"Module M"));
  EXPECT_THAT(registry_.StartAll(), Says(GetParam().code, L"Module M", L""));
  EXPECT_EQ(registry_.Get<Top>(), nullptr);
}

TEST_P(ModuleFailure, LeavesNothingBehindAndMayPass) {
  AddTower();
  world.does['M'] = GetParam().does;
  EXPECT_FALSE(registry_.StartAll());
  world.does.clear();
  TakeEvents();
  EXPECT_THAT(registry_.StartAll(), kIsDone);
  EXPECT_THAT(TakeEvents(), ElementsAre("start M(B)", "start T(MB)"));
  registry_.Shutdown();
  EXPECT_THAT(TakeEvents(), ElementsAre("shut T(MB)", "shut M(B)", "shut B()", "gone T(MB)",
                                        "gone M(B)", "gone B()"));
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, ModuleFailure,
    testing::Values(FailureCase{"FactoryGivesNothing", Does::kGiveNothing, Code::kNotMade},
                    FailureCase{"FactoryThrows", Does::kThrowWhenMade, Code::kNotMade},
                    FailureCase{"StartFails", Does::kFailToStart, Code::kStartFailed},
                    FailureCase{"StartThrows", Does::kThrowInStart, Code::kStartFailed}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(ModuleRegistry, AShutdownThatThrowsHoldsUpNoOther) {
  AddTower();
  world.does['M'] = Does::kThrowInShutdown;
  EXPECT_THAT(registry_.StartAll(), kIsDone);
  TakeEvents();
  registry_.Shutdown();
  EXPECT_THAT(TakeEvents(), ElementsAre("shut T(MB)", "shut M(B)", "shut B()", "gone T(MB)",
                                        "gone M(B)", "gone B()"));
}

TEST_F(ModuleRegistry, StopsAModuleUnlessAnotherUsesIt) {
  AddTower();
  EXPECT_THAT(registry_.StartAll(), kIsDone);
  TakeEvents();
  EXPECT_THAT(registry_.Stop<Middle>(), Says(Code::kInUse, L"Module M", L"Module T"));
  EXPECT_THAT(TakeEvents(), IsEmpty());
  EXPECT_THAT(registry_.Stop<Top>(), kIsDone);
  EXPECT_THAT(registry_.Stop<Middle>(), kIsDone);
  EXPECT_THAT(TakeEvents(), ElementsAre("shut T(MB)", "gone T(MB)", "shut M(B)", "gone M(B)"));
  EXPECT_THAT(registry_.Stop<Middle>(), Says(Code::kUnknownModule, L"Module M", L""));
  EXPECT_THAT(registry_.Start<Top>(), kIsDone);
  EXPECT_THAT(TakeEvents(), ElementsAre("start M(B)", "start T(MB)"));
  EXPECT_THAT(registry_.Stop<Top>(), kIsDone);
  TakeEvents();
  registry_.Shutdown();
  EXPECT_THAT(TakeEvents(), ElementsAre("shut M(B)", "shut B()", "gone M(B)", "gone B()"));
}

TEST_F(ModuleRegistry, AModuleThatIsHeldOutlivesIt) {
  SmartPtr::Ptr<IPart<Bottom>> held;
  {
    Registry registry;
    EXPECT_THAT(registry.Add<Bottom>(), kIsDone);
    EXPECT_THAT(registry.StartAll(), kIsDone);
    held = registry.Get<Bottom>();
  }
  EXPECT_THAT(TakeEvents(), ElementsAre("start B()", "shut B()"));
  EXPECT_NE(held->Threads(), nullptr);
  held.reset();
  EXPECT_THAT(TakeEvents(), ElementsAre("gone B()"));
}

TEST_F(ModuleRegistry, AModuleThatIsHeldWhileStoppedIsMadeAnew) {
  EXPECT_THAT(registry_.Add<Bottom>(), kIsDone);
  EXPECT_THAT(registry_.StartAll(), kIsDone);
  const SmartPtr::Ptr<IPart<Bottom>> held = registry_.Get<Bottom>();
  EXPECT_THAT(registry_.Stop<Bottom>(), kIsDone);
  EXPECT_THAT(registry_.StartAll(), kIsDone);
  EXPECT_NE(registry_.Get<Bottom>(), held);
}

TEST_F(ModuleRegistry, GivesEachModuleAThreadOwnerOfItsOwn) {
  AddTower();
  EXPECT_THAT(registry_.StartAll(), kIsDone);
  Thread::ThreadModule* const first = registry_.Get<Bottom>()->Threads();
  ASSERT_NE(first, nullptr);
  EXPECT_NE(first, registry_.Get<Middle>()->Threads());
  bool ran = false;
  const SmartPtr::Ptr<Thread::IThread> thread = first->Start(L"test", [&] { ran = true; }, {});
  ASSERT_NE(thread, nullptr);
  thread->Join();
  EXPECT_TRUE(ran);
}

TEST_F(ModuleRegistry, TakesThreadOwnersFromWhoeverMakesThem) {
  std::map<String, SmartPtr::Ptr<Thread::ThreadModule>> owners;
  Registry registry(
      [&](const String& module) { return owners[module] = std::make_shared<ThreadsUnderTest>(); });
  EXPECT_THAT(registry.Add<Middle>(), kIsDone);
  EXPECT_THAT(registry.Add<Bottom>(), kIsDone);
  EXPECT_THAT(registry.StartAll(), kIsDone);
  ASSERT_EQ(owners.size(), 2u);
  EXPECT_EQ(registry.Get<Bottom>()->Threads(), owners[L"Module B"].get());
  EXPECT_EQ(registry.Get<Middle>()->Threads(), owners[L"Module M"].get());
}

TEST_F(ModuleRegistry, StartsNoModuleWithoutAThreadOwner) {
  const Registry::ThreadOwners nobody = [](const String&) { return nullptr; };
  const Registry::ThreadOwners thrower = [](const String&) -> SmartPtr::Ptr<Thread::ThreadModule> {
    throw std::runtime_error("no threads");
  };
  for (const Registry::ThreadOwners& owners : {nobody, thrower}) {
    Registry registry(owners);
    EXPECT_THAT(registry.Add<Bottom>(), kIsDone);
    EXPECT_THAT(registry.Start<Bottom>(), Says(Code::kNotMade, L"Module B", L""));
  }
  EXPECT_THAT(TakeEvents(), ElementsAre("gone B()", "gone B()"));
}

TEST_F(ModuleRegistry, ShortOfMemoryFailsWithAResultAndMayBeAskedAgain) {
  world.quiet = true;
  std::uint32_t grants = 0;
  for (bool was_short = true; was_short; ++grants) {
    Registry registry;
    bool added = false;
    bool started = false;
    was_short = RanShort(grants, [&] {
      added = registry.Add<Middle>() && registry.Add<Bottom>();
      started = registry.StartAll() && registry.Get<Middle>();
    });
    EXPECT_EQ(added && started, !was_short) << grants;
    const auto may_be_known = testing::AnyOf(kIsDone, Says(Code::kKnownAlready, L"Module M", L""),
                                             Says(Code::kKnownAlready, L"Module B", L""));
    EXPECT_THAT(registry.Add<Middle>(), may_be_known) << grants;
    EXPECT_THAT(registry.Add<Bottom>(), may_be_known) << grants;
    EXPECT_THAT(registry.StartAll(), kIsDone) << grants;
    EXPECT_NE(registry.Get<Middle>(), nullptr) << grants;
  }
  EXPECT_GT(grants, 5u);
}

TEST(ModuleDefinition, HoldsWhatTheTagSays) {
  const Module::Definition definition = Module::DefinitionOf<Top>();
  EXPECT_EQ(definition.tag, std::type_index(typeid(Top)));
  EXPECT_STREQ(definition.name, L"Module T");
  EXPECT_EQ(definition.version, 3u);
  const std::vector<Module::Definition> needed = definition.dependencies();
  ASSERT_EQ(needed.size(), 2u);
  EXPECT_EQ(needed[0].tag, std::type_index(typeid(Middle)));
  EXPECT_EQ(needed[1].tag, std::type_index(typeid(Bottom)));
}

}  // namespace
}  // namespace kestrav::test
