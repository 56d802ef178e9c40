// The logging engine: what it has ready, and what a host derives from it.

#include <any>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/Making.h>
#include <Velora_UserDefaults/XCGLogger/Constants.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AppleSystemLogDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseQueuedDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/ConsoleDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>
#include <Velora_UserDefaults/XCGLogger/Filters/DevFilter.h>
#include <Velora_UserDefaults/XCGLogger/Filters/FileNameFilter.h>
#include <Velora_UserDefaults/XCGLogger/Filters/TagFilter.h>
#include <Velora_UserDefaults/XCGLogger/Level.h>
#include <Velora_UserDefaults/XCGLogger/LevelTexts.h>
#include <Velora_UserDefaults/XCGLogger/LogDetails.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/ANSIColorLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/UserInfo.h>
#include <Velora_UserDefaults/XCGLogger/UserInfoTagging.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

#include "Check.h"

namespace {

/// Keeps the lines it writes, those of a queue too.
class KeepingDestination : public velora::BaseQueuedDestination {
public:
    using BaseQueuedDestination::BaseQueuedDestination;

    void write(std::string_view message) override { lines.emplace_back(message); }

    std::vector<std::string> lines;
};

/// Lets pass what carries no "secret" in its user info.
class SecretFilter : public velora::FilterProtocol {
public:
    bool shouldExclude(velora::LogDetails& logDetails, std::string& /*message*/) override {
        return logDetails.userInfo.contains("secret");
    }

    std::string debugDescription() const override { return "SecretFilter"; }
};

class BracketFormatter : public velora::LogFormatterProtocol {
public:
    const std::string& format(velora::LogDetails& /*logDetails*/, std::string& message) override {
        return message = "[" + message + "]";
    }

    std::string debugDescription() const override { return "BracketFormatter"; }
};

std::shared_ptr<KeepingDestination> keepingDestination(const std::shared_ptr<velora::XCGLogger>& log) {
    auto destination = velora::make<KeepingDestination>(log, "keeping");
    destination->setShowDate(false);
    destination->setShowFileName(false);
    destination->setShowLineNumber(false);
    destination->setShowFunctionName(false);
    destination->setLevelDescriptions({{velora::Level::info, "HINT"}});
    check(log->add(destination));
    return destination;
}

void useHostsOwnParts() {
    const auto log = velora::make<velora::XCGLogger>("consumer", false);
    const auto kept = keepingDestination(log);
    kept->setFilters(velora::Filters{{std::make_shared<SecretFilter>()}});
    kept->setFormatters(velora::Formatters{{std::make_shared<BracketFormatter>()}});

    log->info("pin length {}", 4);
    log->info([] { return std::optional<std::string>(); });
    log->verbose("below the level");
    const velora::UserInfo secret{{"secret", std::any(true)}};
    log->error(secret, "not for everyone");
    check(kept->lines == std::vector<std::string>{"[[HINT] > pin length 4]"});

    kept->setLogQueue(velora::DispatchQueue::make("consumer"));
    log->warning("through the queue");
    kept->logQueue()->drain();
    check(kept->lines.back() == "[[Warning] > through the queue]");
    check(log->remove("keeping"));
}

void useFileNameFilter() {
    const auto log = velora::make<velora::XCGLogger>("consumer", false);
    const auto kept = keepingDestination(log);
    const auto filter = velora::make<velora::FileNameFilter>(velora::ExcludeFrom{"logging.cpp"});
    check(filter->inverse() || !filter->debugDescription().empty());
    kept->setFilters(velora::Filters{{filter}});
    log->info("from this file");
    check(kept->lines.empty());
    check(log->remove(kept));
}

void useTags() {
    const auto log = velora::make<velora::XCGLogger>("consumer", false);
    const auto kept = keepingDestination(log);
    kept->setFilters(velora::Filters{{velora::make<velora::TagFilter>(velora::IncludeFrom{"net"}),
                                      velora::make<velora::DevFilter>(velora::ExcludeFrom{"ben"})}});
    log->info(velora::Tag("net") | velora::Dev("ann"), "from ann");
    log->info(velora::Tag("net") | velora::Dev("ben"), "from ben");
    check(kept->lines == std::vector<std::string>{"[HINT] > from ann"});
    check(log->remove(kept));
}

void useColouredFile(const std::string& folder) {
    const std::string path = folder + "/session.log";
    const auto log = velora::make<velora::XCGLogger>("consumer", false);
    const auto file = velora::make<velora::FileDestination>(nullptr, path, "file");
    const auto colours = velora::make<velora::ANSIColorLogFormatter>();
    colours->colorize(velora::Level::error, velora::ANSIColor::red);
    file->setFormatters(velora::Formatters{{colours}});
    check(log->add(file));
    log->error("in red");
    std::ifstream stream(path);
    const std::string content{std::istreambuf_iterator<char>(stream), {}};
    check(content.starts_with("\x1b["));
    check(content.find("in red") != std::string::npos);
    check(log->remove(file));
}

void useDestinationsOfTheLibrary() {
    const auto log = velora::make<velora::XCGLogger>("consumer");
    check(log->destinations().size() == 1);
    check(std::dynamic_pointer_cast<velora::ConsoleDestination>(log->destinations().front()) != nullptr);
    check(log->add(velora::make<velora::AppleSystemLogDestination>(nullptr, "system log")));
    check(log->remove("system log"));
    log->info("to the console");
    check(log->remove(log->destinations().front()));

    check(velora::Levels::allCases.size() == 10);
    check(velora::XCGLogger::defaultInstance()->identifier() == velora::Constants::defaultInstanceIdentifier);
    velora::XCGLogger::Default::infoExec([] {});
}

}  // namespace

void useLogging(const std::string& folder) {
    useHostsOwnParts();
    useColouredFile(folder);
    useFileNameFilter();
    useTags();
    useDestinationsOfTheLibrary();
}
