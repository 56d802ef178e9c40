#ifdef WITH_LOGGER
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>
#endif

int main(int argc, char** /*argv*/) {
#ifdef WITH_LOGGER
    const auto log = velora::make<velora::XCGLogger>("app");
#ifdef WITH_LINE
    log->info("message number {} of this run", argc);
#endif
#endif
    return argc - 1;
}
