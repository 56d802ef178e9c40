// A session of a remote-desktop host, to be followed by reading its output from top to bottom.
//
//     host_session [FOLDER]
//
// writes its log files and archives to FOLDER (by default host_session in the temporary folder) and tells
// at its end what it wrote. Preferences are the user's own unless VELORA_DEFAULTS_FILE names another file.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/Velora_UserDefaults.h>

using namespace velora;  // an application's own file may; a header may not

namespace {

void headline(std::string_view text) {
    std::printf("\n-- %.*s\n", static_cast<int>(text.size()), text.data());
}

/// Whether a daemon takes what programs send to the system log.
bool isSystemLogRunning() {
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = "/dev/log"};
    const bool isRunning = ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(socket);
    return isRunning;
}

std::shared_ptr<AutoRotatingFileDestination> makeRotatingFile(const std::filesystem::path& folder) {
    auto file = make<AutoRotatingFileDestination>(
        nullptr, folder / "session.log", "session.file",
        AutoRotatingFileDestination::Options{.maxFileSize = 1'500, .maxTimeInterval = 0, .targetMaxLogFiles = 3});
    // Archives of one second get distinct names.
    file->setArchiveSuffixDateFormatter(std::make_shared<DateFormatter>("_yyyy-MM-dd_HHmmss.SSSSSS"));
    file->setShowThreadName(true);
    file->setOutputLevel(Level::verbose);
    return file;
}

std::shared_ptr<XCGLogger> makeLogger(const std::filesystem::path& folder) {
    auto log = make<XCGLogger>("host");
    log->setLevelDescriptions({{Level::notice, "Session"}, {Level::alert, "Call the user"}});

    const auto console = std::dynamic_pointer_cast<ConsoleDestination>(
        log->destination(XCGLogger::Constants::baseConsoleDestinationIdentifier));
    console->setShowThreadName(true);
    if (::isatty(STDOUT_FILENO) == 1) {
        const auto colors = make<ANSIColorLogFormatter>();
        colors->colorize(Level::notice, ANSIColor::lightCyan);
        console->setFormatters({{colors}});
    }
    // Mouse movements are for the file; the console is for people.
    console->setFilters({{make<TagFilter>(ExcludeFrom{"input"})}});

    auto systemLog =
        make<AppleSystemLogDestination>(nullptr, std::string(XCGLogger::Constants::systemLogDestinationIdentifier));
    systemLog->setOutputLevel(Level::warning);
    log->add(systemLog);

    log->add(makeRotatingFile(folder));
    log->logAppDetails();
    return log;
}

void serveConnection(XCGLogger& log) {
    setCurrentThreadName("connection");
    log.info(Tag("net"), "{} asks to connect, PIN of {} digits", "ann@example.com",
             UserDefaultsManager::shared().pinCodeLength());
    log.notice("Session {} has begun", 4711);
    for (int step = 0; step < 20; ++step) {
        log.verbose(Tag("input"), "mouse at {}, {}", 100 + step * 7, 240 - step * 3);
    }
    log.warning(Tag("net") | Dev("ann"), "Frame {} came {} ms late", 42, 180.5);
    log.alert("Somebody has to confirm the connection");
}

void serveAudio(XCGLogger& log) {
    setCurrentThreadName("audio");
    log.debug([] { return std::vector<int>{44'100, 48'000}; });
    log.error(Tag("audio"), "The microphone is in use by another program");
}

void changePreferences() {
    UserDefaultsManager& preferences = UserDefaultsManager::shared();
    preferences.setComputerDisplayName("Küche");
    preferences.setPinCodeLength(8);
    preferences.setDefaultAccessLevel(DefaultAccessLevel::fullControl);
    preferences.setManualAddressProxy("proxy.example.com");
    preferences.setComputerDisplayName(std::nullopt);
}

void logToMissingFolder(XCGLogger& log, const std::filesystem::path& folder) {
    const auto lost = make<FileDestination>(nullptr, folder / "missing" / "lost.log", "lost");
    log.add(lost);
    log.remove(lost);
}

void show(const std::filesystem::path& file) {
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        std::printf("   | %s\n", line.c_str());
    }
}

}  // namespace

int main(int argumentCount, char** arguments) {
    const std::filesystem::path folder = argumentCount > 1 ? std::filesystem::path(arguments[1])
                                                           : std::filesystem::temp_directory_path() / "host_session";
    std::filesystem::create_directories(folder);

    headline("A logger with a console, the system log and a file that rotates");
    Bundle::main().setVersion("2.4", "1234");
    const std::shared_ptr<XCGLogger> log = makeLogger(folder);
    logger = log;

    headline("Changes of preferences are announced and stored");
    changePreferences();

    headline("Two threads log; a filter keeps the lines tagged \"input\" from the console");
    std::thread connection([&] { serveConnection(*log); });
    std::thread audio([&] { serveAudio(*log); });
    connection.join();
    audio.join();

    headline("The engine reports its own problems through the other destinations");
    logToMissingFolder(*log, folder);

    headline("Debugging: the logger describes itself (carriage returns shown as line feeds)");
    for (const char character : log->debugDescription()) {
        std::putchar(character == '\r' ? '\n' : character);
    }

    const auto file = std::dynamic_pointer_cast<AutoRotatingFileDestination>(log->destination("session.file"));
    headline("What the file holds: " + file->writeToFileURL()->path());
    show(file->writeToFileURL()->path());

    headline("Its archives, newest first, each marked with the file's identifier");
    for (const URL& archive : file->archivedFileURLs()) {
        std::printf("   %s (%ju bytes)\n", archive.path().c_str(),
                    static_cast<std::uintmax_t>(std::filesystem::file_size(archive.path())));
    }

    headline("What the system log has");
    std::puts(isSystemLogRunning() ? "   the warnings and worse: journalctl -t host_session"
                                   : "   nothing: no log daemon is running on this machine");

    logger = nullptr;
    log->remove("session.file");
}
