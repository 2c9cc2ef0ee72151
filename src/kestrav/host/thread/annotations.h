#ifndef KESTRAV_HOST_THREAD_ANNOTATIONS_H_
#define KESTRAV_HOST_THREAD_ANNOTATIONS_H_

// Which lock guards what, checked by clang's -Wthread-safety and ignored by other compilers.
#if defined(__clang__)
#define KESTRAV_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define KESTRAV_THREAD_ATTRIBUTE(x)
#endif

#define CAPABILITY(name) KESTRAV_THREAD_ATTRIBUTE(capability(name))
#define SCOPED_CAPABILITY KESTRAV_THREAD_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(lock) KESTRAV_THREAD_ATTRIBUTE(guarded_by(lock))
#define REQUIRES(...) KESTRAV_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) KESTRAV_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) KESTRAV_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS KESTRAV_THREAD_ATTRIBUTE(no_thread_safety_analysis)

#endif  // KESTRAV_HOST_THREAD_ANNOTATIONS_H_
