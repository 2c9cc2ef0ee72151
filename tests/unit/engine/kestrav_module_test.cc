#include "kestrav/engine/kestrav_module.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <typeindex>
#include <utility>
#include <vector>

#include "kestrav/engine/kestrav_factory.h"
#include "kestrav/host/module/registry.h"
#include "support/log_builder.h"
#include "support/manual_clock.h"
#include "support/messages.h"
#include "support/notification_log.h"
#include "support/parsed_log.h"
#include "support/recording_client.h"
#include "support/short_memory.h"
#include "support/streams.h"
#include "support/thread_modules.h"
#include "unit/engine/fake_factory.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A registry with both modules, each with threads of its own, on a clock that stands at 1000 ms.
class KestravModules : public testing::Test {
 protected:
  static constexpr std::uint16_t kGps = 5;

  KestravModules() {
    EXPECT_TRUE(registry_->Add<KestravDef>());
    EXPECT_TRUE(registry_->Add<KestravFactoryDef>());
  }

  std::shared_ptr<KestravModule> StartModule() {
    EXPECT_TRUE(registry_->StartAll());
    return registry_->Get<KestravDef>();
  }
  std::shared_ptr<IKestravFactory> StartFactory() {
    EXPECT_TRUE(registry_->Start<KestravFactoryDef>());
    return registry_->Get<KestravFactoryDef>();
  }
  SmartPtr::Ptr<Thread::ThreadModule> MakeOwner(const String& module) {
    return owners_[module] = std::make_shared<ThreadsUnderTest>();
  }
  std::vector<String> Names(const String& module) { return owners_.at(module)->Names(); }
  void Observe(IKestrav& kestrav) {
    EXPECT_NE(kestrav.notifier.Connect(
                  [this](const NotificationInfo& info) { heard_.SendNotification(info); }),
              0u);
  }
  // Starts to record the client "GPS".
  void Record(IKestrav& kestrav) {
    EXPECT_TRUE(kestrav.EnableEncryption(false));
    EXPECT_TRUE(kestrav.RegisterClient(&gps_));
    EXPECT_TRUE(kestrav.SelectForLogging(L"GPS"));
    EXPECT_TRUE(kestrav.SetLoggingOutputStream(stream_));
    EXPECT_TRUE(kestrav.StartLogging());
    clock_->Settle();
    EXPECT_EQ(kestrav.GetLoggingStatus(), 2);
  }
  // Writes a message, which must then stand in the finished log.
  void ExpectRecorded(IKestrav& kestrav) {
    EXPECT_TRUE(kestrav.WriteData(MakeMessage(kGps, 1, "here")));
    EXPECT_TRUE(kestrav.StopLogging());
    clock_->Settle();
    const ParsedLog log = ParseLog(stream_->Content());
    EXPECT_EQ(log.error, "");
    EXPECT_THAT(log.PayloadsOf(kGps), ElementsAre("here"));
  }

  ManualClock clock_;
  NotificationLog heard_;
  RecordingClient gps_{L"GPS", kGps};
  std::shared_ptr<BytesOutputStream> stream_ = std::make_shared<BytesOutputStream>();
  std::map<String, std::shared_ptr<ThreadsUnderTest>> owners_;
  std::unique_ptr<Module::Registry> registry_ = std::make_unique<Module::Registry>(
      [this](const String& module) { return MakeOwner(module); });
};

TEST_F(KestravModules, AreKnownByTheirNamesVersionsAndDependency) {
  const auto factory = Module::DefinitionOf<KestravFactoryDef>();
  EXPECT_STREQ(factory.name, L"KestravFactoryDef");
  EXPECT_EQ(factory.version, 0u);
  EXPECT_THAT(factory.dependencies(), IsEmpty());
  const auto module = Module::DefinitionOf<KestravDef>();
  EXPECT_STREQ(module.name, L"KestravDef");
  EXPECT_EQ(module.version, 0u);
  ASSERT_EQ(module.dependencies().size(), 1u);
  EXPECT_EQ(module.dependencies()[0].tag, std::type_index(typeid(KestravFactoryDef)));
  EXPECT_STREQ(KestravModuleImpl::kInstanceName, L"KestravModule");
}

