// What benchmarks/instructions.py has callgrind count: one kind of call, so many times.
//
//     InstructionsBenchmark KIND COUNT FOLDER
//
// Only what `velora_counted` does on the calling thread counts. FOLDER is for the files of this run.

#include <cstdint>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/UserDefaults/UserDefaultsManager.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

using Call = void (*)(velora::XCGLogger&);

/// What is counted, found by its name.
extern "C" [[gnu::noinline]] void velora_counted(Call call, velora::XCGLogger* log, int count) {
    for (int i = 0; i < count; ++i) {
        call(*log);
    }
}

namespace {

/// Composes lines and lets them go.
class DiscardingDestination : public velora::BaseDestination {
public:
    using BaseDestination::BaseDestination;
    void output(velora::LogDetails& /*logDetails*/, std::string& /*message*/) override {}
};

// As long in every line, however many there are.
constexpr int number = 1'000'000;
std::int64_t sum = 0;

std::shared_ptr<velora::XCGLogger> loggerTo(const std::shared_ptr<velora::DestinationProtocol>& destination) {
    auto log = velora::make<velora::XCGLogger>("bench", /*includeDefaultDestinations=*/false);
    log->add(destination);
    return log;
}

void logBelowLevel(velora::XCGLogger& log) {
    log.verbose("message number {} of this run", number);
}

void logLine(velora::XCGLogger& log) {
    log.info("message number {} of this run", number);
}

void readPreference(velora::XCGLogger& /*log*/) {
    sum += velora::UserDefaultsManager::shared().pinCodeLength();
}

void countDiscarded(Call call, int count) {
    const auto log = loggerTo(velora::make<DiscardingDestination>(nullptr, "discarding"));
    velora_counted(call, log.get(), count);
}

/// The queue works on something else while lines are queued: whether it would have to be woken is chance.
void countQueued(int count, const std::string& folder) {
    constexpr int linesAtOnce = 100;
    const auto queue = velora::DispatchQueue::make("bench");
    const auto file = velora::make<velora::FileDestination>(nullptr, folder + "/queued.log", "file");
    file->setLogQueue(queue);
    const auto log = loggerTo(file);
    for (int done = 0; done < count; done += linesAtOnce) {
        std::promise<void> begun;
        std::promise<void> released;
        queue->async([&] {
            begun.set_value();
            released.get_future().wait();
        });
        begun.get_future().wait();
        velora_counted(logLine, log.get(), linesAtOnce);
        released.set_value();
        queue->drain();
    }
}

}  // namespace

int main(int argumentCount, char** arguments) {
    constexpr int expectedArguments = 4;
    if (argumentCount != expectedArguments) {
        return 2;
    }
    const std::string kind = arguments[1];
    const int count = std::atoi(arguments[2]);
    const std::string folder = arguments[3];
    if (kind == "below-level") {
        countDiscarded(logBelowLevel, count);
    } else if (kind == "composed") {
        countDiscarded(logLine, count);
    } else if (kind == "queued") {
        countQueued(count, folder);
    } else if (kind == "preference-read") {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): before any other thread could read the environment
        ::setenv("VELORA_DEFAULTS_FILE", (folder + "/UserDefaults.json").c_str(), 1);
        velora::UserDefaultsManager::shared().setPinCodeLength(8);
        countDiscarded(readPreference, count);
    } else {
        return 2;
    }
    return sum < 0 ? 1 : 0;
}
