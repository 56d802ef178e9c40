#pragma once

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <support/RunningProgram.h>
#include <support/TemporaryFolder.h>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>

namespace velora::test {

/// The program prints this and nothing else, and is content.
inline Result prints(const std::string& output) {
    return {.status = 0, .output = output, .errors = {}};
}

class VeloraDefaults : public testing::Test {
protected:
    VeloraDefaults() {
        ::setenv("VELORA_DEFAULTS_FILE", file.c_str(), 1);
        ::setenv("HOME", folder.path().c_str(), 1);
        ::unsetenv("XDG_CONFIG_HOME");
        ::unsetenv("XDG_DATA_HOME");
    }

    Result run(std::vector<std::string> arguments, const std::string& input = "/dev/null") const {
        RunningProgram program(VELORA_DEFAULTS_PROGRAM, std::move(arguments), input, folder / "errors");
        std::string output = program.everything();
        const int status = program.wait();
        return {.status = status, .output = std::move(output), .errors = readFile(folder / "errors")};
    }

    /// What is stored under `key`, as JSON text; empty if nothing is.
    std::string stored(const std::string& key) const {
        for (const DefaultsStore::Entry& entry : DefaultsStore(file).allValues()) {
            if (entry.key == key) {
                return entry.json;
            }
        }
        return {};
    }

    TemporaryFolder folder;
    std::string file = folder / "store/UserDefaults.json";
};

}  // namespace velora::test
