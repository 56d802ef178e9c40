// velora-defaults: shows and changes the user's preferences from a shell.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <fmt/format.h>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>

#include "CommandLine.h"
#include "Complaint.h"
#include "DefaultsArguments.h"
#include "DefaultsListing.h"
#include "DefaultsNaming.h"
#include "DefaultsValue.h"
#include "DefaultsWatching.h"
#include "TerminalText.h"

namespace velora {

namespace {

// What a script can rely on.
constexpr int done = 0;
constexpr int failed = 1;
constexpr int refused = badUsage;

/// The parser's message without the "--" that its arguments were given.
std::string withoutDoubleDash(const std::string& original) {
    std::string message = original;
    for (std::size_t at = message.find(" --"); at != std::string::npos; at = message.find(" --", at + 1)) {
        if (at + 3 == message.size() || message[at + 3] == ' ') {
            return message.erase(at, 3);
        }
    }
    return message;
}

int refuseUsage(const std::string& text) {
    complain(text);
    std::cerr << "Run with --help for more information.\n";
    return refused;
}

/// What the command line asks for.
struct Request {
    std::string key;
    std::vector<std::string> keys;
    std::string value;
    std::string file;
    bool asJSON = false;
    bool onlyKeys = false;
    bool force = false;
    bool all = false;
    bool isSure = false;
    std::uint64_t count = 0;
};

int list(const DefaultsStore& store, const Request& request) {
    const std::vector<DefaultsRow> rows = defaultsRows(store);
    std::cout << (request.asJSON ? asJSON(rows) : request.onlyKeys ? asKeys(rows) : asTable(rows));
    return done;
}

/// Says that nothing is stored under `key`, and under which key it may be.
int failWithoutValue(const std::string& key) {
    const std::string mistake = mistakenKey(key);
    complain("no value is stored under " + key + (mistake.empty() ? "" : fmt::format(" ({})", mistake)));
    return failed;
}

int read(const DefaultsStore& store, const Request& request) {
    const std::optional<DefaultsRow> row = defaultsRow(store, request.key);
    if (!row || !row->text) {
        return failWithoutValue(request.key);
    }
    std::cout << *row->text << "\n";
    if (!row->problem.empty()) {
        complain(fmt::format("the application cannot read this value: {}", row->problem));
    }
    return done;
}

int describe(const DefaultsStore& store, const Request& request) {
    const PreferenceEntry* meant = preferenceWithProperty(request.key);
    const std::optional<DefaultsRow> row = defaultsRow(store, meant == nullptr ? request.key : meant->key);
    if (!row) {
        return failWithoutValue(request.key);
    }
    std::cout << asDescription(*row);
    return done;
}

int write(DefaultsStore& store, const Request& request, std::optional<DefaultsValueType> asked) {
    const PreferenceEntry* preference = preferenceWithKey(request.key);
    if (const std::string mistake = mistakenKey(request.key); !mistake.empty() && !request.force) {
        complain(fmt::format("{} (--force writes it all the same)", mistake));
        return refused;
    }
    std::string fault;
    std::optional<DefaultsValue> value =
        preference != nullptr && !asked ? parsedValue(*preference, request.value, fault)
                                        : parsedValue(asked.value_or(DefaultsValueType::string), request.value, fault);
    if (!value && !asked && request.force) {
        value = request.value;
    }
    if (value && preference != nullptr && !request.force) {
        fault = unreadableReason(*preference, *value);
    }
    if (!value || (!fault.empty() && !request.force)) {
        complain(fault);
        return refused;
    }
    return storeValue(store, request.key, *value) ? done : failed;
}

int remove(DefaultsStore& store, const Request& request) {
    if (!store.contains(request.key)) {
        return failWithoutValue(request.key);
    }
    return store.remove(request.key) ? done : failed;
}

/// Whether the user, if there is one at a terminal, agrees.
bool isAgreed(const std::string& question) {
    if (::isatty(STDIN_FILENO) == 0) {
        return true;
    }
    std::cerr << question << " [y/N] ";
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "Y" || answer == "yes";
}

int reset(DefaultsStore& store, const Request& request) {
    if (request.keys.empty() != request.all) {
        return refuseUsage("reset takes keys, or --all");
    }
    std::vector<std::string> stored;
    for (const std::string& key : request.keys) {
        if (!store.contains(key) && preferenceWithKey(key) == nullptr) {
            return failWithoutValue(key);
        }
        stored.push_back(key);
    }
    for (const PreferenceEntry& preference : preferenceTable()) {
        if (request.all) {
            stored.emplace_back(preference.key);
        }
    }
    std::erase_if(stored, [&store](const std::string& key) { return !store.contains(key); });
    if (stored.empty()) {
        return done;
    }
    std::string question = stored.size() == 1 ? "Remove the value of " : "Remove the values of ";
    for (const std::string& key : stored) {
        question += (&key == &stored.front() ? "" : ", ") + printable(key);
    }
    if (!request.isSure && !isAgreed(question + "?")) {
        complain("nothing was removed");
        return failed;
    }
    return store.removeKeys(stored) ? done : failed;
}

int exportTo(const DefaultsStore& store, const Request& request) {
    if (request.file == "-") {
        std::cout << store.exportText();
        return done;
    }
    return store.exportTo(request.file) ? done : failed;
}

/// Whether every value could be written by `write` as well. Says which ones could not.
bool canBeWritten(const std::vector<DefaultsStore::Entry>& entries) {
    bool isFine = true;
    for (const DefaultsStore::Entry& entry : entries) {
        const PreferenceEntry* preference = preferenceWithKey(entry.key);
        const std::string fault = preference == nullptr ? mistakenKey(entry.key) : unreadableReason(*preference, entry);
        if (!fault.empty()) {
            complain(fault);
            isFine = false;
        }
    }
    if (!isFine) {
        complain("nothing was imported (--force imports it all the same)");
    }
    return isFine;
}

int importFrom(DefaultsStore& store, const Request& request) {
    const bool isStandardInput = request.file == "-" || request.file == "/dev/stdin";
    const std::string text = isStandardInput ? std::string(std::istreambuf_iterator<char>(std::cin), {}) : "";
    // Of what cannot be read at all the store itself tells.
    DefaultsStore imported("");
    imported.setReportHandler([](const std::string& /*line*/) {});
    const bool isRead = isStandardInput ? imported.importText(text) : imported.importFrom(request.file);
    if (isRead && !request.force && !canBeWritten(imported.allValues())) {
        return refused;
    }
    if (isRead) {
        return store.importText(imported.exportText()) ? done : failed;
    }
    return (isStandardInput ? store.importText(text) : store.importFrom(request.file)) ? done : failed;
}

int watch(const DefaultsStore& store, const Request& request) {
    for (const std::string& key : request.keys) {
        if (const std::string mistake = mistakenKey(key); !mistake.empty() && !store.contains(key)) {
            complain(mistake);
            return refused;
        }
    }
    printChanges(store, request.keys, request.count);
    return done;
}

int failWithoutHome() {
    complain("there is no home folder to keep the preferences in");
    return failed;
}

int printPath(const DefaultsStore& store) {
    if (store.path().empty()) {
        return failWithoutHome();
    }
    std::cout << store.path() << "\n";
    return done;
}

/// The commands and their options.
class Commands {
public:
    Commands() {
        setUp(app_, VELORA_TOOL " " VELORA_VERSION,
              "Exit status: 0 done, 1 not found or the store failed, 2 bad usage or a value refused.");
        app_.add_subcommand("path", "print the path of the store's file");
        CLI::Option* json = list_->add_flag("--json", request_.asJSON, "print a JSON list of objects");
        list_->add_flag("--keys", request_.onlyKeys, "print the keys alone")->excludes(json);
        for (CLI::App* command : {read_, describe_, write_, remove_}) {
            command->add_option("KEY", request_.key, "the key in the store")->required();
        }
        write_->add_option("VALUE", request_.value, "the value")->required();
        addTypes();
        write_->add_flag("--force", request_.force, "write also what the property cannot read back, and mistyped keys");
        import_->add_flag("--force", request_.force, "import also what `write` refuses");
        CLI::Option* keys = reset_->add_option("KEY", request_.keys, "the keys in the store");
        reset_->add_flag("--all", request_.all, "reset every key that the application knows")->excludes(keys);
        reset_->add_flag("-y,--yes", request_.isSure, "do not ask");
        for (CLI::App* command : {export_, import_}) {
            command->add_option("FILE", request_.file, "the file, - for standard output or input")->required();
        }
        watch_->add_option("KEY", request_.keys, "the keys to watch; all without any");
        watch_->add_option("--count", request_.count, "end after so many changes")->check(CLI::PositiveNumber);
    }

