#pragma once

#include <string>
#include <utility>

#if defined(__has_feature)
#define KENNLY_HAS_FEATURE(feature) __has_feature(feature)
#else
#define KENNLY_HAS_FEATURE(feature) 0
#endif

namespace kennly::test {

// What this is built with, as either compiler tells it.

#if KENNLY_HAS_FEATURE(thread_sanitizer) || defined(__SANITIZE_THREAD__)
inline constexpr bool WithThreadSanitizer = true;
#else
inline constexpr bool WithThreadSanitizer = false;
#endif

#if KENNLY_HAS_FEATURE(address_sanitizer) || defined(__SANITIZE_ADDRESS__)
inline constexpr bool WithAddressSanitizer = true;
#else
inline constexpr bool WithAddressSanitizer = false;
#endif

/// Whether it takes several times the time and the memory that it would take without.
inline constexpr bool WithSanitizer = WithThreadSanitizer || WithAddressSanitizer;

/// For the environment of a process that cannot look for leaks of its own: under a sanitizer it
/// traces itself at its end, which another tracer prevents, and looks itself up in /proc, which may
/// have numbers other than its own.
inline const std::pair<std::string, std::string> NoLeakSearch = {"LSAN_OPTIONS", "detect_leaks=0"};

}  // namespace kennly::test

#undef KENNLY_HAS_FEATURE
