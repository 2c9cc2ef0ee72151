#ifndef KESTRAV_TESTS_UNIT_HOST_PARTS_H_
#define KESTRAV_TESTS_UNIT_HOST_PARTS_H_

#include <cstdint>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "kestrav/host/module/module.h"

namespace kestrav::test {

enum class Does { kGiveNothing, kThrowWhenMade, kFailToStart, kThrowInStart, kThrowInShutdown };

// What the modules of a test are to do wrong, by their letters, and what they did.
struct World {
  std::map<char, Does> does;
  std::vector<std::string> events;
  bool quiet = false;  // no events, which need memory

  bool Has(char letter, Does what) const {
    const auto found = does.find(letter);
    return found != does.end() && found->second == what;
  }
};

inline World world;

template <class Tag>
class IPart : public Module::Interface<Tag> {
 public:
  // '?': it has not started.
  virtual char Letter() const = 0;
  virtual Thread::ThreadModule* Threads() const = 0;
};

// A module that reaches others through its accessors whenever something happens to it.
template <class Tag, class... Needed>
class Part final : public IPart<Tag>, public Module::ModuleBase {
 public:
  Part() : needed_(Owner<Needed>()...) {}
  ~Part() override { Tell("gone "); }

  bool Start() override {
    if (world.Has(Tag::kLetter, Does::kThrowInStart)) throw std::runtime_error("start");
    if (world.Has(Tag::kLetter, Does::kFailToStart)) return false;
    Tell("start ");
    started_ = true;
    return true;
  }
  void Shutdown() override {
    Tell("shut ");
    if (world.Has(Tag::kLetter, Does::kThrowInShutdown)) throw std::runtime_error("shutdown");
  }
  char Letter() const override { return started_ ? Tag::kLetter : '?'; }
  Thread::ThreadModule* Threads() const override { return ThreadModule().get(); }

 private:
  template <class>
  Module::IModule& Owner() {
    return *this;
  }
  template <class Target>
  static char LetterOf(const Module::Accessor<Target>& accessor) {
    return accessor.Get() != nullptr ? accessor->Letter() : '-';
  }
  void Tell(const char* what) const {
    if (world.quiet) return;
    std::string event = what;
    event += Tag::kLetter;
    event += '(';
    std::apply([&](const auto&... accessor) { ((event += LetterOf(accessor)), ...); }, needed_);
    world.events.push_back(event + ')');
  }

  std::tuple<Module::Accessor<Needed>...> needed_;
  bool started_ = false;
};

// The base of a tag whose module is "Module" and its letter.
template <class Tag, char kItsLetter, class... Needed>
struct PartDef {
  static constexpr char kLetter = kItsLetter;
  static constexpr wchar_t kText[] = {L'M', L'o', L'd', L'u', L'l', L'e', L' ', kItsLetter, L'\0'};

  using Interface = IPart<Tag>;
  static constexpr const wchar_t* kName = kText;
  static constexpr std::uint32_t kVersion = 3;
  using Dependencies = Module::DependsOn<Needed...>;
  static SmartPtr::Ptr<Module::IModule> Factory() {
    if (world.Has(kLetter, Does::kGiveNothing)) return nullptr;
    if (world.Has(kLetter, Does::kThrowWhenMade)) throw std::runtime_error("factory");
    return std::make_shared<Part<Tag, Needed...>>();
  }
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_UNIT_HOST_PARTS_H_
