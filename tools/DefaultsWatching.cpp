#include "DefaultsWatching.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <iostream>
#include <map>
#include <string>
#include <utility>

#include "DefaultsListing.h"
#include "TerminalText.h"

namespace velora {

namespace {

// How long a signal may go unnoticed.
constexpr std::chrono::milliseconds patience{250};

volatile std::sig_atomic_t isAskedToEnd = 0;

void endOnSignals() {
    struct sigaction action {};
    action.sa_handler = [](int /*signal*/) { isAskedToEnd = 1; };
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

using Values = std::map<std::string, std::string>;

Values valuesOf(const DefaultsStore& store, const std::vector<std::string>& keys) {
    Values values;
    for (DefaultsStore::Entry& entry : store.allValues()) {
        if (keys.empty() || std::find(keys.begin(), keys.end(), entry.key) != keys.end()) {
            values.emplace(std::move(entry.key), std::move(entry.json));
        }
    }
    return values;
}

std::string shown(const Values& values, const std::string& key) {
    const auto found = values.find(key);
    return found == values.end() ? "(absent)" : printableJSON(found->second);
}

/// Prints the differences, `most` of them, and returns how many it printed.
std::uint64_t printDifferences(const Values& before, const Values& after, std::uint64_t most) {
    Values keys = before;
    keys.insert(after.begin(), after.end());
    std::uint64_t printed = 0;
    for (const auto& [key, value] : keys) {
        const std::string then = shown(before, key);
        const std::string now = shown(after, key);
        if (then != now && printed < most) {
            std::cout << printable(key) << ": " << then << " -> " << now << "\n";
            ++printed;
        }
    }
    std::cout.flush();
    return printed;
}

}  // namespace

void printChanges(const DefaultsStore& store, const std::vector<std::string>& keys, std::uint64_t count) {
    endOnSignals();
    std::uint64_t left = count == 0 ? ~std::uint64_t{0} : count;
    // The number is taken before the values: a change in between is looked for once more, not missed.
    std::uint64_t generation = store.generation();
    Values values = valuesOf(store, keys);
    while (isAskedToEnd == 0 && left > 0 && std::cout.good()) {
        generation = store.waitForChange(generation, patience);
        Values current = valuesOf(store, keys);
        left -= printDifferences(values, current, left);
        values = std::move(current);
    }
}

}  // namespace velora
