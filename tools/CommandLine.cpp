#include "CommandLine.h"

#include <iostream>

#include "Complaint.h"

namespace velora {

void setUp(CLI::App& app, const std::string& version, const std::string& footer) {
    app.set_version_flag("--version", version);
    app.require_subcommand(1);
    app.footer(footer);
}

std::optional<int> statusOfParsing(CLI::App& app, const std::vector<std::string>& arguments,
                                   std::string (*reworded)(const std::string& message)) {
    try {
        // The parser takes them from the end.
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    } catch (const CLI::Success& help) {
        return app.exit(help, std::cout, std::cerr);
    } catch (const CLI::ParseError& error) {
        complain(reworded(error.what()));
        std::cerr << "Run with --help for more information.\n";
        return badUsage;
    }
    return std::nullopt;
}

}  // namespace velora
