#ifndef KESTRAV_HOST_API_H_
#define KESTRAV_HOST_API_H_

// Marks what the shared library exports; everything else stays hidden.
#define KESTRAV_API __attribute__((visibility("default")))

#endif  // KESTRAV_HOST_API_H_
