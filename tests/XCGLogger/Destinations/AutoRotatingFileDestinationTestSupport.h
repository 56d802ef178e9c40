#pragma once

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <string_view>
#include <support/CountingFormatter.h>
#include <support/RecordingDestination.h>
#include <support/TemporaryFolder.h>
#include <sys/xattr.h>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

#include "DestinationTestSupport.h"

namespace velora::test {

inline constexpr const char* identifierAttribute = "user.tamberlo.xcglogger.archived.by";
inline constexpr const char* timestampAttribute = "user.tamberlo.xcglogger.archived.at";

inline std::string attributeOf(const std::filesystem::path& path, const char* name) {
    std::string value(1'000, '\0');
    const ssize_t size = ::getxattr(path.c_str(), name, value.data(), value.size());
    return size < 0 ? "(none)" : value.substr(0, static_cast<std::size_t>(size));
}

inline void setAttribute(const std::filesystem::path& path, const char* name, std::string_view value) {
    ASSERT_EQ(::setxattr(path.c_str(), name, value.data(), value.size(), 0), 0);
}

/// A file that looks as if an earlier run had archived it.
inline void makeArchive(const std::filesystem::path& path, std::string_view identifier, std::string_view timestamp) {
    writeFile(path, "old\n");
    setAttribute(path, identifierAttribute, identifier);
    setAttribute(path, timestampAttribute, timestamp);
}

inline std::vector<std::string> names(const std::vector<URL>& urls) {
    std::vector<std::string> result;
    std::ranges::transform(urls, std::back_inserter(result), [](const URL& url) { return url.lastPathComponent(); });
    return result;
}

inline std::vector<std::string> filesIn(const std::filesystem::path& folder) {
    std::vector<std::string> result;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        result.push_back(entry.path().filename());
    }
    std::ranges::sort(result);
    return result;
}

using Options = AutoRotatingFileDestination::Options;

class AutoRotatingFileDestinationTest : public testing::Test {
protected:
    void SetUp() override {
        writeFile(folder / "probe", "");
        if (::setxattr((folder / "probe").c_str(), "user.probe", "", 0, 0) != 0) {
            GTEST_SKIP() << "the temporary folder's file system has no extended attributes";
        }
        std::filesystem::remove(folder / "probe");
        log->add(other);
    }
    void TearDown() override {
        for (const auto& destination : std::vector(log->destinations())) {
            log->remove(destination);
        }
    }

    std::shared_ptr<AutoRotatingFileDestination> add(const std::string& name, Options options) {
        if (!options.archiveSuffixDateFormatter) {
            options.archiveSuffixDateFormatter = std::make_shared<CountingFormatter>();
        }
        auto made = make<AutoRotatingFileDestination>(nullptr, folder / name, "rotating", options);
        log->add(made);
        return made;
    }
    static Options unlimited() { return {.maxFileSize = 0, .maxTimeInterval = 0}; }
    std::string otherText() const {
        std::string text;
        for (const std::string& line : other->lines()) {
            text += line + "\n";
        }
        return text;
    }

    TemporaryFolder folder;
    std::shared_ptr<XCGLogger> log = make<XCGLogger>("log", false);
    std::shared_ptr<RecordingDestination> other = make<RecordingDestination>(nullptr, "other");
};

}  // namespace velora::test
