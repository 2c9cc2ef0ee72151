#include "kestrav/host/module/module.h"

namespace kestrav::Module {

AccessorBase::AccessorBase(IModule& owner, const Definition& target)
    : target_(target), next_(owner.accessors_) {
  owner.accessors_ = this;
}

}  // namespace kestrav::Module
