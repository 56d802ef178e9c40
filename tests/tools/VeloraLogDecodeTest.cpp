// Lines that velora-log decodes.

#include <gtest/gtest.h>
#include <string>
#include <support/RunningProgram.h>
#include <support/TemporaryFolder.h>
#include <tools/VeloraLogTestSupport.h>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/Base64LogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora::test {
namespace {

TEST_F(VeloraLog, DecodesLinesThatABase64FormatterWrote) {
    const std::string plain = folder / "plain.log";
    for (const std::string& each : {path, plain}) {
        writeLog(
            each,
            [&](FileDestination& file) {
                file.setShowDate(false);
                if (each == path) {
                    file.setFormatters({{make<Base64LogFormatter>()}});
                }
            },
            [&](const XCGLogger& log) {
                log.info("plain");
                log.error("München\nand more");
            });
    }
    const auto ownLines = [](const std::string& text) {
        std::vector<std::string> lines = linesOf(text);
        lines.erase(lines.begin(), lines.begin() + 3);
        return lines;
    };
    EXPECT_NE(readFile(path), readFile(plain));
    EXPECT_EQ(run({"decode", path}).status, 0);
    EXPECT_EQ(ownLines(run({"decode", path}).output), ownLines(readFile(plain)));
    EXPECT_EQ(run({"decode"}, path), run({"decode", path})) << "from the standard input, too";
    EXPECT_EQ(run({"decode", plain}), (Result{1, readFile(plain), ""})) << "other lines stay";
    writeFile(path, "aGk\nQQ==\n=AAA\nA===\n/w==\n\nQUI=\n");
    EXPECT_EQ(run({"decode", path}).output, "aGk\nA\n=AAA\nA===\n/w==\n\nAB\n") << "0xFF is no text";
}

}  // namespace
}  // namespace velora::test
