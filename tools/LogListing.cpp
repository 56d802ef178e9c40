#include "LogListing.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <map>
#include <sys/stat.h>

#include <Velora_UserDefaults/Platform/Date.h>
#include <Velora_UserDefaults/Platform/FileManager.h>

#include "Complaint.h"
#include "LogArchives.h"
#include "LogProgress.h"
#include "LogReader.h"
#include "LogTime.h"
#include "TerminalText.h"

namespace velora {

namespace {

std::uint64_t sizeOf(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

std::string localTextOf(const std::string& timestamp) {
    char* end = nullptr;
    const double seconds = std::strtod(timestamp.c_str(), &end);
    return timestamp.empty() || *end != '\0' ? timestamp : localText(dateFromSecondsSince1970(seconds));
}

/// The number of lines of the file at `path`; a last one without an end counts.
std::optional<std::uint64_t> linesOf(const std::string& path, LogProgress& progress) {
    auto file = openForReading(path);
    if (!file) {
        complain(file.error().description);
        return std::nullopt;
    }
    LogReader reader(*std::move(file));
    reader.setLinesAreRecords();
    std::uint64_t lines = 0;
    bool endsInLine = false;
    while (const auto block = reader.next()) {
        lines += static_cast<std::uint64_t>(std::count(block->text.begin(), block->text.end(), '\n'));
        endsInLine = !block->text.ends_with('\n');
        progress.advance(block->text.size());
    }
    if (reader.error() != 0) {
        complain(fmt::format("{}: {}", path, reasonOf(reader.error())));
        return std::nullopt;
    }
    return lines + (endsInLine ? 1 : 0);
}

std::size_t widest(const std::vector<ArchiveRow>& rows, std::string ArchiveRow::*column, std::size_t least) {
    std::size_t width = least;
    for (const ArchiveRow& row : rows) {
        width = std::max(width, printable(row.*column).size());
    }
    return width;
}

}  // namespace

std::vector<ArchiveRow> archiveRows(const std::vector<ArchivedLogFile>& archives) {
    std::uint64_t total = 0;
    for (const ArchivedLogFile& archive : archives) {
        total += sizeOf(archive.path);
    }
    LogProgress progress(total);
    std::vector<ArchiveRow> rows;
    rows.reserve(archives.size());
    for (const ArchivedLogFile& archive : archives) {
        rows.push_back({.name = std::filesystem::path(archive.path).filename().string(),
                        .identifier = archive.identifier,
                        .archivedAt = localTextOf(archive.timestamp),
                        .size = sizeOf(archive.path),
                        .lines = linesOf(archive.path, progress)});
    }
    return rows;
}

std::string asTable(const std::vector<ArchiveRow>& rows) {
    const std::size_t nameWidth = widest(rows, &ArchiveRow::name, 4);
    const std::size_t identifierWidth = widest(rows, &ArchiveRow::identifier, 10);
    std::string table = fmt::format("{:{}}  {:{}}  {:19}  {:>12}  {:>10}\n", "NAME", nameWidth, "IDENTIFIER",
                                    identifierWidth, "ARCHIVED AT", "SIZE", "LINES");
    for (const ArchiveRow& row : rows) {
        table += fmt::format("{:{}}  {:{}}  {:19}  {:>12}  {:>10}\n", printable(row.name), nameWidth,
                             printable(row.identifier), identifierWidth, printable(row.archivedAt), row.size,
                             row.lines ? std::to_string(*row.lines) : "?");
    }
    return table;
}

std::vector<ArchivedLogFile> allButNewest(const std::vector<ArchivedLogFile>& archives, std::size_t keep) {
    std::map<std::string, std::size_t> kept;
    std::vector<ArchivedLogFile> others;
    for (const ArchivedLogFile& archive : archives) {
        if (++kept[archive.identifier] > keep) {
            others.push_back(archive);
        }
    }
    return others;
}

bool removeArchives(const std::vector<ArchivedLogFile>& archives, bool isOnlyTried, LogOutput& output) {
    bool isDone = true;
    for (const ArchivedLogFile& archive : archives) {
        if (!isOnlyTried) {
            if (const auto removed = FileManager::remove(archive.path); !removed) {
                complain(removed.error().description);
                isDone = false;
                continue;
            }
        }
        output.print(printable(archive.path) + "\n");
    }
    return isDone;
}

}  // namespace velora
