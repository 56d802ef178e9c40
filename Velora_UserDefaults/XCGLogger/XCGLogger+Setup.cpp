// What a logger starts with, and its configuration for the common case. It makes concrete destinations, so
// it stands above them, while the logger itself knows none.

#include <memory>

#include <Velora_UserDefaults/XCGLogger/Destinations/ConsoleDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora {

namespace {

void setColumns(BaseDestination& destination, const XCGLogger::SetupOptions& options) {
    destination.setShowLogIdentifier(options.showLogIdentifier);
    destination.setShowFunctionName(options.showFunctionName);
    destination.setShowThreadName(options.showThreadName);
    destination.setShowLevel(options.showLevel);
    destination.setShowFileName(options.showFileNames);
    destination.setShowLineNumber(options.showLineNumbers);
    destination.setShowDate(options.showDate);
}

}  // namespace

void XCGLogger::addDefaultDestinations() {
    add(make<ConsoleDestination>(nullptr, std::string(Constants::baseConsoleDestinationIdentifier)));
}

void XCGLogger::setup(const SetupOptions& options) {
    setOutputLevel(options.level);
    const auto console =
        std::dynamic_pointer_cast<ConsoleDestination>(destination(Constants::baseConsoleDestinationIdentifier));
    if (console) {
        setColumns(*console, options);
        console->setOutputLevel(options.level);
    }
    if (options.writeToFile) {
        const auto file =
            make<FileDestination>(nullptr, *options.writeToFile, std::string(Constants::fileDestinationIdentifier),
                                  /*shouldAppend=*/false, "-- ** ** ** --", std::nullopt);
        setColumns(*file, options);
        file->setOutputLevel(options.fileLevel.value_or(options.level));
        add(file);
    }
    logAppDetails();
}

}  // namespace velora
