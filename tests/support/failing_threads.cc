#include "support/failing_threads.h"

#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>

namespace kestrav::test {
namespace {

constinit FaultPoint starts;

}  // namespace

FailingThreads::FailingThreads(std::uint32_t at, Extent extent) { starts.Arm(at, extent); }

FailingThreads::~FailingThreads() { starts.Disarm(); }

std::uint32_t FailingThreads::Failed() const { return starts.Failed(); }

}  // namespace kestrav::test

// Stands before the system's, which it calls.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*body)(void*), void* argument) {
  using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  static const auto create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
  if (kestrav::test::starts.Fails()) return EAGAIN;
  return create(thread, attributes, body, argument);
}
