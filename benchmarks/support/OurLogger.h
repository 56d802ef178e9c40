#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

#include "support/Line.h"

namespace velora::bench {

/// Composes lines and lets them go.
class DiscardingDestination : public BaseDestination {
public:
    using BaseDestination::BaseDestination;
    void output(LogDetails& /*logDetails*/, std::string& message) override { Discarded::take(message); }
};

/// Our logger with its default columns and destinations of the benchmark's choice, taken apart at the end.
class OurLogger {
public:
    explicit OurLogger(const std::shared_ptr<DestinationProtocol>& destination)
        : log_(make<XCGLogger>("bench", /*includeDefaultDestinations=*/false)) {
        log_->add(destination);
    }
    OurLogger(const OurLogger&) = delete;
    OurLogger& operator=(const OurLogger&) = delete;
    ~OurLogger() {
        while (!log_->destinations().empty()) {
            log_->remove(std::shared_ptr(log_->destinations().back()));
        }
    }

    XCGLogger& operator*() const { return *log_; }
    XCGLogger* operator->() const { return log_.get(); }

    void logLine(int number) const { log_->info("message number {} of this run", number); }

private:
    std::shared_ptr<XCGLogger> log_;
};

inline std::shared_ptr<FileDestination> ourFile(const std::string& path, std::shared_ptr<DispatchQueue> queue = nullptr,
                                                std::string identifier = "file") {
    auto file = make<FileDestination>(nullptr, path, std::move(identifier));
    file->setLogQueue(std::move(queue));
    return file;
}

}  // namespace velora::bench
