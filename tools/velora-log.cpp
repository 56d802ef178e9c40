// velora-log: reads the log files of the library and looks after their archives.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <fmt/format.h>
#include <optional>
#include <string>
#include <vector>

#include <Velora_UserDefaults/Platform/Date.h>

#include "CommandLine.h"
#include "Complaint.h"
#include "LogArchives.h"
#include "LogDecoding.h"
#include "LogFilter.h"
#include "LogFollowing.h"
#include "LogListing.h"
#include "LogOutput.h"
#include "LogReader.h"
#include "LogStatistics.h"
#include "LogStream.h"
#include "LogTime.h"

namespace velora {

namespace {

// What a script can rely on; as grep(1) has it.
constexpr int found = 0;
constexpr int foundNothing = 1;
constexpr int failed = badUsage;

/// What the command line asks for.
struct Request {
    std::string folder;
    std::optional<std::string> identifier;
    std::size_t keep = 0;
    bool isOnlyTried = false;
    std::vector<std::string> files;
    bool withArchives = false;
    std::string archiveFolder;
    LogFilter filter;
    ColorChoice color = ColorChoice::automatic;
    std::size_t lines = 10;
    std::optional<std::chrono::minutes> span;
};

/// The exit status of a command that printed something or not, and failed or not.
int statusOf(bool hasFound, bool hasFailed) {
    return hasFailed ? failed : hasFound ? found : foundNothing;
}

/// Hands the output over and says if that failed.
int finished(LogOutput& output, bool hasFound, bool hasFailed) {
    output.flush();
    if (output.error() != 0) {
        complain(fmt::format("the output cannot be written: {}", reasonOf(output.error())));
    }
    return statusOf(hasFound, hasFailed || output.error() != 0);
}

/// The files to read, each with its archives before it if they are asked for.
std::vector<std::string> filesToRead(const Request& request) {
    std::vector<std::string> paths;
    for (const std::string& file : request.files) {
        if ((request.withArchives || !request.archiveFolder.empty()) && file != "-") {
            const std::vector<std::string> archives = archivesOfLiveFile(file, request.archiveFolder);
            paths.insert(paths.end(), archives.begin(), archives.end());
        }
        paths.push_back(file);
    }
    return paths;
}

std::optional<std::vector<ArchivedLogFile>> archivesOf(const Request& request) {
    auto archives = archivesIn(request.folder, request.identifier);
    if (!archives) {
        complain(archives.error().description);
        return std::nullopt;
    }
    return *std::move(archives);
}

int list(const Request& request) {
    const auto archives = archivesOf(request);
    if (!archives) {
        return failed;
    }
    const std::vector<ArchiveRow> rows = archiveRows(*archives);
    const bool hasFailed = std::any_of(rows.begin(), rows.end(), [](const ArchiveRow& row) { return !row.lines; });
    LogOutput output(/*isColored=*/false);
    if (!rows.empty()) {
        output.print(asTable(rows));
    }
    return finished(output, !rows.empty(), hasFailed);
}

/// Removes all but `keep` archives of each destination.
int remove(const Request& request, std::size_t keep) {
    const auto archives = archivesOf(request);
    if (!archives) {
        return failed;
    }
    const std::vector<ArchivedLogFile> unwanted = allButNewest(*archives, keep);
    LogOutput output(/*isColored=*/false);
    const bool isDone = removeArchives(unwanted, request.isOnlyTried, output);
    return finished(output, !unwanted.empty(), !isDone);
}

int show(const Request& request) {
    LogStream stream(filesToRead(request), request.filter);
    LogOutput output(usesColor(request.color));
    output.setBeforeWriting([&stream] { stream.progress().clear(); });
    stream.setBeforeReading([&output] { output.flush(); });
    while (const auto record = stream.next()) {
        output.print(*record);
        if (output.error() != 0) {
            break;
        }
    }
    return finished(output, output.hasPrinted(), stream.hasFailed());
}

int followFile(const Request& request) {
    const std::string& path = request.files.front();
    if (const std::string reason = whyNotFollowed(path); !reason.empty()) {
        complain(reason);
        return failed;
    }
    LogOutput output(usesColor(request.color));
    follow({.path = path, .archiveFolder = request.archiveFolder, .lines = request.lines}, request.filter, output);
    return finished(output, output.hasPrinted(), /*hasFailed=*/false);
}

int count(const Request& request) {
    LogStream stream(filesToRead(request), request.filter);
    LogOutput output(usesColor(request.color));
    output.setBeforeWriting([&stream] { stream.progress().clear(); });
    output.print(statistics(stream, request.span, output.isColored()));
    return finished(output, output.hasPrinted(), stream.hasFailed());
}

/// Prints the lines of one file, decoded where they are encoded; returns whether any was.
bool decodeFile(Descriptor file, const std::string& path, LogOutput& output, bool& hasFailed) {
    LogReader reader(std::move(file));
    reader.setLinesAreRecords();
    bool hasDecoded = false;
    while (const auto block = reader.next()) {
        for (std::size_t at = 0; at < block->text.size() && output.error() == 0;
             at = beginOfNextLine(block->text, at)) {
            const std::string_view line = lineAt(block->text, at);
            const auto decoded = decodedLine(line);
            hasDecoded = hasDecoded || decoded;
            output.print(decoded ? std::string_view(*decoded) : line);
            output.print("\n");
        }
        output.flush();
    }
    if (reader.error() != 0) {
        complain(fmt::format("{}: {}", path, reasonOf(reader.error())));
        hasFailed = true;
    }
    return hasDecoded;
}

int decode(const Request& request) {
    LogOutput output(/*isColored=*/false);
    bool hasFailed = false;
    bool hasDecoded = false;
    for (const std::string& path : request.files) {
        if (auto file = openForReading(path)) {
            hasDecoded |= decodeFile(*std::move(file), path, output, hasFailed);
        } else {
            complain(file.error().description);
            hasFailed = true;
        }
    }
    return finished(output, hasDecoded, hasFailed);
}

/// The commands and their options.
class Commands {
public:
    Commands() {
        setUp(app_, VELORA_TOOL " " VELORA_VERSION,
              "Exit status: 0 something was found, 1 nothing was, 2 something failed or bad usage.");
        for (CLI::App* command : {archives_, prune_, purge_}) {
            command->add_option("FOLDER", request_.folder, "the folder with the archives")->required();
            command->add_option("--identifier", request_.identifier,
                                "only archives of the destination with this identifier");
        }
        prune_->add_option("--keep", request_.keep, "how many archives of each destination to keep")
            ->required()
            ->check(CLI::NonNegativeNumber);
        for (CLI::App* command : {prune_, purge_}) {
            command->add_flag("--dry-run", request_.isOnlyTried, "only print what would be removed");
        }
        for (CLI::App* command : {show_, stats_, follow_}) {
            addFilter(*command);
        }
        for (CLI::App* command : {show_, stats_}) {
            command->add_option("FILE", request_.files, "the log files, - for the standard input")->required();
            command->add_flag("--archives", request_.withArchives, "read the files' archives, too");
        }
        follow_->add_option("FILE", request_.files, "the log file")->required()->expected(1);
        follow_->add_option("-n,--lines", request_.lines, "how many of the last lines to begin with (10)")
            ->check(CLI::NonNegativeNumber);
        stats_->add_option_function<std::string>(
            "--every", [this](const std::string& text) { setSpan(text); }, "the time that one bar stands for: 1m, 1h");
        decode_->add_option("FILE", request_.files, "the files, - for the standard input, as without any");
    }

