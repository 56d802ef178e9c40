#pragma once

/// Lets a child of a process with threads start threads under ThreadSanitizer. For programs of one source file.
#if defined(__SANITIZE_THREAD__)
// NOLINTNEXTLINE(misc-definitions-in-headers,bugprone-reserved-identifier): it is the sanitizer that asks for it
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
    return "die_after_fork=0";
}
#endif
