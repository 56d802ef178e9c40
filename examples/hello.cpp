// The first log line of an application.

#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

int main() {
    auto log = velora::make<velora::XCGLogger>("hello");
    log->info("Hello, {}! This is line {}.", "desktop", 1);
}
