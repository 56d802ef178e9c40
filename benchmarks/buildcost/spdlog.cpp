#ifdef WITH_LOGGER
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#endif

int main(int argc, char** /*argv*/) {
#ifdef WITH_LOGGER
    const auto log = spdlog::stdout_logger_mt("app");
#ifdef WITH_LINE
    SPDLOG_LOGGER_INFO(log, "message number {} of this run", argc);
#endif
#endif
    return argc - 1;
}
