// Lines marked with what they are about and whom they are for, and destinations that choose among them.

#include <memory>

#include <Velora_UserDefaults/XCGLogger/Destinations/ConsoleDestination.h>
#include <Velora_UserDefaults/XCGLogger/Filters/DevFilter.h>
#include <Velora_UserDefaults/XCGLogger/Filters/TagFilter.h>
#include <Velora_UserDefaults/XCGLogger/UserInfoTagging.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

using velora::Dev;
using velora::Tag;

int main() {
    const auto log = velora::make<velora::XCGLogger>("tags", /*includeDefaultDestinations=*/false);

    const auto quiet = velora::make<velora::ConsoleDestination>(nullptr, "quiet");
    quiet->setFilters({{velora::make<velora::TagFilter>(velora::ExcludeFrom{"input", "frames"})}});
    quiet->setLevelDescriptions({{velora::Level::info, "without input and frames"}});
    log->add(quiet);

    const auto forAnn = velora::make<velora::ConsoleDestination>(nullptr, "ann");
    forAnn->setFilters({{velora::make<velora::DevFilter>(velora::IncludeFrom{"ann"})}});
    forAnn->setLevelDescriptions({{velora::Level::info, "for ann"}});
    log->add(forAnn);

    log->info(Tag("net"), "connected");
    log->info(Tag("input"), "mouse at {}, {}", 3, 4);
    log->info(Tag("frames") | Dev("ann"), "a frame took {} ms", 41);
    log->info(Tag::names("net", "audio") | Dev("bob"), "resampling");
}
