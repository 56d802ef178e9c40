// Formatters rewrite finished lines: colours for terminals, texts around lines, Base64. They chain.

#include <memory>

#include <Velora_UserDefaults/XCGLogger/Destinations/ConsoleDestination.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/ANSIColorLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/Base64LogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/PrePostFixLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

int main() {
    using velora::Level;
    const auto log = velora::make<velora::XCGLogger>("formatters", /*includeDefaultDestinations=*/false);
    const auto console = velora::make<velora::ConsoleDestination>(nullptr, "console");
    log->add(console);

    const auto marks = velora::make<velora::PrePostFixLogFormatter>();
    marks->apply(">>> ", " <<<", Level::error);
    const auto colors = velora::make<velora::ANSIColorLogFormatter>();
    colors->colorize(Level::notice, velora::ANSIColor::lightCyan, velora::ANSIColor::default_,
                     {velora::ANSIOption::underline});

    log->notice("plain");
    console->setFormatters({{marks, colors}});
    log->notice("coloured");
    log->error("marked, then coloured");
    console->setFormatters({{velora::make<velora::Base64LogFormatter>()}});
    log->info("only for those who decode it");
    console->setFormatters(velora::Formatters::value_type{});
    log->info("{} formatters again", 0);
}
