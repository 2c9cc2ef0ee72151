#include "kestrav/host/module/registry.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "kestrav/host/memory/try.h"

namespace kestrav::Module {
namespace {

bool HasTag(const std::vector<Definition>& list, std::type_index tag) {
  return std::any_of(list.begin(), list.end(), [&](const Definition& d) { return d.tag == tag; });
}

// Ends in a plain kNoMemory when even the names cannot be copied.
Result Refuse(Code code, const wchar_t* module, const wchar_t* dependency = L"") {
  Result result{code, {}, {}};
  const bool named = Memory::Try([&] {
    result.module = module;
    result.dependency = dependency;
  });
  if (!named) result = Result{Code::kNoMemory, {}, {}};
  return result;
}

// From here to the end of the scope a module's code runs.
class Turn {
 public:
  explicit Turn(bool& busy) : busy_(busy) { busy_ = true; }
  ~Turn() { busy_ = false; }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  bool& busy_;
};

}  // namespace

Registry::Registry(ThreadOwners owners) : owners_(std::move(owners)) {}

Registry::~Registry() { Shutdown(); }

Result Registry::Add(Definition (*definition)()) {
  Result result{Code::kNoMemory, {}, {}};
  const bool whole = Memory::Try([&] {
    const Definition added = definition();
    if (busy_) {
      result = Refuse(Code::kBusy, added.name);
      return;
    }
    const auto same = [&](const Entry& entry) {
      return entry.definition.tag == added.tag ||
             std::wstring_view(entry.definition.name) == added.name;
    };
    if (std::any_of(entries_.begin(), entries_.end(), same)) {
      result = Refuse(Code::kKnownAlready, added.name);
      return;
    }
    started_.reserve(entries_.size() + 1);  // so that a start never fails for want of room here
    entries_.push_back({added, added.dependencies(), nullptr});
    result = {};
  });
  return whole ? result : Result{Code::kNoMemory, {}, {}};
}

std::size_t Registry::IndexOf(std::type_index tag) const {
  const auto is_it = [&](const Entry& entry) { return entry.definition.tag == tag; };
  return static_cast<std::size_t>(std::find_if(entries_.begin(), entries_.end(), is_it) -
                                  entries_.begin());
}

SmartPtr::Ptr<IModule> Registry::Find(std::type_index tag) const {
  const std::size_t index = IndexOf(tag);
  return index < entries_.size() ? entries_[index].module : nullptr;
}

Result Registry::Start(std::type_index tag, const wchar_t* name) {
  if (busy_) return Refuse(Code::kBusy, name);
  const std::size_t index = IndexOf(tag);
  if (index == entries_.size()) return Refuse(Code::kUnknownModule, name);
  if (entries_[index].module) return Refuse(Code::kStartedAlready, name);
  Result result;
  std::vector<std::size_t> trail, order;
  if (!Memory::Try([&] { result = Plan(index, trail, order); })) return {Code::kNoMemory, {}, {}};
  if (!result) return result;
  result = StartPlanned(order);
  if (result || result.code == Code::kNoMemory || result.module == name) return result;
  return Refuse(Code::kDependencyFailed, name, result.module.c_str());
}

Result Registry::StartAll() {
  if (busy_) return {Code::kBusy, {}, {}};
  Result result;
  std::vector<std::size_t> trail, order;
  const bool whole = Memory::Try([&] {
    for (std::size_t i = 0; i < entries_.size() && result; ++i) result = Plan(i, trail, order);
  });
  if (!whole) return {Code::kNoMemory, {}, {}};
  if (!result) return result;
  return StartPlanned(order);
}

// Puts the module into `order` behind all that it needs. `trail` holds those that wait for it.
Result Registry::Plan(std::size_t index, std::vector<std::size_t>& trail,
                      std::vector<std::size_t>& order) const {
  const Entry& entry = entries_[index];
  if (entry.module || std::find(order.begin(), order.end(), index) != order.end()) return {};
  if (std::find(trail.begin(), trail.end(), index) != trail.end()) {
    return Refuse(Code::kCycle, entries_[trail.back()].definition.name, entry.definition.name);
  }
  trail.push_back(index);
  for (const Definition& needed : entry.dependencies) {
    const std::size_t found = IndexOf(needed.tag);
    if (found == entries_.size()) {
      return Refuse(Code::kUnknownDependency, entry.definition.name, needed.name);
    }
    if (Result result = Plan(found, trail, order); !result) return result;
  }
  trail.pop_back();
  order.push_back(index);
  return {};
}

Result Registry::StartPlanned(const std::vector<std::size_t>& order) {
  const Turn turn(busy_);
  for (const std::size_t index : order) {
    if (Result result = StartOne(entries_[index]); !result) return result;
    started_.push_back(index);
  }
  return {};
}

Result Registry::StartOne(Entry& entry) {
  const wchar_t* const name = entry.definition.name;
  SmartPtr::Ptr<IModule> module;
  SmartPtr::Ptr<Thread::ThreadModule> threads;
  const bool made = Memory::Try([&] {
    module = entry.definition.factory();
    threads = owners_ ? owners_(name) : Memory::MakeShared<Thread::ThreadModule>();
  });
  if (!made || !module || !threads) return Refuse(Code::kNotMade, name);
  if (Result result = FillAccessors(entry, *module); !result) return result;
  bool started = false;
  const bool ended = Memory::Try([&] {
    module->SetThreadModule(threads);
    started = module->Start();
  });
  if (!ended || !started) return Refuse(Code::kStartFailed, name);
  entry.module = std::move(module);
  return {};
}

Result Registry::FillAccessors(const Entry& entry, IModule& module) const {
  for (AccessorBase* accessor = module.FirstAccessor(); accessor != nullptr;
       accessor = IModule::NextAccessor(*accessor)) {
    const Definition& target = accessor->Target();
    const SmartPtr::Ptr<IModule> found = Find(target.tag);
    if (!HasTag(entry.dependencies, target.tag) || !found || !accessor->Fill(*found)) {
      return Refuse(Code::kUndeclared, entry.definition.name, target.name);
    }
  }
  return {};
}

Result Registry::Stop(std::type_index tag, const wchar_t* name) {
  if (busy_) return Refuse(Code::kBusy, name);
  const std::size_t index = IndexOf(tag);
  if (index == entries_.size() || !entries_[index].module) {
    return Refuse(Code::kUnknownModule, name);
  }
  Entry& entry = entries_[index];
  for (const Entry& other : entries_) {
    if (other.module && HasTag(other.dependencies, tag)) {
      return Refuse(Code::kInUse, name, other.definition.name);
    }
  }
  const Turn turn(busy_);
  static_cast<void>(Memory::Try([&] { entry.module->Shutdown(); }));
  std::erase(started_, index);
  entry.module.reset();
  return {};
}

void Registry::Shutdown() {
  if (busy_) return;
  const Turn turn(busy_);
  // All of them shut down before the first is let go of: a shutdown may still use what it needs.
  for (auto index = started_.rbegin(); index != started_.rend(); ++index) {
    static_cast<void>(Memory::Try([&] { entries_[*index].module->Shutdown(); }));
  }
  for (auto index = started_.rbegin(); index != started_.rend(); ++index) {
    entries_[*index].module.reset();
  }
  started_.clear();
}

}  // namespace kestrav::Module
