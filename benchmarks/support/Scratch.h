#pragma once

#include <benchmark/benchmark.h>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace velora::bench {

/// Whether everything shall only run once, to show that it works: VELORA_BENCH_QUICK is set and not empty.
bool isQuick();

/// `full`, or a hundredth of it (at least 1) for a quick run.
std::int64_t scaled(std::int64_t full);

/// A new folder for the files of this process, removed when it exits: in the folder that VELORA_BENCH_FOLDER names,
/// else in the current one. It is to lie on a real disk.
const std::filesystem::path& scratchFolder();

/// A log file that a benchmark has written, removed with this object.
class LogFile {
public:
    /// A file named `name` in the scratch folder. Nothing is made yet.
    explicit LogFile(std::string_view name);
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;
    ~LogFile();

    std::string path() const { return path_.string(); }

    /// Turns the benchmark into an error unless the file holds exactly `lines` lines of messages, the first and the
    /// last of them with every column. To be called when the logger has been closed.
    void check(benchmark::State& state, std::int64_t lines) const;

    /// The same where messages differ from the common one and contain `message`; only counts the lines.
    void check(benchmark::State& state, std::int64_t lines, std::string_view message) const;

private:
    std::filesystem::path path_;
};

}  // namespace velora::bench
