// What a process finds in the file in which another one left lines that waited. The first digit says what kind of end
// that one had.
//
// 0: it was killed while it wrote. A line of the input says how many bytes of the rest the log had got; the rest are
// the lines. Those in the log, those completed there and those still pending must be all, once and in their order.
//
// 1: the machine failed, and the file may hold anything. Five numbers of eight bytes and the text behind them are taken
// as they are. The log must stay what it was but for the end of a line, and what is pending are whole lines.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <support/Fuzzing.h>
#include <support/TemporaryFolder.h>

#include <Velora_UserDefaults/Platform/FileHandle.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/PendingLines.h>

namespace velora::test {
namespace {

constexpr std::size_t capacity = 8'192;
constexpr std::size_t headerSize = 4'096;
const std::string before = "before\n";

std::string pathOf(const char* name) {
    static const TemporaryFolder folder;
    return folder / name;
}
std::string pendingPath() {
    return pathOf("pending");
}
std::string logPath() {
    return pathOf("app.log");
}

void write(const std::string& path, std::string_view text) {
    std::ofstream(path, std::ios::app | std::ios::binary) << text;
}

/// What is pending in the next process.
std::string recovered() {
    PendingLines lines;
    require(lines.moveTo(pendingPath(), capacity, logPath()).operator bool(), "the file can be opened");
    return std::string(lines.taken()).append(lines.appended());
}

/// As the next process finds it, and the one after that, if the next does not come to write anything.
std::string recoveredTwice() {
    const std::string pending = recovered();
    require(pending.empty() || pending.ends_with('\n'), "whole lines are pending");
    const std::string log = readFile(logPath());
    requireEqual(recovered(), pending, "what is pending the second time");
    requireEqual(readFile(logPath()), log, "the log the second time");
    return pending;
}

void checkKilled(std::size_t written, std::string_view text) {
    std::string all;
    {
        PendingLines lines;
        require(lines.moveTo(pendingPath(), capacity, logPath()).operator bool(), "the file can be made");
        Input input(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
        while (!input.atEnd()) {
            const std::string line(input.line());
            if (lines.append(line)) {
                all += line + "\n";
            }
        }
        if (all.empty()) {
            return;
        }
        requireEqual(lines.take(), all, "what is pending");
        auto handle = FileHandle::openForWriting(logPath());
        require(handle.operator bool(), "the log can be opened");
        lines.willWrite(*handle, all.size());
        require(handle->write(std::string_view(all).substr(0, written)).operator bool(), "the log can be written");
    }
    const std::string pending = recoveredTwice();
    const std::string log = readFile(logPath());
    requireEqual(log + pending, before + all, "the log and what is pending");
    require(log.ends_with('\n'), "the log has whole lines");
}

void checkDamaged(Input& input) {
    {
        std::ofstream file(pendingPath(), std::ios::binary);
        file << "Velora pending 2";
        // Capacity, which text is appended to, and of each where it begins, ends and was being written.
        constexpr int numbersOfHeader = 12;
        std::uint64_t numbers = 0;
        for (int count = 0; count < numbersOfHeader; ++count) {
            numbers = input.word();
            file.write(reinterpret_cast<const char*>(&numbers), sizeof numbers);
        }
        file.seekp(headerSize);
        file << input.rest();
    }
    const std::string pending = recoveredTwice();
    const std::string log = readFile(logPath());
    require(log.starts_with(before), "the log has what it had");
    require(std::ranges::count(log.substr(before.size()), '\n') <= 1, "one line at most was completed");
}

}  // namespace
}  // namespace velora::test

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    velora::test::useMemoryForTemporaryFolders();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace velora::test;  // NOLINT(google-build-using-namespace)
    std::filesystem::remove(pendingPath());
    std::filesystem::remove(logPath());
    write(logPath(), before);
    Input input(data, size);
    if (input.number(2) == 0) {
        const std::string written(input.line());
        checkKilled(std::strtoull(written.c_str(), nullptr, 10), input.rest());
    } else {
        checkDamaged(input);
    }
    return 0;
}