    /// Parses and runs. Returns the exit status.
    int run(const std::vector<std::string>& arguments) {
        const auto status = statusOfParsing(app_, arguments);
        return status ? *status : runCommand();
    }

private:
    void addFilter(CLI::App& command) {
        const auto text = [&command](const char* name, std::string& value, const char* help) {
            command.add_option(name, value, help);
        };
        const auto parsed = [&command](const char* name, auto parse, const char* help) {
            command.add_option_function<std::string>(name, parse, help);
        };
        LogFilter& filter = request_.filter;
        parsed(
            "--level", [&](const std::string& word) { filter.level = parsedLevel(word); },
            "only this level and more severe ones: verbose, debug, info, notice, warning, error, severe, alert, "
            "emergency");
        parsed(
            "--since", [&](const std::string& moment) { filter.since = parsedDate("--since", moment); },
            "only what was logged then or later: 2026-11-22T01:23:39Z, \"2026-11-22 01:23:39\", 14:30, 10m, \"2h "
            "ago\"");
        parsed(
            "--until", [&](const std::string& moment) { filter.until = parsedDate("--until", moment); },
            "only what was logged then or earlier");
        text("--grep", filter.text, "only records that hold this text");
        parsed(
            "--regex", [&](const std::string& pattern) { filter.pattern = parsedPattern(pattern); },
            "only records that match this extended regular expression");
        text("--file", filter.file, "only records of the source file with this name");
        text("--thread", filter.thread, "only records of the thread with this name");
        text("--archive-folder", request_.archiveFolder, "where the files' archives lie; they are read, too");
        parsed(
            "--color", [&](const std::string& word) { request_.color = parsedColor(word); },
            "colour levels: auto (on a terminal), always or never");
    }

