#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

/// What the command lines of the tools have in common.
namespace velora {

/// The exit status of a tool whose command line is wrong.
inline constexpr int badUsage = 2;

/// Has `app` print `version` for --version and `footer` below its help, and need a command.
void setUp(CLI::App& app, const std::string& version, const std::string& footer);

/// Has `app` parse `arguments`, which are without the program's name. Returns the exit status if that was all: help
/// or the version is printed then, or what is wrong is told, in words that `reworded` may change.
std::optional<int> statusOfParsing(
    CLI::App& app, const std::vector<std::string>& arguments,
    std::string (*reworded)(const std::string& message) = [](const std::string& message) { return message; });

}  // namespace velora
