#pragma once

// All of the library. A file that only logs includes <Velora_UserDefaults/XCGLogger/XCGLogger.h> instead.

#include <Velora_UserDefaults/Platform/Bundle.h>
#include <Velora_UserDefaults/Platform/Date.h>
#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/DefaultsStore.h>
#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/ThreadInfo.h>
#include <Velora_UserDefaults/Platform/URL.h>
#include <Velora_UserDefaults/UserDefaults/UserDefaultsManager.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AppleSystemLogDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/ArchivedLogFile.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/ConsoleDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/TestDestination.h>
#include <Velora_UserDefaults/XCGLogger/Filters/DevFilter.h>
#include <Velora_UserDefaults/XCGLogger/Filters/FileNameFilter.h>
#include <Velora_UserDefaults/XCGLogger/Filters/TagFilter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/ANSIColorLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/Base64LogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/EscapingLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/JSONLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/PrePostFixLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/XcodeColorsLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/UserInfoTagging.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>
