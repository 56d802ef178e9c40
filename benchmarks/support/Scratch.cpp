#include "support/Scratch.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <unistd.h>

#include "support/Line.h"

namespace velora::bench {

namespace {

std::string variable(const char* name) {
    const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nothing sets the environment then
    return value == nullptr ? std::string() : std::string(value);
}

class Folder {
public:
    Folder() {
        const std::string chosen = variable("VELORA_BENCH_FOLDER");
        const std::filesystem::path parent =
            chosen.empty() ? std::filesystem::current_path() : std::filesystem::path(chosen);
        path_ = parent / ("scratch-" + std::to_string(::getpid()));
        std::filesystem::create_directories(path_);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() {
        // A forked child that exits leaves the folder to its parent.
        if (process_ == ::getpid()) {
            std::error_code ignored;
            std::filesystem::remove_all(path_, ignored);
        }
    }

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
    pid_t process_ = ::getpid();
};

/// The lines of a file that contain a message.
struct Messages {
    std::int64_t count = 0;
    std::string first;
    std::string last;
};

Messages messagesIn(const std::filesystem::path& path, std::string_view message) {
    Messages messages;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (line.find(message) != std::string::npos) {
            if (++messages.count == 1) {
                messages.first = line;
            }
            messages.last.swap(line);
        }
    }
    return messages;
}

}  // namespace

bool isQuick() {
    static const bool quick = !variable("VELORA_BENCH_QUICK").empty();
    return quick;
}

std::int64_t scaled(std::int64_t full) {
    return isQuick() ? std::max<std::int64_t>(1, full / 100) : full;
}

const std::filesystem::path& scratchFolder() {
    static const Folder folder;
    return folder.path();
}

LogFile::LogFile(std::string_view name) : path_(scratchFolder() / name) {}

LogFile::~LogFile() {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
}

void LogFile::check(benchmark::State& state, std::int64_t lines) const {
    check(state, lines, messageStart);
    const Messages messages = messagesIn(path_, messageStart);
    expectAllColumns(state, messages.first);
    expectAllColumns(state, messages.last);
}

void LogFile::check(benchmark::State& state, std::int64_t lines, std::string_view message) const {
    const std::int64_t count = messagesIn(path_, message).count;
    if (count != lines) {
        const std::string error = path_.filename().string() + " holds " + std::to_string(count) + " lines instead of " +
                                  std::to_string(lines);
        state.SkipWithError(error.c_str());
    }
}

}  // namespace velora::bench