    static Level parsedLevel(const std::string& word) {
        const auto level = levelOfWord(word);
        if (!level) {
            throw CLI::ValidationError("--level", fmt::format("'{}' is no level", word));
        }
        return *level;
    }

    static ColorChoice parsedColor(const std::string& word) {
        if (word == "auto") {
            return ColorChoice::automatic;
        }
        if (word != "always" && word != "never") {
            throw CLI::ValidationError("--color", fmt::format("'{}' is none of auto, always and never", word));
        }
        return word == "always" ? ColorChoice::always : ColorChoice::never;
    }

    static Date parsedDate(const std::string& option, const std::string& text) {
        const auto date = parsedMoment(text, currentDate());
        if (!date) {
            throw CLI::ValidationError(option, fmt::format("'{}' is no date, time or duration", text));
        }
        return *date;
    }

    static LogPattern parsedPattern(const std::string& text) {
        std::string fault;
        const auto pattern = LogPattern::parsed(text, fault);
        if (!pattern) {
            throw CLI::ValidationError("--regex", fmt::format("'{}': {}", text, fault));
        }
        return *pattern;
    }

    void setSpan(const std::string& text) {
        const auto seconds = parsedDuration(text);
        const auto span = std::chrono::floor<std::chrono::minutes>(seconds.value_or(std::chrono::seconds(0)));
        if (span <= std::chrono::minutes(0) || span > std::chrono::hours(24) || span != seconds) {
            throw CLI::ValidationError("--every",
                                       fmt::format("'{}' is no duration of whole minutes, a day at most", text));
        }
        request_.span = span;
    }

    int runCommand() {
        if (archives_->parsed()) {
            return list(request_);
        }
        if (prune_->parsed()) {
            return remove(request_, request_.keep);
        }
        if (purge_->parsed()) {
            return remove(request_, 0);
        }
        if (show_->parsed()) {
            return show(request_);
        }
        if (follow_->parsed()) {
            return followFile(request_);
        }
        if (stats_->parsed()) {
            return count(request_);
        }
        if (request_.files.empty()) {
            request_.files.emplace_back("-");
        }
        return decode(request_);
    }

    CLI::App app_{"Reads log files and looks after their archives.", "velora-log"};
    Request request_;
    CLI::App* archives_ = app_.add_subcommand("archives", "list the archives in a folder");
    CLI::App* show_ = app_.add_subcommand("show", "print records of log files in the order of time");
    CLI::App* follow_ = app_.add_subcommand("follow", "print records as they are logged, across rotations");
    CLI::App* stats_ = app_.add_subcommand("stats", "count records by level and time");
    CLI::App* decode_ = app_.add_subcommand("decode", "decode lines that are Base64");
    CLI::App* prune_ = app_.add_subcommand("prune", "remove the oldest archives in a folder");
    CLI::App* purge_ = app_.add_subcommand("purge", "remove all archives in a folder");
};

}  // namespace

}  // namespace velora

int main(int count, char** arguments) {
    return velora::Commands().run({arguments + 1, arguments + count});
}
