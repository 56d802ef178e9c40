// velora-defaults: shows and changes the user's preferences from a shell.

#include <CLI/CLI.hpp>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <fmt/format.h>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>

#include "CommandLine.h"
#include "Complaint.h"
#include "DefaultsArguments.h"
#include "DefaultsListing.h"
#include "DefaultsValue.h"
#include "DefaultsWatching.h"

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

/// What the command line asks for.
struct Request {
    std::string key;
    std::string value;
    std::string file;
    bool asJSON = false;
    bool onlyKeys = false;
    bool force = false;
    std::uint64_t count = 0;
};

int list(const DefaultsStore& store, const Request& request) {
    const std::vector<DefaultsRow> rows = defaultsRows(store);
    std::cout << (request.asJSON ? asJSON(rows) : request.onlyKeys ? asKeys(rows) : asTable(rows));
    return done;
}

/// Says that nothing is stored under `key`, and under which key it may be.
void complainOfMissing(const std::string& key) {
    const PreferenceEntry* meant = preferenceWithProperty(key);
    complain("no value is stored under " + key +
             (meant == nullptr ? "" : fmt::format(" (the key of that property is {})", meant->key)));
}

int read(const DefaultsStore& store, const Request& request) {
    for (const DefaultsRow& row : defaultsRows(store)) {
        if (row.key == request.key && row.text) {
            std::cout << *row.text << "\n";
            return done;
        }
    }
    complainOfMissing(request.key);
    return failed;
}

int write(DefaultsStore& store, const Request& request, std::optional<DefaultsValueType> asked) {
    const PreferenceEntry* preference = preferenceWithKey(request.key);
    if (const PreferenceEntry* meant = preferenceWithProperty(request.key); meant != nullptr && !request.force) {
        complain(fmt::format("{} is a property; its key is {}", request.key, meant->key));
        return refused;
    }
    const DefaultsValueType known = preference == nullptr ? DefaultsValueType::string : typeOf(preference->kind);
    std::string fault;
    std::optional<DefaultsValue> value = parsedValue(asked.value_or(known), request.value, fault);
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
        complainOfMissing(request.key);
        return failed;
    }
    return store.remove(request.key) ? done : failed;
}

int exportTo(const DefaultsStore& store, const Request& request) {
    if (request.file == "-") {
        std::cout << store.exportText();
        return done;
    }
    return store.exportTo(request.file) ? done : failed;
}

int importFrom(DefaultsStore& store, const Request& request) {
    if (request.file == "-") {
        return store.importText(std::string(std::istreambuf_iterator<char>(std::cin), {})) ? done : failed;
    }
    return store.importFrom(request.file) ? done : failed;
}

int printPath(const DefaultsStore& store) {
    if (store.path().empty()) {
        complain("there is no home folder to keep the preferences in");
        return failed;
    }
    std::cout << store.path() << "\n";
    return done;
}

/// The commands and their options.
class Commands {
public:
    Commands() {
        setUp(app_, "Exit status: 0 done, 1 not found or the store failed, 2 bad usage or a value refused.");
        app_.add_subcommand("path", "print the path of the store's file");
        CLI::Option* json = list_->add_flag("--json", request_.asJSON, "print a JSON list of objects");
        list_->add_flag("--keys", request_.onlyKeys, "print the keys alone")->excludes(json);
        for (CLI::App* command : {read_, write_, remove_}) {
            command->add_option("KEY", request_.key, "the key in the store")->required();
        }
        write_->add_option("VALUE", request_.value, "the value")->required();
        addTypes();
        write_->add_flag("--force", request_.force, "write also what the property cannot read back");
        for (CLI::App* command : {export_, import_}) {
            command->add_option("FILE", request_.file, "the file, - for standard output or input")->required();
        }
        watch_->add_option("--count", request_.count, "end after so many changes")->check(CLI::PositiveNumber);
    }

    /// Parses and runs. Returns the exit status.
    int run(const std::vector<std::string>& arguments) {
        const auto status = statusOfParsing(app_, parserArguments(arguments), withoutDoubleDash);
        return status ? *status : runCommand(DefaultsStore::standard());
    }

private:
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
        const bool onlyReads = !write_->parsed() && !remove_->parsed() && !import_->parsed() && !watch_->parsed();
        return status == done && hasReported_ && onlyReads ? failed : status;
    }

    int statusOfCommand(DefaultsStore& store) {
        if (list_->parsed()) {
            return list(store, request_);
        }
        if (read_->parsed()) {
            return read(store, request_);
        }
        if (write_->parsed()) {
            return write(store, request_, askedType());
        }
        if (remove_->parsed()) {
            return remove(store, request_);
        }
        if (export_->parsed()) {
            // A store that turns out to be damaged now is empty: no reason to replace an earlier export.
            store.generation();
            return hasReported_ ? failed : exportTo(store, request_);
        }
        if (import_->parsed()) {
            return importFrom(store, request_);
        }
        if (watch_->parsed()) {
            printChanges(store, request_.count);
            return done;
        }
        return printPath(store);
    }

    CLI::App app_{"Shows and changes the user's preferences.", "velora-defaults"};
    Request request_;
    std::atomic<bool> hasReported_{false};
    std::vector<CLI::Option*> types_;
    CLI::App* list_ = app_.add_subcommand("list", "print every known or stored key with its type and value");
    CLI::App* read_ = app_.add_subcommand("read", "print one value");
    CLI::App* write_ = app_.add_subcommand("write", "store one value");
    CLI::App* remove_ = app_.add_subcommand("delete", "remove one stored value");
    CLI::App* export_ = app_.add_subcommand("export", "write all stored values to a JSON file");
    CLI::App* import_ = app_.add_subcommand("import", "store all values of a JSON file, or none");
    CLI::App* watch_ = app_.add_subcommand("watch", "print each change as it happens, until interrupted");
};

}  // namespace

}  // namespace velora

int main(int count, char** arguments) {
    return velora::Commands().run({arguments + 1, arguments + count});
}
