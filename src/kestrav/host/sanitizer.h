#ifndef KESTRAV_HOST_SANITIZER_H_
#define KESTRAV_HOST_SANITIZER_H_

// Which sanitizer watches this build: gcc and clang tell it in different ways.
#if defined(__SANITIZE_ADDRESS__)
#define KESTRAV_ADDRESS_SANITIZER
#elif defined(__SANITIZE_THREAD__)
#define KESTRAV_THREAD_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KESTRAV_ADDRESS_SANITIZER
#elif __has_feature(thread_sanitizer)
#define KESTRAV_THREAD_SANITIZER
#endif
#endif

#endif  // KESTRAV_HOST_SANITIZER_H_
