// The whole command-line tool on a log file of any bytes: the first line is a command, its arguments parted by tabs,
// the rest is the file. What is shown stands in the file, in its order, and nothing else does. `follow`, which waits,
// is left out, and so is whatever could reach other files than the input's own.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <iostream>
#include <string>
#include <string_view>
#include <support/Fuzzing.h>
#include <support/TemporaryFolder.h>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/Platform/Text.h>

int runVeloraLog(int count, char** arguments);

namespace velora::test {
namespace {

// A pipe takes that much at once.
constexpr std::size_t largestFile = 65'536;

/// The path of a file in the folder of all files.
std::string pathOf(const std::string& name) {
    static const TemporaryFolder folder;
    return folder / name;
}

/// Commands name the files and their folder as if that were the current one.
std::string withPath(const std::string& argument) {
    return argument == "app.log" || argument == "other.log" || argument == "." ? pathOf(argument) : argument;
}

struct Result {
    int status;
    std::string output;
};

/// Has another file in the place of a descriptor as long as it lives.
class Replaced {
public:
    Replaced(int number, int file) : number_(number), before_(::fcntl(number, F_DUPFD_CLOEXEC, 3)) {
        ::dup2(file, number);
    }
    Replaced(const Replaced&) = delete;
    Replaced& operator=(const Replaced&) = delete;
    ~Replaced() {
        ::dup2(before_, number_);
        ::close(before_);
    }

private:
    int number_;
    int before_;
};

/// Catches complaints as long as it lives.
class Silenced {
public:
    Silenced() : errors_(std::cerr.rdbuf(nullptr)), output_(std::cout.rdbuf(nullptr)) {}
    Silenced(const Silenced&) = delete;
    Silenced& operator=(const Silenced&) = delete;
    ~Silenced() {
        std::cerr.rdbuf(errors_);
        std::cout.rdbuf(output_);
        std::cerr.clear();
        std::cout.clear();
    }

private:
    std::streambuf* errors_;
    std::streambuf* output_;
};

/// All that was written to `file`, which is closed.
std::string contentOf(int file) {
    std::string content(static_cast<std::size_t>(::lseek(file, 0, SEEK_END)), '\0');
    require(::pread(file, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size()),
            "the output can be read");
    ::close(file);
    return content;
}

Result run(std::vector<std::string> arguments, int input) {
    std::ranges::transform(arguments, arguments.begin(), withPath);
    arguments.insert(arguments.begin(), "velora-log");
    std::vector<char*> pointers(arguments.size() + 1);  // the last one stays null
    std::transform(arguments.begin(), arguments.end(), pointers.begin(),
                   [](std::string& argument) { return argument.data(); });
    const int output = ::memfd_create("output", MFD_CLOEXEC);
    int status = -1;
    {
        const Silenced silenced;
        const Replaced replacedInput(STDIN_FILENO, input);
        const Replaced replacedOutput(STDOUT_FILENO, output);
        status = runVeloraLog(static_cast<int>(arguments.size()), pointers.data());
    }
    require(status >= 0 && status <= 2, "the exit status is one that is promised");
    return {.status = status, .output = contentOf(output)};
}

Result run(const std::vector<std::string>& arguments) {
    const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    Result result = run(arguments, nothing);
    ::close(nothing);
    return result;
}

Result runOnPipe(const std::vector<std::string>& arguments, std::string_view content) {
    int ends[2] = {-1, -1};
    require(::pipe2(ends, O_CLOEXEC) == 0 &&
                ::write(ends[1], content.data(), content.size()) == static_cast<ssize_t>(content.size()),
            "a pipe takes the input");
    ::close(ends[1]);
    Result result = run(arguments, ends[0]);
    ::close(ends[0]);
    return result;
}

/// Whether a command ends, soon, and touches no file of others.
bool isHarmless(std::string_view line) {
    // The system's regular expressions have no limits to what they cost.
    const bool isCostly = std::ranges::count_if(line, [](char character) {
                              return std::string_view("*+{\\(").find(character) != std::string_view::npos;
                          }) > 2;
    const bool removes = line.find("prune") != std::string_view::npos || line.find("purge") != std::string_view::npos;
    return line.find("follow") == std::string_view::npos && line.find('/') == std::string_view::npos &&
           line.find("..") == std::string_view::npos &&
           (!removes || (line.find("--dry-run") != std::string_view::npos && line.ends_with("\t."))) &&
           (line.find("regex") == std::string_view::npos || !isCostly);
}

std::vector<std::string_view> linesOf(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::size_t size = std::min(text.find('\n'), text.size());
        lines.push_back(text.substr(0, size));
        text.remove_prefix(std::min(text.size(), size + 1));
    }
    return lines;
}

bool isSubsequence(std::string_view part, std::string_view whole) {
    const std::vector<std::string_view> all = linesOf(whole);
    auto next = all.begin();
    for (const std::string_view line : linesOf(part)) {
        next = std::find(next, all.end(), line);
        if (next == all.end()) {
            return false;
        }
        ++next;
    }
    return true;
}

/// The records that `filter` accepts of the file `content`.
std::string shown(const std::vector<std::string>& filter, const std::string& content) {
    std::vector<std::string> arguments = {"show"};
    arguments.insert(arguments.end(), filter.begin(), filter.end());
    arguments.emplace_back("app.log");
    writeFile(pathOf("app.log"), content);
    const Result result = run(arguments);
    requireSame(result.status, result.output.empty() ? 1 : 0, "the status tells whether there was something");
    require(isSubsequence(result.output, content), "what is shown stands in the file, in its order");
    arguments.front() = "stats";
    requireSame(run(arguments).status, result.status, "what is shown is counted");
    return result.output;
}

void checkShowing(const std::string& content) {
    const std::string whole = content.empty() || content.ends_with('\n') ? content : content + "\n";
    requireEqual(shown({}, content), whole, "a file is shown as it is");
    requireEqual(runOnPipe({"show", "-"}, content).output, whole, "a pipe is shown as it is");
}

void checkLevels(const std::string& content) {
    std::string milder = content;
    for (const std::string level : {"verbose", "warning", "emergency"}) {
        const std::string accepted = shown({"--level", level}, content);
        require(isSubsequence(accepted, milder), "a more severe level accepts less");
        requireEqual(shown({"--level", level}, accepted), accepted, "what was accepted once is accepted again");
        milder = accepted;
    }
}

void checkText(const std::string& content, const std::string& text) {
    // An empty text is no condition, and an option may be none's value.
    if (text.empty() || text.starts_with('-')) {
        return;
    }
    const std::string accepted = shown({"--grep=" + text}, content);
    require(accepted.empty() == (content.find(text) == std::string::npos), "what holds the text is shown");
}

void checkMerging(const std::string& content) {
    const std::size_t half = std::min(content.find('\n', content.size() / 2), content.size() - 1) + 1;
    writeFile(pathOf("app.log"), content.substr(0, half));
    writeFile(pathOf("other.log"), content.substr(half));
    const Result merged = run({"show", "app.log", "other.log"});
    std::vector<std::string_view> expected = linesOf(content);
    std::vector<std::string_view> actual = linesOf(merged.output);
    std::ranges::sort(expected);
    std::ranges::sort(actual);
    require(actual == expected, "every line of two files is shown once");
}

std::string base64(std::string_view bytes) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        std::uint32_t bits = 0;
        for (std::size_t index = at; index < at + 3; ++index) {
            bits = bits << 8U | (index < bytes.size() ? static_cast<unsigned char>(bytes[index]) : 0U);
        }
        const std::size_t size = std::min<std::size_t>(3, bytes.size() - at);
        for (std::size_t digit = 0; digit < 4; ++digit) {
            text += digit <= size ? digits[bits >> (18U - 6U * digit) & 63U] : '=';
        }
    }
    return text;
}

