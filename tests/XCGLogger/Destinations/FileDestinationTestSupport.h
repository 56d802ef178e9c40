#pragma once

#include <any>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/FileManager.h>
#include <Velora_UserDefaults/Platform/ProcessInfo.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/ForkedChild.h"
#include "support/RecordingDestination.h"
#include "support/TemporaryFolder.h"

namespace velora::test {

/// The value of an extended attribute as the system has it; "absent" if there is none.
inline std::string attributeOf(const std::string& path, const char* name) {
    std::string value(1'000, '\0');
    const ssize_t size = ::getxattr(path.c_str(), name, value.data(), value.size());
    return size < 0 ? "absent" : value.substr(0, static_cast<std::size_t>(size));
}

inline unsigned permissionsOf(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

/// A logger, and the file that destinations of its tests write to.
class FileDestinationTest : public testing::Test {
protected:
    /// A file destination without columns, of which the logger knows nothing yet.
    std::shared_ptr<FileDestination> makeFile(bool shouldAppend = false,
                                              const std::optional<std::string>& marker = "-- ** ** ** --") {
        auto file = make<FileDestination>(nullptr, path_, "file", shouldAppend, marker);
        hideColumns(*file);
        return file;
    }
    /// The same, added to the logger.
    std::shared_ptr<FileDestination> addFile(bool shouldAppend = false,
                                             const std::optional<std::string>& marker = "-- ** ** ** --") {
        auto file = makeFile(shouldAppend, marker);
        log_.add(file);
        return file;
    }
    std::string bytes() const { return readFile(path_); }
    /// The start-up header, as lines without columns.
    static std::string header() {
        return "> " + processName() + " PID: " + std::to_string(::getpid()) +
               "\n> XCGLogger Version: 7.0.1 - Level: Debug\n";
    }
    /// The header and the line that announces writing (or "appending").
    std::string beginning(const std::string& verb = "writing") const {
        return header() + "> XCGLogger " + verb + " log to: file://" + path_ + "\n";
    }
    std::vector<std::string> otherLines() const { return logger_.recording->lines(); }

    TemporaryFolder folder_;
    const std::string path_ = folder_ / "app.log";
    const std::string archive_ = folder_ / "archive.log";
    const RecordedLogger<> logger_{"app"};
    XCGLogger& log_ = *logger_.log;
};

}  // namespace velora::test
