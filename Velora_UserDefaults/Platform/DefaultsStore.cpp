#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fmt/format.h>
#include <thread>
#include <utility>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreEngine.h>
#include <Velora_UserDefaults/Platform/FileContents.h>
#include <Velora_UserDefaults/Platform/FileManager.h>
#include <Velora_UserDefaults/Platform/Lazy.h>
#include <Velora_UserDefaults/Platform/OwnFolder.h>
#include <Velora_UserDefaults/Platform/Text.h>

namespace velora {
namespace {

using Snapshot = DefaultsStoreSnapshot;

/// What `convert` makes of the value under `key`, or `Result()` if there is none.
template <typename Convert>
auto valueIn(DefaultsStoreEngine& engine, const DefaultsStore::Key& key, Convert convert) {
    using Result = decltype(convert(std::declval<const DefaultsStoreValue&>()));
    return engine.read([&](const Snapshot& snapshot) {
        const DefaultsStoreValue* value = DefaultsStoreEngine::find(snapshot, key);
        return value == nullptr ? Result() : convert(*value);
    });
}

/// Stores `json` under `key`; nothing removes the key.
bool store(DefaultsStoreEngine& engine, std::string_view key, const std::optional<std::string>& json) {
    if (!isValidUTF8(key)) {
        engine.report("Preferences: a key that is not UTF-8 is refused.");
        return false;
    }
    return engine.write(
        [&](DefaultsStoreDocument& document) { return json ? document.set(key, *json) : document.remove(key); });
}

/// Stores the members of `json`, which comes from `origin`, if there was no `fault` in getting it.
bool import(DefaultsStoreEngine& engine, std::string_view json, std::string_view origin, std::string fault) {
    const auto document = fault.empty() ? DefaultsStoreDocument::parse(json, fault) : std::nullopt;
    if (!document) {
        engine.report(fmt::format("Preferences: cannot import{}: {}.", origin, fault));
        return false;
    }
    return engine.write([&](DefaultsStoreDocument& stored) { return stored.setAll(*document); });
}

}  // namespace

DefaultsStore& DefaultsStore::standard() {
    // Never destroyed: destructors of static objects, and threads that outlive main, may still ask for a preference.
    static constinit Lazy<DefaultsStore> store;
    return store.get([] {
        const std::string path = standardPath();
        auto* opened = new DefaultsStore(path);
        if (path.empty()) {
            opened->engine_->report("Preferences: there is no home folder; values live in memory only.");
        }
        return opened;
    });
}

std::string DefaultsStore::standardPath() {
    if (const char* file = ::secure_getenv("VELORA_DEFAULTS_FILE"); file != nullptr && *file != '\0') {
        return file;
    }
    const std::string folder = FileManager::configurationFolder();
    return folder.empty() ? folder : folder + "/Quillon Velora/UserDefaults.json";
}

DefaultsStore::DefaultsStore(const std::string& path)
    : engine_(std::make_unique<DefaultsStoreEngine>(path.empty() ? std::string() : resolvedOwnPath(path))) {}

DefaultsStore::~DefaultsStore() = default;

const std::string& DefaultsStore::path() const {
    return engine_->path();
}

void DefaultsStore::setReportHandler(ReportHandler handler) {
    engine_->setReportHandler(std::move(handler));
}

std::optional<std::string> DefaultsStore::string(const Key& key) const {
    return valueIn(*engine_, key, [](const DefaultsStoreValue& value) { return value.asString(); });
}

std::int64_t DefaultsStore::integer(const Key& key) const {
    return valueIn(*engine_, key, [](const DefaultsStoreValue& value) { return value.integer; });
}

double DefaultsStore::real(const Key& key) const {
    return valueIn(*engine_, key, [](const DefaultsStoreValue& value) { return value.real; });
}

bool DefaultsStore::boolean(const Key& key) const {
    return valueIn(*engine_, key, [](const DefaultsStoreValue& value) { return value.boolean; });
}

std::int64_t DefaultsStore::integer(const Key& key, std::int64_t registered) {
    return engine_->readRegistered(key, Type::integer, registered,
                                   [](const DefaultsStoreValue& value) { return value.integer; });
}

bool DefaultsStore::boolean(const Key& key, bool registered) {
    return engine_->readRegistered(key, Type::boolean, registered ? 1 : 0,
                                   [](const DefaultsStoreValue& value) { return value.boolean; });
}

std::optional<URL> DefaultsStore::url(const Key& key) const {
    return valueIn(*engine_, key, [](const DefaultsStoreValue& value) { return value.asURL(); });
}

std::optional<std::vector<std::string>> DefaultsStore::strings(const Key& key) const {
    return valueIn(*engine_, key, [](const DefaultsStoreValue& value) { return value.asStrings(); });
}

std::optional<std::vector<std::byte>> DefaultsStore::bytes(const Key& key) const {
    return valueIn(*engine_, key, [](const DefaultsStoreValue& value) { return value.asBytes(); });
}

bool DefaultsStore::contains(std::string_view key) const {
    return engine_->read([key](const Snapshot& snapshot) { return snapshot.content->values.contains(key); });
}

std::vector<DefaultsStore::Entry> DefaultsStore::allValues() const {
    std::string fault;
    const auto document = DefaultsStoreDocument::parse(exportText(), fault).value_or(DefaultsStoreDocument());
    std::vector<Entry> entries;
    for (const DefaultsStoreDocument::Member& member : document.members()) {
        DefaultsStoreValue value = DefaultsStoreValue::fromJSON(member.json);
        if (member.key && !value.isNull()) {
            entries.push_back(
                {.key = *member.key, .type = value.type, .text = std::move(value.text), .json = member.json});
        }
    }
    return entries;
}

bool DefaultsStore::setString(std::string_view key, OptionalText value) {
    const std::optional<std::string_view> text = value;
    return store(*engine_, key, text ? std::optional(defaultsStoreJSON(*text)) : std::nullopt);
}

bool DefaultsStore::setInteger(std::string_view key, std::int64_t value) {
    return store(*engine_, key, std::to_string(value));
}

bool DefaultsStore::setReal(std::string_view key, double value) {
    if (!std::isfinite(value)) {
        engine_->report(fmt::format("Preferences: {} cannot be stored: JSON has no such number.", value));
        return false;
    }
    return store(*engine_, key, defaultsStoreJSON(value));
}

bool DefaultsStore::setBool(std::string_view key, bool value) {
    return store(*engine_, key, value ? "true" : "false");
}

bool DefaultsStore::setURL(std::string_view key, const std::optional<URL>& value) {
    return store(*engine_, key, value ? std::optional(defaultsStoreJSON(*value)) : std::nullopt);
}

bool DefaultsStore::setStrings(std::string_view key, std::span<const std::string> texts) {
    return store(*engine_, key, defaultsStoreJSON(texts));
}

bool DefaultsStore::setBytes(std::string_view key, std::span<const std::byte> bytes) {
    return store(*engine_, key, defaultsStoreJSON(bytes));
}

bool DefaultsStore::remove(std::string_view key) {
    return store(*engine_, key, std::nullopt);
}

bool DefaultsStore::removeKeys(std::span<const std::string> keys) {
    return engine_->write([keys](DefaultsStoreDocument& document) {
        return std::ranges::count_if(keys, [&](const std::string& key) { return document.remove(key); }) > 0;
    });
}

void DefaultsStore::registerDefault(const Key& key, Registered value) {
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
    // What a name of an open file leads to is to be written to, not replaced.
    const bool isInSystem = path.starts_with("/dev/") || path.starts_with("/proc/");
    const std::string target = isInSystem ? path : resolvedOwnPath(path);
    std::string fault = engine_->presentFault();
    if (!fault.empty()) {
        // What was read on better days may be in an earlier export already.
        fault.insert(0, "the store cannot be read: ");
    } else if (target == engine_->path()) {
        fault = "it is the store itself";  // where others may be writing
    } else if (fault = replaceFile(target, exportText()); fault.empty()) {
        return true;
    }
    engine_->report(fmt::format("Preferences: cannot export to {}: {}.", path, fault));
    return false;
}

bool DefaultsStore::importText(std::string_view json) {
    return import(*engine_, json, "", "");
}

bool DefaultsStore::importFrom(const std::string& path) {
    const DefaultsStoreContents contents = DefaultsStoreContents::read(path);
    const bool isMissing = contents.state == DefaultsStoreContents::State::missing;
    return import(*engine_, contents.bytes, " " + path, isMissing ? "there is no such file" : contents.fault);
}

std::uint64_t DefaultsStore::generation() const {
    return engine_->read([](const Snapshot& snapshot) { return snapshot.changes; });
}

std::uint64_t DefaultsStore::waitForChange(std::uint64_t since, std::chrono::milliseconds timeout) const {
    using std::chrono::milliseconds;
    constexpr milliseconds longest = std::chrono::hours(24 * 365 * 100);
    const auto end = std::chrono::steady_clock::now() + std::min(timeout, longest);
    for (;;) {
        const std::uint64_t current = generation();
        const auto left = std::chrono::ceil<milliseconds>(end - std::chrono::steady_clock::now());
        if (current != since || left.count() <= 0) {
            return current;
        }
        std::this_thread::sleep_for(std::min(left, milliseconds(50)));
    }
}

}  // namespace velora
