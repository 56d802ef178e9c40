// A log file that rotates by size: the live file, its archives, and what pruning leaves.

#include <cstdio>
#include <filesystem>

#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

int main(int argumentCount, char** arguments) {
    using velora::AutoRotatingFileDestination;
    const std::filesystem::path folder = argumentCount > 1 ? std::filesystem::path(arguments[1])
                                                           : std::filesystem::temp_directory_path() / "velora-rotation";
    std::filesystem::create_directories(folder);

    const auto log = velora::make<velora::XCGLogger>("rotation", /*includeDefaultDestinations=*/false);
    const auto file = velora::make<AutoRotatingFileDestination>(
        nullptr, folder / "app.log", "rotation.file",
        AutoRotatingFileDestination::Options{.maxFileSize = 2'000, .maxTimeInterval = 3'600, .targetMaxLogFiles = 3});
    // Rotations of one second need names of their own; the standard ones tell seconds.
    file->setArchiveSuffixDateFormatter(std::make_shared<velora::DateFormatter>("_HHmmss.SSSSSS"));
    file->setAutoRotationCompletion([](bool success) { std::puts(success ? "rotated" : "could not rotate"); });
    log->add(file);

    for (int line = 0; line < 100; ++line) {
        log->info("line {} of the session", line);
    }

    for (const velora::URL& archive : file->archivedFileURLs()) {
        std::printf("kept: %s\n", archive.path().c_str());
    }
    log->remove(file);
}
