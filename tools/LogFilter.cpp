#include "LogFilter.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <regex.h>

namespace velora {

class LogPattern::Compiled {
public:
    explicit Compiled(const std::string& text)
        : status_(::regcomp(&pattern_, text.c_str(), REG_EXTENDED | REG_NOSUB | REG_NEWLINE)) {}
    Compiled(const Compiled&) = delete;
    Compiled& operator=(const Compiled&) = delete;
    ~Compiled() {
        if (status_ == 0) {
            ::regfree(&pattern_);
        }
    }

    std::string fault() const {
        std::array<char, 256> text{};
        ::regerror(status_, &pattern_, text.data(), text.size());
        return status_ == 0 ? std::string() : text.data();
    }
    bool isIn(std::string_view text) const {
        regmatch_t range{};
        range.rm_eo = static_cast<regoff_t>(text.size());
        return ::regexec(&pattern_, text.data(), 0, &range, REG_STARTEND) == 0;
    }

private:
    regex_t pattern_{};
    int status_;
};

std::optional<LogPattern> LogPattern::parsed(const std::string& text, std::string& fault) {
    LogPattern pattern;
    const auto compiled = std::make_shared<const Compiled>(text);
    fault = compiled->fault();
    pattern.compiled_ = compiled;
    return fault.empty() ? std::optional(pattern) : std::nullopt;
}

bool LogPattern::isIn(std::string_view text) const {
    return compiled_->isIn(text);
}

namespace {

bool holds(std::string_view text, std::string_view needle) {
    return ::memmem(text.data(), text.size(), needle.data(), needle.size()) != nullptr;
}

/// Whether a name stands in a JSON text as it is.
bool needsNoEscape(std::string_view name) {
    return std::ranges::all_of(name, [](char character) {
        return character >= ' ' && character < '\x7F' && character != '"' && character != '\\' && character != '/';
    });
}

}  // namespace

bool LogFilter::hasConditions() const {
    return level || since || until || !text.empty() || pattern || !file.empty() || !thread.empty();
}

bool LogFilter::accepts(const LogHead& head, std::string_view record) const {
    if (level && (!head.level || *head.level < *level)) {
        return false;
    }
    if (!text.empty() && !holds(record, text)) {
        return false;
    }
    if (since || until) {
        const auto date = dateOf(record, head);
        if (!date || (since && *date < *since) || (until && *date > *until)) {
            return false;
        }
    }
    if (!file.empty() || !thread.empty()) {
        const LogColumns columns = columnsOf(record, head);
        const bool isOnThread = columns.thread == thread || (columns.mayLackThread && columns.logger == thread);
        if ((!file.empty() && columns.file != file) || (!thread.empty() && !isOnThread)) {
            return false;
        }
    }
    return !pattern || pattern->isIn(record);
}

std::string_view LogFilter::needle() const {
    if (!text.empty()) {
        return text;
    }
    if (!file.empty() && needsNoEscape(file)) {
        return file;
    }
    return needsNoEscape(thread) ? std::string_view(thread) : std::string_view();
}

}  // namespace velora