void checkDecoding(const std::string& content) {
    const bool isText = !content.empty() && isValidUTF8(content);
    const std::string encoded = base64(content.substr(0, largestFile / 2));
    const Result decoded = runOnPipe({"decode"}, encoded + "\n");
    if (isText && content.size() <= largestFile / 2) {
        requireEqual(decoded.output, content + "\n", "what was encoded is decoded");
        requireSame(decoded.status, 0, "something was decoded");
    }
}

void checkCommand(std::string_view line, const std::string& content) {
    if (isHarmless(line)) {
        writeFile(pathOf("app.log"), content);
        run(argumentsOf(line));
    }
}

}  // namespace
}  // namespace velora::test

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    velora::test::useMemoryForTemporaryFolders();
    ::setenv("TZ", "UTC", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    velora::test::Input input(data, size);
    const std::string_view line = input.line();
    const std::string content(input.rest().substr(0, velora::test::largestFile));
    const std::vector<std::string> arguments = velora::test::argumentsOf(line);
    velora::test::checkCommand(line, content);
    velora::test::checkShowing(content);
    velora::test::checkLevels(content);
    velora::test::checkText(content, arguments.empty() ? std::string() : arguments.back());
    velora::test::checkMerging(content);
    velora::test::checkDecoding(content);
    return 0;
}