    /// Parses and runs. Returns the exit status.
    int run(const std::vector<std::string>& arguments) {
        if (!arguments.empty() && !arguments.front().starts_with('-') && !isCommand(arguments.front())) {
            return refuseCommand(arguments.front());
        }
        const auto status = statusOfParsing(app_, parserArguments(arguments), withoutDoubleDash);
        return status ? *status : runCommand(DefaultsStore::standard());
    }

private:
    std::vector<std::string> commandNames() const {
        std::vector<std::string> names;
        for (const CLI::App* command : app_.get_subcommands([](const CLI::App*) { return true; })) {
            names.push_back(command->get_name());
        }
        return names;
    }

    bool isCommand(const std::string& name) const {
        const std::vector<std::string> names = commandNames();
        return std::find(names.begin(), names.end(), name) != names.end();
    }

    int refuseCommand(const std::string& name) const {
        const std::vector<std::string> names = commandNames();
        const std::string_view meant = nearest(name, std::vector<std::string_view>(names.begin(), names.end()));
        return refuseUsage(fmt::format("there is no command {}{}", name,
                                       meant.empty() ? "" : fmt::format("; did you mean {}?", meant)));
    }

    void addTypes() {
        for (const DefaultsValueType type : {DefaultsValueType::string, DefaultsValueType::integer,
                                             DefaultsValueType::boolean, DefaultsValueType::url}) {
            const std::string_view name = nameOf(type);
            CLI::Option* option = write_->add_flag(fmt::format("--{}", name));
            types_.push_back(option->description(fmt::format("write a value of type {0} (also -{0})", name)));
        }
        for (CLI::Option* type : types_) {
            for (CLI::Option* other : types_) {
                if (type != other) {
                    type->excludes(other);
                }
            }
        }
    }

