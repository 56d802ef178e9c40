// A plugin that logs: a library that a host loads and unloads while it runs.

#include <memory>
#include <string>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace {

std::shared_ptr<velora::XCGLogger>& logger() {
    static auto shared = velora::make<velora::XCGLogger>("plugin", false);
    return shared;
}

}  // namespace

/// Logs so many lines to the file at `path` by a queue and with a write buffer, and leaves the rest to the unloading.
extern "C" __attribute__((visibility("default"))) void logLines(const char* path, int count) {
    static int destinations = 0;
    const std::string identifier = "file" + std::to_string(++destinations);
    logger()->remove("file" + std::to_string(destinations - 1));
    const auto file = velora::make<velora::FileDestination>(nullptr, path, identifier, /*shouldAppend=*/true);
    file->setShowDate(false);
    file->setLogQueue(velora::DispatchQueue::make("plugin"));
    file->setWriteBufferCapacity(4'096);
    logger()->add(file);
    for (int number = 0; number < count; ++number) {
        logger()->info("line {}", number);
    }
    velora::XCGLogger::Default::verbose("the shared logger is in use, too");
}
