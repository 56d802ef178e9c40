// The whole command-line tool on a store of its own: each line is a command, its arguments parted by tabs. What was
// written under a key must be read again. Commands that use files of the user's choice, or wait, are left out.

#include <algorithm>
#include <cstdint>
#include <fmt/format.h>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <support/Fuzzing.h>
#include <support/TemporaryFolder.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>

#include "DefaultsArguments.h"
#include "DefaultsNaming.h"
#include "DefaultsValue.h"

int runVeloraDefaults(int count, char** arguments);

namespace velora::test {
namespace {

constexpr std::size_t mostCommands = 5;

std::string storePath() {
    static const TemporaryFolder folder;
    return folder / "store.json";
}

struct Result {
    int status;
    std::string output;
};

/// Catches what is printed as long as it lives.
class Captured {
public:
    Captured() : output_(std::cout.rdbuf(text_.rdbuf())), errors_(std::cerr.rdbuf(nullptr)) {}
    Captured(const Captured&) = delete;
    Captured& operator=(const Captured&) = delete;
    ~Captured() {
        std::cout.rdbuf(output_);
        std::cerr.rdbuf(errors_);
        std::cerr.clear();
    }
    std::string text() const { return text_.str(); }

private:
    std::ostringstream text_;
    std::streambuf* output_;
    std::streambuf* errors_;
};

Result run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "velora-defaults");
    std::vector<char*> pointers(arguments.size() + 1);  // the last one stays null
    std::transform(arguments.begin(), arguments.end(), pointers.begin(),
                   [](std::string& argument) { return argument.data(); });
    const Captured captured;
    const int status = runVeloraDefaults(static_cast<int>(arguments.size()), pointers.data());
    require(status >= 0 && status <= 2, "the exit status is one that is promised");
    return {.status = status, .output = captured.text()};
}

bool isHarmless(std::string_view line) {
    for (const std::string_view word : {"export", "import", "watch"}) {
        if (line.find(word) != std::string_view::npos) {
            return false;
        }
    }
    return true;
}

/// Whether a value of each type is stored and read as what it was parsed as.
void checkValue(const std::string& text) {
    DefaultsStore store("");
    for (const auto type :
         {DefaultsValueType::string, DefaultsValueType::integer, DefaultsValueType::boolean, DefaultsValueType::url}) {
        std::string fault;
        const std::optional<DefaultsValue> value = parsedValue(type, text, fault);
        require(value.has_value() == fault.empty(), "there is a fault or a value");
        if (!value) {
            continue;
        }
        requireSame(static_cast<std::size_t>(type), value->index(), "a value has the type that was asked for");
        require(storeValue(store, "key", *value), "a value can be stored");
        if (const auto* integer = std::get_if<std::int64_t>(&*value)) {
            requireSame(store.integer("key"), *integer, "an integer is read");
            // The digits may have zeros before them.
            requireSame<std::int64_t>(std::strtoll(text.c_str(), nullptr, 10), *integer, "an integer is its digits");
        } else if (const auto* flag = std::get_if<bool>(&*value)) {
            requireSame(store.boolean("key"), *flag, "a truth value is read");
        } else if (const auto* url = std::get_if<URL>(&*value)) {
            require(store.url("key") == *url, "a URL is read");
        } else {
            requireEqual(store.string("key").value_or("(none)"), std::get<std::string>(*value), "a text is read");
        }
    }
}

/// Whether the parser gets every argument, none twice, and the operands behind a "--".
void checkArguments(const std::vector<std::string>& arguments) {
    const std::vector<std::string> prepared = parserArguments(arguments);
    std::size_t before = 0;
    std::size_t after = 0;
    for (const std::string& argument : arguments) {
        before += argument == "--" ? 0 : argument.size();
    }
    for (const std::string& argument : prepared) {
        after += argument == "--" ? 0 : argument.size();
    }
    // "-int" becomes "--int".
    require(after >= before && after <= before + arguments.size(), "no argument is lost or doubled");
    require(arguments.empty() || prepared.front() == arguments.front(), "the command stays the first");
}

void checkReading(const std::vector<std::string>& arguments) {
    if (arguments.size() != 3 || arguments[0] != "write" || run(arguments).status != 0) {
        return;
    }
    // A value that begins with a dash may have been an option.
    if (arguments[1].starts_with('-') || arguments[2].starts_with('-')) {
        return;
    }
    const Result read = run({"read", arguments[1]});
    requireSame(read.status, 0, "what was written can be read");
    const DefaultsStore store(storePath());
    if (const auto text = store.string(arguments[1]); text && preferenceWithKey(arguments[1]) == nullptr) {
        requireEqual(read.output, arguments[2] + "\n", "what was written is read");
    }
    requireSame(run({"delete", arguments[1]}).status, 0, "what was written can be deleted");
    requireSame(run({"delete", arguments[1]}).status, 1, "what was deleted is gone");
}

}  // namespace
}  // namespace velora::test

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    velora::test::useMemoryForTemporaryFolders();
    ::setenv("VELORA_DEFAULTS_FILE", velora::test::storePath().c_str(), 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using velora::test::argumentsOf;
    velora::test::Input input(data, size);
    for (std::size_t count = 0; count < velora::test::mostCommands && !input.atEnd(); ++count) {
        const std::string_view line = input.line();
        const std::vector<std::string> arguments = argumentsOf(line);
        velora::test::checkArguments(arguments);
        velora::test::checkValue(arguments.empty() ? "" : arguments.back());
        if (velora::test::isHarmless(line)) {
            velora::test::run(arguments);
            velora::test::checkReading(arguments);
        }
    }
    return 0;
}
