#pragma once

// Include in one source of a test program that opens streams, codes images or reads them by OpenCV. Those libraries
// and their thread pools are not instrumented and have findings inside themselves; those would hide ours.
#if defined(__SANITIZE_THREAD__)
#define ORU_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ORU_THREAD_SANITIZER 1
#endif
#endif

#ifdef ORU_THREAD_SANITIZER
inline constexpr const char* kKnownRaces =
    "race:libx265.so\n"
    "race:libavcodec.so\n"
    "race:libsrt-gnutls.so\n"
    "deadlock:libsrt-gnutls.so\n"
    "mutex:libsrt-gnutls.so\n"
    "deadlock:libgdal.so\n";

// The sanitizer's runtime looks this name up.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions() {  // NOLINT
    return kKnownRaces;
}
#endif

#if defined(__SANITIZE_ADDRESS__)
#define ORU_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ORU_ADDRESS_SANITIZER 1
#endif
#endif

#ifdef ORU_ADDRESS_SANITIZER
// libx265 3.5 keeps about a kilobyte of every encoder that it closes.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {  // NOLINT
    return "leak:libx265.so\n";
}
#endif
