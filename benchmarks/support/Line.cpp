#include "support/Line.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <regex>

namespace velora::bench {

namespace {

struct Column {
    const char* name;
    const char* pattern;
};

// Loggers differ in the order and in the marks between the columns.
constexpr std::array columns{
    Column{"the date", R"(\d{4}-?\d{2}-?\d{2} \d{2}:\d{2}:\d{2}[.,]\d{3})"},
    Column{"the level", R"(\b(?:[Ii]nfo|INFO)\b|^I\d)"},
    Column{"the file and line", R"(\b\w+\.(?:h|cpp):\d+)"},
    Column{"the function", R"(\blogLine\b)"},
    Column{"the message", R"(message number \d+ of this run)"},
};

}  // namespace

void expectAllColumns(benchmark::State& state, std::string_view line) {
    if (std::getenv("VELORA_BENCH_SHOW") != nullptr) {  // NOLINT(concurrency-mt-unsafe): nothing sets the environment
        std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
    }
    for (const Column& column : columns) {
        if (!std::regex_search(line.begin(), line.end(), std::regex(column.pattern))) {
            const std::string error = std::string("a line lacks ") + column.name + ": " + std::string(line);
            state.SkipWithError(error.c_str());
        }
    }
}

}  // namespace velora::bench
