#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/Descriptor.h>
#include <Velora_UserDefaults/Platform/ForkHandlers.h>
#include <Velora_UserDefaults/Platform/ThreadInfo.h>

namespace velora {

namespace {

/// A thread's name as the kernel keeps it, ended by NUL.
using KernelName = std::array<char, 16>;

/// As much of `name` as the kernel keeps: whole characters, up to a NUL.
KernelName kernelNameFrom(std::string_view name) {
    constexpr std::size_t room = std::tuple_size_v<KernelName> - 1;
    name = name.substr(0, name.find('\0'));
    std::size_t size = name.size();
    if (size > room) {
        size = room;
        while (size > 0 && (static_cast<unsigned char>(name[size]) & 0xC0U) == 0x80U) {
            --size;
        }
    }
    KernelName kernelName{};
    name.copy(kernelName.data(), size);
    return kernelName;
}

KernelName currentKernelName() {
    KernelName name{};
    ::prctl(PR_GET_NAME, name.data());
    return name;
}

/// The main thread's name, which is what the kernel shows as the process's.
KernelName mainThreadKernelName() {
    std::array<char, 64> text{};
    const Descriptor file(::open("/proc/self/comm", O_RDONLY | O_CLOEXEC));
    const ssize_t length = file ? ::read(file.get(), text.data(), text.size()) : -1;
    if (length <= 0) {
        return kernelNameFrom(program_invocation_short_name);
    }
    return kernelNameFrom({text.data(), static_cast<std::size_t>(length) - 1});  // without the line end
}

/// The name that the process started with, if the library was loaded with it.
const KernelName& programKernelName() {
    static const KernelName name = mainThreadKernelName();
    return name;
}

// Asked before the host can rename its main thread.
[[maybe_unused]] const KernelName& nameAtStart = programKernelName();

/// What a thread knows of its name. Of trivial destruction, so that destructors that run late may still log.
struct OwnName {
    bool isKnown = false;
    /// Whether `kernelName` counts as the thread's own.
    bool isNamed = false;
    KernelName kernelName{};
    /// The name in full where the kernel's is shortened, else null. Owned by FullNameOwner.
    const std::string* fullName = nullptr;
    bool threadIsEnding = false;
};

thread_local constinit OwnName ownName;

struct FullNameOwner {
    FullNameOwner() = default;
    FullNameOwner(const FullNameOwner&) = delete;
    FullNameOwner& operator=(const FullNameOwner&) = delete;
    ~FullNameOwner() {
        ownName.threadIsEnding = true;
        reset(nullptr);
    }
    // Not static: calling it on the thread's object is what makes the destructor run.
    void reset(const std::string* name) {  // NOLINT(readability-convert-member-functions-to-static)
        delete ownName.fullName;
        ownName.fullName = name;
    }
};

thread_local FullNameOwner fullNameOwner;

void forgetFullName() {
    if (ownName.fullName != nullptr) {
        fullNameOwner.reset(nullptr);
    }
}

/// Brings `ownName` up to date, and returns it.
const OwnName& updatedOwnName() {
    const KernelName current = currentKernelName();
    if (ownName.isKnown && current == ownName.kernelName) {
        return ownName;
    }
    forgetFullName();
    ownName.kernelName = current;
    ownName.isNamed =
        current[0] != '\0' && current != programKernelName() && (isMainThread() || current != mainThreadKernelName());
    ownName.isKnown = true;
    return ownName;
}

}  // namespace

bool isMainThread() {
    struct Answer {
        // One more than the generation that the answer holds for: 0 is none yet.
        std::uint64_t generation = 0;
        bool isMain = false;
    };
    thread_local constinit Answer answer;
    const std::uint64_t generation = forkGeneration() + 1;
    if (answer.generation != generation) {
        answer = {.generation = generation, .isMain = ::gettid() == ::getpid()};
    }
    return answer.isMain;
}

bool appendCurrentThreadName(std::string& text) {
    const OwnName& name = updatedOwnName();
    if (!name.isNamed) {
        return false;
    }
    if (name.fullName != nullptr) {
        text += *name.fullName;
    } else {
        text += name.kernelName.data();
    }
    return true;
}

std::optional<std::string> currentThreadName() {
    std::optional<std::string> name(std::in_place);
    if (!appendCurrentThreadName(*name)) {
        name.reset();
    }
    return name;
}

void setCurrentThreadName(std::string_view name) {
    const KernelName kernelName = name.empty() ? programKernelName() : kernelNameFrom(name);
    ::prctl(PR_SET_NAME, kernelName.data());
    forgetFullName();
    if (!name.empty() && name != kernelName.data() && !ownName.threadIsEnding) {
        fullNameOwner.reset(new std::string(name));
    }
    ownName.kernelName = kernelName;
    ownName.isNamed = !name.empty();
    ownName.isKnown = true;
}

void nameThreadOfQueue(std::string_view label) {
    ownName.kernelName = kernelNameFrom(label);
    ownName.isNamed = false;
    ownName.isKnown = true;
    ::prctl(PR_SET_NAME, ownName.kernelName.data());
}

std::string currentThreadIdentifierText() {
    std::array<char, 32> text{};
    // NOLINTNEXTLINE(performance-no-int-to-ptr): a pthread_t is an address here, and %p wants one
    const auto length = std::snprintf(text.data(), text.size(), "%p", reinterpret_cast<void*>(::pthread_self()));
    return {text.data(), static_cast<std::size_t>(length)};
}

}  // namespace velora