TEST_F(KestravModules, MakeTheirInstances) {
  const SmartPtr::Ptr<Module::IModule> factory = KestravFactoryDef::Factory();
  EXPECT_NE(dynamic_cast<KestravFactoryImpl*>(factory.get()), nullptr);
  const SmartPtr::Ptr<Module::IModule> module = KestravDef::Factory();
  EXPECT_NE(dynamic_cast<KestravModuleImpl*>(module.get()), nullptr);
  EXPECT_NE(KestravDef::Factory(), module);
}

TEST_F(KestravModules, StartTheFactoryFirst) {
  EXPECT_TRUE(registry_->Start<KestravDef>());
  EXPECT_NE(registry_->Get<KestravFactoryDef>(), nullptr);
  EXPECT_FALSE(registry_->Stop<KestravFactoryDef>());
}

TEST_F(KestravModules, StartNoRecorderWithoutTheFactory) {
  Module::Registry alone;
  EXPECT_TRUE(alone.Add<KestravDef>());
  const Module::Result result = alone.StartAll();
  EXPECT_EQ(result.code, Module::Code::kUnknownDependency);
  EXPECT_EQ(result.module, L"KestravDef");
  EXPECT_EQ(result.dependency, L"KestravFactoryDef");
}

// Factory.

TEST_F(KestravModules, FactoryMakesNoRecorderWithoutAName) {
  EXPECT_EQ(StartFactory()->CreateNewKestrav(L""), nullptr);
}

TEST_F(KestravModules, FactoryMakesNoRecorderWithoutAThreadOwner) {
  EXPECT_EQ(KestravFactoryImpl().CreateNewKestrav(L"Mine"), nullptr);
}

TEST_F(KestravModules, FactoryMakesRecordersWhoseThreadsAreNamedAfterThem) {
  const auto recorder = StartFactory()->CreateNewKestrav(L"Mine");
  ASSERT_NE(recorder, nullptr);
  Record(*recorder);
  EXPECT_THAT(Names(L"KestravFactoryDef"), ElementsAre(L"Mine-Logging"));
  ExpectRecorded(*recorder);
}

TEST_F(KestravModules, FactoryMakesRecordersThatAreReadyAndApart) {
  const auto factory = StartFactory();
  const auto first = factory->CreateNewKestrav(L"Mine");
  const auto second = factory->CreateNewKestrav(L"Mine");
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(first, second);
  EXPECT_EQ(first.use_count(), 1);  // the factory keeps nothing
  EXPECT_TRUE(first->RegisterClient(&gps_));
  std::vector<String> clients;
  EXPECT_TRUE(first->GetClientsList(clients));
  EXPECT_THAT(clients, testing::UnorderedElementsAre(L"GPS", L"Info Client"));
  clients.clear();
  EXPECT_TRUE(second->GetClientsList(clients));
  EXPECT_THAT(clients, ElementsAre(L"Info Client"));
}

TEST_F(KestravModules, FactoryShortOfMemoryMakesNone) {
  const auto factory = StartFactory();
  const String name = L"a name that needs memory";
  std::uint32_t grants = 0;
  for (bool was_short = true; was_short; ++grants) {
    SmartPtr::Ptr<KestravImpl> recorder;
    was_short = RanShort(grants, [&] { recorder = factory->CreateNewKestrav(name); });
    EXPECT_EQ(recorder != nullptr, !was_short) << grants;
  }
  EXPECT_GT(grants, 2u);
}

TEST_F(KestravModules, RecorderOfTheFactoryOutlivesFactoryAndRegistry) {
  auto factory = StartFactory();
  const auto recorder = factory->CreateNewKestrav(L"Mine");
  ASSERT_NE(recorder, nullptr);
  factory.reset();
  registry_.reset();
  const std::weak_ptr<ThreadsUnderTest> owner =
      std::exchange(owners_[L"KestravFactoryDef"], nullptr);
  EXPECT_FALSE(owner.expired());
  Record(*recorder);
  ExpectRecorded(*recorder);
}

TEST_F(KestravModules, RecorderOfTheFactoryLetsGoOfTheThreadOwnerAtItsEnd) {
  auto recorder = StartFactory()->CreateNewKestrav(L"Mine");
  Record(*recorder);
  registry_.reset();
  const std::weak_ptr<ThreadsUnderTest> owner =
      std::exchange(owners_[L"KestravFactoryDef"], nullptr);
  recorder.reset();
  EXPECT_TRUE(owner.expired());
}

