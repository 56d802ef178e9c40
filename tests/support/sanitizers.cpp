// What all test programs ask of the sanitizers.

#if defined(__SANITIZE_THREAD__)
/// Lets a child of a process with threads start threads.
// NOLINTNEXTLINE(bugprone-reserved-identifier): it is the sanitizer that asks for it
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
    return "die_after_fork=0";
}

/// ICU is not built for it: what ICU's threads tell each other by atomics looks like a race.
// NOLINTNEXTLINE(bugprone-reserved-identifier): it is the sanitizer that asks for it
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions() {
    return "race:libicuuc.so\nrace:libicui18n.so\n";
}
#endif
