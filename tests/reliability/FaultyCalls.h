#pragma once

#include <array>
#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <unistd.h>

/// Fault injection: system calls that fail when a test wants, and a clock that a test sets. A program that is linked
/// with FaultyCalls.cpp has functions of the names of the system's, which the library then calls instead, with
/// sanitizers too.

namespace velora::test {

/// In seconds: then a file destination looks again whether its file is still where it was.
inline constexpr std::int64_t untilTheNextLook = 2;

/// The calls that can fail.
enum class Call { open, close, write, synchronize, stat, rename, setAttribute };

/// Makes calls fail that concern files below one folder. Any thread.
///
///     FaultyCalls::below(folder.path());
///     FaultyCalls::fail(Call::write, {.code = ENOSPC, .times = 2});
class FaultyCalls {
public:
    struct Fault {
        /// The error number of the failing call; 0 has `write` take only a part of the bytes, and does no harm to
        /// others.
        int code = 0;
        /// How many calls pass before.
        int after = 0;
        /// How many calls fail then.
        int times = INT_MAX;
        /// How many of a hundred of these fail, chosen at random.
        int percent = 100;
    };

    /// Nothing fails before one is told to, and everything works again when the object goes.
    FaultyCalls() {
        seed(1);
        for (State& state : allStates()) {
            state.failures = 0;
        }
    }
    FaultyCalls(const FaultyCalls&) = delete;
    FaultyCalls& operator=(const FaultyCalls&) = delete;
    ~FaultyCalls() { end(); }

    static void below(std::string folder) { folderOfFaults() = std::move(folder); }
    static void fail(Call call, const Fault& fault) {
        State& state = stateOf(call);
        state.code = fault.code;
        state.after = fault.after;
        state.times = fault.times;
        state.percent = fault.percent;
        state.isOn = true;
    }
    /// All calls work again.
    static void end() {
        for (State& state : allStates()) {
            state.isOn = false;
        }
    }
    /// How many calls have failed so far.
    static int failures(Call call) { return stateOf(call).failures; }
    /// Chooses another sequence of random failures.
    static void seed(std::uint64_t seed) { random() = seed * 2 + 1; }

    /// Lets so much time pass at once for everything that asks what time it is.
    static void passTime(std::int64_t seconds) { passed() += seconds; }
    /// Sets how far that is from the system's time.
    static void setPassedTime(std::int64_t seconds) { passed() = seconds; }
    static std::int64_t passedTime() { return passed(); }

    /// Whether this call on the file at `path` fails, and how. Asked by the functions below.
    static bool fails(Call call, std::string_view path, int& code) {
        State& state = stateOf(call);
        if (!state.isOn || folderOfFaults().empty() || !path.starts_with(folderOfFaults()) || !isChosen(state)) {
            return false;
        }
        ++state.failures;
        code = state.code;
        return true;
    }
    /// The same for the file that is open as `descriptor`.
    static bool fails(Call call, int descriptor, int& code) {
        if (!stateOf(call).isOn) {
            return false;
        }
        std::array<char, PATH_MAX> path{};
        const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
        const ssize_t size = ::readlink(link.c_str(), path.data(), path.size());
        return size > 0 && fails(call, std::string_view(path.data(), static_cast<std::size_t>(size)), code);
    }

private:
    struct State {
        std::atomic<bool> isOn = false;
        std::atomic<int> code = 0;
        std::atomic<int> after = 0;
        std::atomic<int> times = 0;
        std::atomic<int> percent = 0;
        std::atomic<int> failures = 0;
    };

    // Objects inside functions: calls come already before main().
    static std::array<State, 7>& allStates() {
        static auto& states = *new std::array<State, 7>;
        return states;
    }
    static State& stateOf(Call call) { return allStates().at(static_cast<std::size_t>(call)); }
    static std::string& folderOfFaults() {
        static auto& folder = *new std::string;
        return folder;
    }
    static std::atomic<std::uint64_t>& random() {
        static std::atomic<std::uint64_t> random = 1;
        return random;
    }

    static std::atomic<std::int64_t>& passed() {
        static std::atomic<std::int64_t> passed = 0;
        return passed;
    }

    static bool isChosen(State& state) {
        if (state.after > 0) {
            --state.after;
            return false;
        }
        if (state.times <= 0) {
            return false;
        }
        // A multiplicative generator: the upper bits are what is random.
        constexpr std::uint64_t factor = 6'364'136'223'846'793'005ULL;
        const std::uint64_t drawn = random().fetch_add(0) * factor + 1'442'695'040'888'963'407ULL;
        random() = drawn;
        if (static_cast<int>((drawn >> 33U) % 100) >= state.percent) {
            return false;
        }
        --state.times;
        return true;
    }
};

}  // namespace velora::test
