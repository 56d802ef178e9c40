// Preferences announced through a logger, and the destinations and formatters that stand on others.

#include <cstdlib>
#include <memory>
#include <string>

#include <Velora_UserDefaults/UserDefaults/UserDefaultsManager.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/ArchivedLogFile.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/TestDestination.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/Base64LogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/EscapingLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/JSONLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/PrePostFixLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/XcodeColorsLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

#include "Check.h"

namespace {

void usePreferences(const std::string& folder) {
    ::setenv("VELORA_DEFAULTS_FILE", (folder + "/UserDefaults.json").c_str(), 1);
    const auto log = velora::make<velora::XCGLogger>("preferences", false);
    const auto expected = velora::make<velora::TestDestination>(nullptr, "expected");
    expected->setShowDate(false);
    expected->setShowFileName(false);
    expected->setShowLineNumber(false);
    check(log->add(expected));
    expected->addExpectedLogMessage("[Info] pinCodeLength > Security Preferences. New pin code length: 8");
    velora::logger = log;
    auto& preferences = velora::UserDefaultsManager::shared();
    preferences.setPinCodeLength(8);
    velora::logger = nullptr;
    check(preferences.pinCodeLength() == 8);
    check(expected->remainingNumberOfExpectedLogMessages() == 0);
    check(expected->numberOfUnexpectedLogMessages() == 0);
    check(log->remove(expected));
}

void useFormatters() {
    velora::LogDetails record;
    record.level = velora::Level::info;
    std::string line = "hi";
    check(velora::make<velora::Base64LogFormatter>()->format(record, line) == "aGk=");
    std::string twoLines = "one\ntwo";
    check(velora::make<velora::EscapingLogFormatter>()->format(record, twoLines) == "one\\ntwo");
    const auto marks = velora::make<velora::PrePostFixLogFormatter>();
    marks->apply("<", ">", velora::Level::info);
    check(marks->format(record, line) == "<aGk=>");
    check(velora::make<velora::XcodeColorsLogFormatter>()->format(record, line).find("<aGk=>") != std::string::npos);
    record.message = "hi";
    const auto json = velora::make<velora::JSONLogFormatter>();
    check(json->format(record, line) == R"({"date":"1970-01-01T00:00:00.000000Z","level":"Info","message":"hi"})");
}

}  // namespace

void useRotationAndPreferences(const std::string& folder) {
    usePreferences(folder);
    useFormatters();
    const auto log = velora::make<velora::XCGLogger>("rotating", false);
    const auto file = velora::make<velora::AutoRotatingFileDestination>(
        nullptr, folder + "/rotating.log", "rotating", velora::AutoRotatingFileDestination::Options{.maxFileSize = 0});
    check(log->add(file));
    file->rotateFile();
    check(file->isOpen());
    const auto archives = velora::archivedLogFiles(folder);
    check(archives && archives->size() == file->archivedFileURLs().size());
    check(log->remove(file));
}