// Module.

TEST_F(KestravModules, ModuleRunsItsThreadsUnderItsNameAndTheFactorysOwner) {
  const auto module = StartModule();
  Record(*module);
  ExpectRecorded(*module);
  EXPECT_TRUE(module->SetPlaybackInputStream(
      std::make_shared<BytesInputStream>(LogBuilder()
                                             .Selection(0x1008)
                                             .Duration(1000)
                                             .Dictionary({{"GPS", 3}}, 0)
                                             .Record(3, 1, 0, "x")
                                             .Build())));
  unsigned int length_ms = 0;
  unsigned int size = 0;
  std::vector<String> clients;
  EXPECT_TRUE(module->GetPlaybackAttributes(length_ms, size, clients));
  EXPECT_TRUE(module->SelectForPlayback(L"GPS"));
  EXPECT_TRUE(module->StartPlayback());
  clock_->Settle();
  module->StopPlayback(true);
  EXPECT_THAT(Names(L"KestravFactoryDef"),
              ElementsAre(L"KestravModule-Logging", L"KestravModule-Playback"));
  EXPECT_THAT(Names(L"KestravDef"), IsEmpty());
}

TEST_F(KestravModules, ModuleRefusesASecondStartAndKeepsItsEngine) {
  const auto module = StartModule();
  Observe(*module);
  Record(*module);
  EXPECT_FALSE(module->Start());
  EXPECT_TRUE(module->IsLogging());
  EXPECT_THAT(heard_.TakeIds(), ElementsAre(NotifyLoggingStarted));
  ExpectRecorded(*module);
  EXPECT_EQ(registry_->Start<KestravDef>().code, Module::Code::kStartedAlready);
}

TEST_F(KestravModules, ModuleTellsWhatItsEngineTellsWhileItRecords) {
  const auto module = StartModule();
  Observe(*module);
  Record(*module);
  clock_->Advance(2000);
  EXPECT_TRUE(module->StopLogging());
  clock_->Settle();
  EXPECT_THAT(heard_.TakeIds(),
              ElementsAre(NotifyLoggingStarted, NotifyRecordingTime, NotifyRecordingTime,
                          NotifyLoggingStopped, NotifyLoggingFinished));
}

TEST_F(KestravModules, ModuleRecordsOnAfterAShutdownWhileItIsHeld) {
  auto module = StartModule();
  Record(*module);
  registry_->Shutdown();
  EXPECT_TRUE(module->IsLogging());
  registry_.reset();
  ExpectRecorded(*module);
}

TEST_F(KestravModules, FinishItsLogWhenTheyGoWhileItRecords) {
  Record(*StartModule());
  registry_.reset();
  const ParsedLog log = ParseLog(stream_->Content());
  EXPECT_EQ(log.error, "");
  EXPECT_EQ(log.stream_length, stream_->Content().size());
}

TEST_F(KestravModules, MayBeStartedAnew) {
  { Record(*StartModule()); }
  registry_->Shutdown();
  EXPECT_EQ(registry_->Get<KestravDef>(), nullptr);
  stream_ = std::make_shared<BytesOutputStream>();
  const auto module = StartModule();
  EXPECT_FALSE(module->IsLogging());
  Record(*module);
  ExpectRecorded(*module);
}

// The module with an engine that the test holds too.
class KestravModuleAlone : public testing::Test {
 protected:
  KestravModuleAlone() {
    EXPECT_TRUE(engine_->Init(&threads_, L"Eng"));
    EXPECT_TRUE(Connect(*module_, factory_));
  }

  ManualClock clock_;
  ThreadsUnderTest threads_;
  std::shared_ptr<KestravImpl> engine_ = std::make_shared<KestravImpl>();
  FakeFactory factory_{engine_};
  std::unique_ptr<KestravModuleImpl> module_ = std::make_unique<KestravModuleImpl>();
};

TEST_F(KestravModuleAlone, AsksTheFactoryOnceForARecorderOfItsName) {
  EXPECT_TRUE(module_->Start());
  EXPECT_FALSE(module_->Start());
  EXPECT_THAT(factory_.names, ElementsAre(L"KestravModule"));
  EXPECT_EQ(engine_.use_count(), 3);
}