    std::optional<DefaultsValueType> askedType() const {
        for (std::size_t index = 0; index < types_.size(); ++index) {
            if (types_[index]->count() > 0) {
                return static_cast<DefaultsValueType>(index);
            }
        }
        return std::nullopt;
    }

    int runCommand(DefaultsStore& store) {
        store.setReportHandler([this](const std::string& line) {
            hasReported_ = true;
            complain(line);
        });
        const int status = statusOfCommand(store);
        store.setReportHandler({});
        std::cout.flush();
        if (!std::cout.good()) {
            complain("the output cannot be written");
            return failed;
        }
        // What was read from a store that failed is not what it holds.
        return status == done && hasReported_ && !changesStore() && !watch_->parsed() ? failed : status;
    }

    bool changesStore() const { return write_->parsed() || remove_->parsed() || reset_->parsed() || import_->parsed(); }

    int statusOfCommand(DefaultsStore& store) {
        if (changesStore() && store.path().empty()) {
            return failWithoutHome();
        }
        if (list_->parsed()) {
            return list(store, request_);
        }
        if (read_->parsed()) {
            return read(store, request_);
        }
        if (describe_->parsed()) {
            return describe(store, request_);
        }
        if (reset_->parsed()) {
            return reset(store, request_);
        }
        if (write_->parsed()) {
            return write(store, request_, askedType());
        }
        if (remove_->parsed()) {
            return remove(store, request_);
        }
        if (export_->parsed()) {
            // Of a store that cannot be read nothing is exported.
            store.generation();
            return hasReported_ ? failed : exportTo(store, request_);
        }
        if (import_->parsed()) {
            return importFrom(store, request_);
        }
        if (watch_->parsed()) {
            return watch(store, request_);
        }
        return printPath(store);
    }

    CLI::App app_{"Shows and changes the user's preferences.", "velora-defaults"};
    Request request_;
    std::atomic<bool> hasReported_{false};
    std::vector<CLI::Option*> types_;
    CLI::App* list_ = app_.add_subcommand("list", "print every known or stored key with its property, type and value");
    CLI::App* read_ = app_.add_subcommand("read", "print one value");
    CLI::App* describe_ = app_.add_subcommand("describe", "print what is known of one key");
    CLI::App* write_ = app_.add_subcommand("write", "store one value");
    CLI::App* remove_ = app_.add_subcommand("delete", "remove one stored value");
    CLI::App* reset_ = app_.add_subcommand("reset", "let defaults hold again, for some keys or all");
    CLI::App* export_ = app_.add_subcommand("export", "write all stored values to a JSON file");
    CLI::App* import_ = app_.add_subcommand("import", "store all values of a JSON file, or none");
    CLI::App* watch_ = app_.add_subcommand("watch", "print each change as it happens, until interrupted");
};

}  // namespace

}  // namespace velora

int main(int count, char** arguments) {
    return velora::Commands().run({arguments + 1, arguments + count});
}
