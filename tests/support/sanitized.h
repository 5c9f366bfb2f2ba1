// Whether this is a sanitizer's build. It is ten times as slow and looks for other faults than the plain builds do:
// where these try every point, it takes each fifth.
#ifndef PLOV_TESTS_SANITIZED_H
#define PLOV_TESTS_SANITIZED_H

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define PLOV_SANITIZED 1
#else
#define PLOV_SANITIZED 0
#endif

namespace test {

inline constexpr int kStep = PLOV_SANITIZED ? 5 : 1;

}  // namespace test

#endif