// All five words of a notification.
using Words = std::array<std::uint32_t, 5>;

TEST_F(KestravModuleAlone, RelaysEveryNotificationAsItIs) {
  std::vector<Words> heard;
  EXPECT_NE(module_->notifier.Connect(
                [&](const NotificationInfo& info) { heard.push_back(std::bit_cast<Words>(info)); }),
            0u);
  EXPECT_TRUE(module_->Start());
  std::vector<Words> sent;
  for (std::uint32_t id = 0; id <= NotifyPeriodicEvent; ++id) {
    sent.push_back({id, 100 + id, 200 + id, 300 + id, 4});
    engine_->SendNotification(std::bit_cast<NotificationInfo>(sent.back()));
  }
  EXPECT_EQ(heard, sent);
}

TEST_F(KestravModuleAlone, TellsItsObserversWhatItIsHandedToTell) {
  NotificationLog heard;
  EXPECT_NE(module_->notifier.Connect(
                [&](const NotificationInfo& info) { heard.SendNotification(info); }),
            0u);
  module_->OnNotification(NotificationInfo(NotifyRecordingTime, 9u));
  ASSERT_EQ(heard.All().size(), 1u);
  EXPECT_EQ(heard.All()[0].value, 9u);
}

TEST_F(KestravModuleAlone, HearsNoMoreOfAnEngineThatOutlivesIt) {
  NotificationLog heard;
  EXPECT_NE(module_->notifier.Connect(
                [&](const NotificationInfo& info) { heard.SendNotification(info); }),
            0u);
  EXPECT_TRUE(module_->Start());
  factory_.engine.reset();
  module_.reset();
  EXPECT_EQ(engine_.use_count(), 1);
  engine_->SendNotification(NotificationInfo(NotifyRecordingTime, 9u));
  EXPECT_THAT(heard.TakeIds(), IsEmpty());
  std::vector<String> clients;
  EXPECT_TRUE(engine_->GetClientsList(clients));
}

TEST_F(KestravModuleAlone, LetsGoOfTheLastHoldOnItsEngine) {
  EXPECT_TRUE(module_->Start());
  const std::weak_ptr<KestravImpl> engine = engine_;
  factory_.engine.reset();
  engine_.reset();
  EXPECT_FALSE(engine.expired());
  module_->Shutdown();
  EXPECT_FALSE(engine.expired());
  module_.reset();
  EXPECT_TRUE(engine.expired());
}

TEST_F(KestravModuleAlone, MayOutliveTheFactory) {
  {
    FakeFactory brief(engine_);
    EXPECT_TRUE(Connect(*module_, brief));
    EXPECT_TRUE(module_->Start());
  }
  EXPECT_FALSE(module_->Start());
  EXPECT_FALSE(module_->IsLogging());
}

TEST_F(KestravModuleAlone, MayGoWithoutAStart) { module_.reset(); }

TEST_F(KestravModuleAlone, DoesNotStartWithoutAFactoryOrAnEngine) {
  EXPECT_FALSE(KestravModuleImpl().Start());
  factory_.throws = true;
  EXPECT_FALSE(module_->Start());
  factory_.throws = false;
  factory_.engine = nullptr;
  EXPECT_FALSE(module_->Start());
  factory_.engine = engine_;
  EXPECT_TRUE(module_->Start());  // it held none
}

TEST_F(KestravModuleAlone, ShortOfMemoryHoldsNoEngineOrOneThatItDoesNotRelay) {
  factory_.quiet = true;
  std::uint32_t grants = 0;
  bool held_one = false;
  for (bool was_short = true; was_short; ++grants) {
    const long holders = engine_.use_count();
    bool started = false;
    was_short = RanShort(grants, [&] { started = module_->Start(); });
    EXPECT_EQ(started, !was_short) << grants;
    const bool holds = engine_.use_count() > holders;
    if (!started && holds) {
      held_one = true;
      EXPECT_FALSE(module_->Start()) << grants;
    }
    module_ = std::make_unique<KestravModuleImpl>();
    EXPECT_TRUE(Connect(*module_, factory_));
    EXPECT_EQ(engine_.use_count(), holders) << grants;
  }
  EXPECT_TRUE(held_one);
}

}  // namespace
}  // namespace kestrav::test
