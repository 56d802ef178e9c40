#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <string>
#include <support/CountingFormatter.h>
#include <support/RunningProgram.h>
#include <support/TemporaryFolder.h>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora::test {

inline std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// The messages of lines in the engine's layout; further lines of a message as they are.
inline std::vector<std::string> messagesOf(const std::string& text) {
    std::vector<std::string> messages;
    for (const std::string& line : linesOf(text)) {
        const std::size_t arrow = line.find("> ");
        messages.push_back(arrow == std::string::npos ? line : line.substr(arrow + 2));
    }
    return messages;
}

class VeloraLog : public testing::Test {
protected:
    VeloraLog() {
        ::setenv("TZ", "Europe/Berlin", 1);
        ::setenv("LC_ALL", "C.UTF-8", 1);
        ::unsetenv("NO_COLOR");
    }

    Result run(std::vector<std::string> arguments, const std::string& input = "/dev/null") const {
        RunningProgram program(VELORA_LOG_PROGRAM, std::move(arguments), input, folder / "errors");
        std::string output = program.everything();
        const int status = program.wait();
        return {.status = status, .output = std::move(output), .errors = readFile(folder / "errors")};
    }

    /// What `show` prints of the file `content` with these options.
    std::string shown(const std::string& content, std::vector<std::string> options = {}) const {
        writeFile(path, content);
        options.insert(options.begin(), "show");
        options.push_back(path);
        const Result result = run(options);
        EXPECT_EQ(result.errors, "");
        EXPECT_EQ(result.status, result.output.empty() ? 1 : 0);
        return result.output;
    }

    TemporaryFolder folder;
    const std::string path = folder / "app.log";
};

/// Has a file written by the library, with the columns that `setUp` asks for.
template <typename SetUp, typename Write>
void writeLog(const std::string& path, SetUp setUp, Write write) {
    const auto log = make<XCGLogger>("app", false);
    const auto file = make<FileDestination>(nullptr, path, "file");
    file->setOutputLevel(Level::verbose);
    log->setOutputLevel(Level::verbose);
    setUp(*file);
    ASSERT_TRUE(log->add(file));
    write(*log);
    log->remove(file);
}

/// A rotating destination that numbers its archives: app_1.log, app_2.log …
class RotatingLog {
public:
    explicit RotatingLog(const std::string& path, const std::string& identifier = "rotating", std::uint64_t size = 0)
        : file(make<AutoRotatingFileDestination>(
              nullptr, path, identifier,
              AutoRotatingFileDestination::Options{.maxFileSize = size,
                                                   .maxTimeInterval = 0,
                                                   .archiveSuffixDateFormatter = std::make_shared<CountingFormatter>(),
                                                   .targetMaxLogFiles = 255})) {
        EXPECT_TRUE(log->add(file));
    }
    RotatingLog(const RotatingLog&) = delete;
    RotatingLog& operator=(const RotatingLog&) = delete;
    ~RotatingLog() { log->remove(file); }

    const std::shared_ptr<XCGLogger> log = make<XCGLogger>("app", false);
    const std::shared_ptr<AutoRotatingFileDestination> file;
};

inline std::vector<std::string> namesIn(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::ranges::sort(names);
    return names;
}

}  // namespace velora::test
