// What a rotation costs with other archives in the folder: the destination has to look at the mark of each.

#include <benchmark/benchmark.h>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <sys/xattr.h>

#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>

#include "support/Measuring.h"
#include "support/OurLogger.h"

namespace velora::bench {

namespace {

void mark(const std::string& path, std::string_view key, std::string_view value) {
    const std::string name = "user." + std::string(key);
    ::setxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0);
}

/// A folder with so many archives that another destination has left; made once.
std::filesystem::path folderWith(std::int64_t archives) {
    std::filesystem::path folder = scratchFolder() / ("archives-" + std::to_string(archives));
    if (std::filesystem::create_directory(folder)) {
        for (std::int64_t index = 0; index < archives; ++index) {
            const std::string path = (folder / ("other_" + std::to_string(index) + ".log")).string();
            std::ofstream(path) << "archived\n";
            mark(path, Constants::extendedAttributeArchivedLogIdentifierKey, "other");
            mark(path, Constants::extendedAttributeArchivedLogTimestampKey, std::to_string(1'700'000'000 + index));
        }
    }
    return folder;
}

void rotation(benchmark::State& state) {
    const auto file = make<AutoRotatingFileDestination>(
        nullptr, folderWith(state.range(0)) / "app.log", "rotating",
        AutoRotatingFileDestination::Options{
            .maxFileSize = 0,
            .maxTimeInterval = 0,
            // Fine enough that no two archives have one name.
            .archiveSuffixDateFormatter = std::make_shared<DateFormatter>("_HHmmss.SSSSSSSSS")});
    int rotations = 0;
    file->setAutoRotationCompletion([&rotations](bool success) { rotations += success ? 1 : 0; });
    const OurLogger log(file);
    measureCalls(state, [&](int number) {
        log.logLine(number);
        file->rotateFile();
    });
    if (rotations != state.iterations()) {
        state.SkipWithError("a rotation failed");
    }
    file->purgeArchivedLogFiles();
}

/// A line to a file that would rotate at limits which it does not reach.
void rotatingLine(benchmark::State& state) {
    const LogFile file("ours-rotating.log");
    {
        const OurLogger log(make<AutoRotatingFileDestination>(
            nullptr, file.path(), "rotating",
            AutoRotatingFileDestination::Options{.maxFileSize = std::uint64_t{1} << 40U, .maxTimeInterval = 86'400}));
        measureCalls(state, [&](int number) { log.logLine(number); });
    }
    file.check(state, state.iterations());
}
BENCHMARK(rotatingLine)->Name("rotating-line/ours")->Apply(fileLines);

void archiveCounts(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("archives")->Arg(10)->Arg(100);
    if (!isQuick()) {
        benchmark->Arg(1'000)->Arg(10'000);
    }
}
BENCHMARK(rotation)->Name("rotation/ours")->Apply(archiveCounts);

}  // namespace

}  // namespace velora::bench
