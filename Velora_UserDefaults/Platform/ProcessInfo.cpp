#include <cerrno>
#include <filesystem>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/Lazy.h>
#include <Velora_UserDefaults/Platform/ProcessInfo.h>

namespace velora {

namespace {

std::string findProcessName() {
    std::string name = program_invocation_short_name;
    if (name.empty()) {
        std::error_code ignored;
        name = std::filesystem::read_symlink("/proc/self/exe", ignored).filename().string();
    }
    return name;
}

}  // namespace

const std::string& processName() {
    // Never destroyed: the last log lines are written by destructors of static objects.
    static constinit Lazy<const std::string> name;
    return name.get([] { return new std::string(findProcessName()); });
}

pid_t processIdentifier() {
    return ::getpid();
}

}  // namespace velora
