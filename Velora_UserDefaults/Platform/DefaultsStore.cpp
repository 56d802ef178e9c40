#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <unordered_set>
#include <utility>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreEngine.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreWatch.h>
#include <Velora_UserDefaults/Platform/Text.h>

namespace velora {
namespace {

using Snapshot = DefaultsStoreSnapshot;

constexpr std::string_view noHome = "Preferences: there is no home folder; values live in memory only.";

/// Stores `json` under `key`; nothing removes the key.
bool store(DefaultsStoreEngine& engine, std::string_view key, const std::optional<std::string>& json) {
    if (!isValidUTF8(key)) {
        engine.report("Preferences: a key that is not UTF-8 is refused.");
        return false;
    }
    return engine.write(
        [&](DefaultsStoreDocument& document) { return json ? document.set(key, *json) : document.remove(key); });
}

/// The members of a document that count, in order.
std::vector<DefaultsStore::Entry> entriesOf(const DefaultsStoreDocument& document) {
    std::vector<DefaultsStore::Entry> entries;
    std::unordered_set<std::string_view> seen;
    const auto add = [&](const DefaultsStoreDocument::Member& member) {
        if (member.key && seen.insert(*member.key).second) {
            DefaultsStoreValue value = DefaultsStoreValue::fromJSON(member.json);
            if (value.isNull()) {
                return;
            }
            entries.push_back(
                {.key = *member.key, .type = value.type, .text = std::move(value.text), .json = member.json});
        }
    };
    const auto& members = document.members();
    std::for_each(members.rbegin(), members.rend(), add);
    std::reverse(entries.begin(), entries.end());
    return entries;
}

}  // namespace

DefaultsStore& DefaultsStore::standard() {
    // Never destroyed: destructors of static objects, and threads that outlive main, may still ask for a preference.
    static DefaultsStore& store = []() -> DefaultsStore& {
        const std::string path = standardPath();
        auto* opened = new DefaultsStore(path);
        if (path.empty()) {
            opened->engine_->report(std::string(noHome));
        }
        return *opened;
    }();
    return store;
}

DefaultsStore::DefaultsStore(const std::string& path)
    : engine_(std::make_unique<DefaultsStoreEngine>(path.empty() ? std::string() : resolvedStorePath(path))) {}

DefaultsStore::~DefaultsStore() = default;

const std::string& DefaultsStore::path() const {
    return engine_->path();
}

void DefaultsStore::setReportHandler(ReportHandler handler) {
    engine_->setReportHandler(std::move(handler));
}

std::optional<std::string> DefaultsStore::string(std::string_view key) const {
    return engine_->read([key](const Snapshot& snapshot) {
        const DefaultsStoreValue* value = snapshot.find(key);
        return value == nullptr ? std::nullopt : value->asString();
    });
}

std::int64_t DefaultsStore::integer(std::string_view key) const {
    return engine_->read([key](const Snapshot& snapshot) {
        const DefaultsStoreValue* value = snapshot.find(key);
        return value == nullptr ? 0 : value->integer;
    });
}

bool DefaultsStore::boolean(std::string_view key) const {
    return engine_->read([key](const Snapshot& snapshot) {
        const DefaultsStoreValue* value = snapshot.find(key);
        return value != nullptr && value->boolean;
    });
}

std::optional<URL> DefaultsStore::url(std::string_view key) const {
    return engine_->read([key](const Snapshot& snapshot) {
        const DefaultsStoreValue* value = snapshot.find(key);
        return value == nullptr ? std::nullopt : value->asURL();
    });
}

bool DefaultsStore::contains(std::string_view key) const {
    return engine_->read([key](const Snapshot& snapshot) { return snapshot.content->find(key) != nullptr; });
}

std::vector<DefaultsStore::Entry> DefaultsStore::allValues() const {
    std::string fault;
    const auto document = DefaultsStoreDocument::parse(exportText(), fault);
    return document ? entriesOf(*document) : std::vector<Entry>();
}

bool DefaultsStore::setString(std::string_view key, std::optional<std::string_view> value) {
    return store(*engine_, key, value ? std::optional(defaultsStoreJSON(*value)) : std::nullopt);
}

bool DefaultsStore::setInteger(std::string_view key, std::int64_t value) {
    return store(*engine_, key, std::to_string(value));
}

bool DefaultsStore::setBool(std::string_view key, bool value) {
    return store(*engine_, key, value ? "true" : "false");
}

bool DefaultsStore::setURL(std::string_view key, const std::optional<URL>& value) {
    return store(*engine_, key, value ? std::optional(defaultsStoreJSON(*value)) : std::nullopt);
}

bool DefaultsStore::remove(std::string_view key) {
    return store(*engine_, key, std::nullopt);
}

void DefaultsStore::registerDefault(std::string_view key, Registered value) {
    engine_->registerDefault(key, value);
}

void DefaultsStore::registerDefaults(std::initializer_list<std::pair<std::string_view, Registered>> values) {
    for (const auto& [key, value] : values) {
        engine_->registerDefault(key, value);
    }
}

std::string DefaultsStore::exportText() const {
    const std::string text = engine_->read([](const Snapshot& snapshot) { return snapshot.content->text; });
    return text.empty() ? DefaultsStoreDocument().text() : text;
}

bool DefaultsStore::exportTo(const std::string& path) const {
    const std::string target = resolvedStorePath(path);
    const std::string text = exportText();
    std::string fault = DefaultsStoreContents::read(engine_->path()).fault;
    if (!fault.empty()) {
        // Nothing is what it would export, perhaps over an export of better days.
        fault.insert(0, "the store cannot be read: ");
    } else if (target == engine_->path()) {
        fault = "it is the store itself";  // where others may be writing
    } else if (replaceForeignFile(target, text, fault)) {
        return true;
    }
    engine_->report(fmt::format("Preferences: cannot export to {}: {}.", path, fault));
    return false;
}

bool DefaultsStore::importText(std::string_view json) {
    std::string fault;
    const auto document = DefaultsStoreDocument::parse(json, fault);
    if (!document) {
        engine_->report(fmt::format("Preferences: cannot import: {}.", fault));
        return false;
    }
    return engine_->write([&](DefaultsStoreDocument& stored) { return stored.setAll(*document); });
}

bool DefaultsStore::importFrom(const std::string& path) {
    const DefaultsStoreContents contents = DefaultsStoreContents::read(path);
    std::string fault =
        contents.state == DefaultsStoreContents::State::missing ? "there is no such file" : contents.fault;
    const auto document = fault.empty() ? DefaultsStoreDocument::parse(contents.bytes, fault) : std::nullopt;
    if (!document) {
        engine_->report(fmt::format("Preferences: cannot import {}: {}.", path, fault));
        return false;
    }
    return engine_->write([&](DefaultsStoreDocument& stored) { return stored.setAll(*document); });
}

std::uint64_t DefaultsStore::generation() const {
    return engine_->read([](const Snapshot& snapshot) { return snapshot.changes; });
}

std::uint64_t DefaultsStore::waitForChange(std::uint64_t since, std::chrono::milliseconds timeout) const {
    constexpr std::chrono::milliseconds longest = std::chrono::hours(24 * 365 * 100);
    const auto end = std::chrono::steady_clock::now() + std::min(timeout, longest);
    DefaultsStoreWatch watch(engine_->path());
    for (;;) {
        engine_->lookAtFile();
        const std::uint64_t current = generation();
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        if (current != since || left.count() <= 0) {
            return current;
        }
        watch.wait(left);
    }
}

}  // namespace velora
