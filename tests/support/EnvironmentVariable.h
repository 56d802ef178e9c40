#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace velora::test {

/// Sets an environment variable, or takes it away, for as long as it lives. Not while other threads look at the
/// environment.
class EnvironmentVariable {
public:
    /// A null `value` takes the variable away.
    EnvironmentVariable(const char* name, const char* value) : name_(name) {
        if (const char* const old = std::getenv(name)) {
            old_ = old;
        }
        set(value);
    }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;
    ~EnvironmentVariable() { set(old_ ? old_->c_str() : nullptr); }

private:
    void set(const char* value) const {
        if (value == nullptr) {
            ::unsetenv(name_);
        } else {
            ::setenv(name_, value, 1);
        }
    }

    const char* name_;
    std::optional<std::string> old_;
};

}  // namespace velora::test
