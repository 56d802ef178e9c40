#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <utility>

#include <Velora_UserDefaults/Platform/Base64.h>

namespace velora::test {
namespace {

TEST(Base64, IsThatOfRFC4648) {
    const std::pair<const char*, const char*> vectors[] = {{"", ""},
                                                           {"f", "Zg=="},
                                                           {"fo", "Zm8="},
                                                           {"foo", "Zm9v"},
                                                           {"foob", "Zm9vYg=="},
                                                           {"fooba", "Zm9vYmE="},
                                                           {"foobar", "Zm9vYmFy"}};
    for (const auto& [bytes, text] : vectors) {
        EXPECT_EQ(base64Encoded(bytes), text);
        EXPECT_EQ(base64Decoded(text), bytes);
    }
}

TEST(Base64, ComesBackForEveryByte) {
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) {
        bytes += static_cast<char>(byte);
        EXPECT_EQ(base64Decoded(base64Encoded(bytes)), bytes);
    }
}

TEST(Base64, IsNotWhatElseTextMayBe) {
    for (const char* text : {"Z", "Zg", "Zg=", "Z===", "====", "Zm9v\n", "Zm 9v===", "Zm-_", "Zg==Zg=="}) {
        EXPECT_EQ(base64Decoded(text), std::nullopt) << text;
    }
}

}  // namespace
}  // namespace velora::test
