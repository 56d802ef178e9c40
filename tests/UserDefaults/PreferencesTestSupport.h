#pragma once

#include <cstdlib>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <support/TemporaryFolder.h>
#include <utility>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>
#include <Velora_UserDefaults/UserDefaults/UserDefaultsManager.h>

namespace velora::test {

/// The preferences over a standard store of the test program's own, which is empty when a test begins; no logger.
class PreferencesTest : public testing::Test {
protected:
    PreferencesTest() { clear(); }
    ~PreferencesTest() override {
        logger = nullptr;
        clear();
    }

    /// The file of the standard store.
    static const std::string& storeFile() {
        static const TemporaryFolder folder;
        static const std::string file = folder / "UserDefaults.json";
        return file;
    }

    /// The standard store.
    static DefaultsStore& store() {
        static DefaultsStore& standard = []() -> DefaultsStore& {
            ::setenv("VELORA_DEFAULTS_FILE", storeFile().c_str(), 1);
            return DefaultsStore::standard();
        }();
        if (standard.path() !=
            std::filesystem::canonical(storeFile().substr(0, storeFile().rfind('/'))).string() + "/UserDefaults.json") {
            std::abort();  // never the user's own store
        }
        return standard;
    }

    /// The text under `key` in the store's file; nothing if the file lacks it.
    static std::optional<std::string> stored(const std::string& key) {
        for (const DefaultsStore::Entry& entry : store().allValues()) {
            if (entry.key == key) {
                return entry.json;
            }
        }
        return std::nullopt;
    }

    /// Gives `key` the JSON value `json`, as another program would.
    static void storeFromOutside(const std::string& key, const std::string& json) {
        DefaultsStore other(storeFile());
        ASSERT_TRUE(other.importText("{\"" + key + "\": " + json + "}"));
    }

    UserDefaultsManager& preferences = UserDefaultsManager::shared();

private:
    static void clear() {
        for (const DefaultsStore::Entry& entry : store().allValues()) {
            store().remove(entry.key);
        }
    }
};

/// Gives an environment variable another value, or none, for as long as the object lives.
class ChangedEnvironment {
public:
    ChangedEnvironment(std::string name, const std::optional<std::string>& value) : name_(std::move(name)) {
        if (const char* before = ::getenv(name_.c_str())) {
            before_ = before;
        }
        set(value);
    }
    ChangedEnvironment(const ChangedEnvironment&) = delete;
    ChangedEnvironment& operator=(const ChangedEnvironment&) = delete;
    ~ChangedEnvironment() { set(before_); }

private:
    void set(const std::optional<std::string>& value) const {
        if (value) {
            ::setenv(name_.c_str(), value->c_str(), 1);
        } else {
            ::unsetenv(name_.c_str());
        }
    }

    std::string name_;
    std::optional<std::string> before_;
};

}  // namespace velora::test
