#include <any>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <Velora_UserDefaults/Platform/Bundle.h>

namespace velora {
namespace {

TEST(Bundle, SaysNothingUntilTheHostFillsIt) {
    const Bundle bundle;
    EXPECT_FALSE(bundle.info("CFBundleVersion").has_value());
    EXPECT_EQ(bundle.infoText("CFBundleVersion"), std::nullopt);
    EXPECT_EQ(Bundle::main().infoText("CFBundleShortVersionString"), std::nullopt);
}

TEST(Bundle, KeepsValuesOfAnyType) {
    Bundle bundle;
    bundle.setInfo("number", 5);
    bundle.setInfo("list", std::vector<int>{1, 2});
    EXPECT_EQ(std::any_cast<int>(bundle.info("number")), 5);
    EXPECT_EQ(std::any_cast<std::vector<int>>(bundle.info("list")), (std::vector<int>{1, 2}));
    bundle.setInfo("number", 6);
    EXPECT_EQ(std::any_cast<int>(bundle.info("number")), 6);
}

TEST(Bundle, GivesTextOnlyForText) {
    Bundle bundle;
    bundle.setInfo("number", 5);
    EXPECT_EQ(bundle.infoText("number"), std::nullopt);
    EXPECT_EQ(bundle.infoText("missing"), std::nullopt);
    bundle.setInfo("empty", std::string());
    EXPECT_EQ(bundle.infoText("empty"), "");
    char array[] = "array";
    bundle.setInfo("string", std::string("string"));
    bundle.setInfo("view", std::string_view("view and more").substr(0, 4));
    bundle.setInfo("literal", "literal");
    bundle.setInfo("array", static_cast<char*>(array));
    array[0] = 'X';
    EXPECT_EQ(bundle.infoText("string"), "string");
    EXPECT_EQ(bundle.infoText("view"), "view");
    EXPECT_EQ(bundle.infoText("literal"), "literal");
    EXPECT_EQ(bundle.infoText("array"), "array");
    bundle.setInfo("literal", static_cast<const char*>(nullptr));
    EXPECT_EQ(bundle.infoText("literal"), std::nullopt);
}

TEST(Bundle, ForgetsAValueThatIsTakenAway) {
    Bundle bundle;
    bundle.setInfo("key", "text");
    bundle.setInfo("key", std::any());
    EXPECT_FALSE(bundle.info("key").has_value());
    EXPECT_EQ(bundle.infoText("key"), std::nullopt);
}

TEST(Bundle, MayBeFilledAndReadBySeveralThreads) {
    Bundle bundle;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&bundle, i] {
            for (int n = 0; n < 500; ++n) {
                const std::string text(static_cast<std::size_t>(n % 50), static_cast<char>('a' + i));
                bundle.setInfo("shared", text);
                bundle.setInfo("own" + std::to_string(i), text);
                const auto seen = bundle.infoText("shared");
                ASSERT_TRUE(seen);
                EXPECT_EQ(seen->find_first_not_of(seen->empty() ? 'a' : seen->front()), std::string::npos);
                EXPECT_EQ(bundle.infoText("own" + std::to_string(i)), text);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// A value that asks its bundle as it goes.
struct Asking {
    explicit Asking(Bundle& bundle) : bundle(&bundle) {}
    Asking(const Asking&) = default;
    Asking& operator=(const Asking&) = default;
    ~Asking() { bundle->setInfo("asked", std::string("yes")); }
    Bundle* bundle;
};

TEST(Bundle, MayBeUsedByTheValuesItForgets) {
    Bundle bundle;
    bundle.setInfo("key", Asking(bundle));
    bundle.setInfo("asked", std::any());
    bundle.setInfo("key", std::any());
    EXPECT_EQ(bundle.infoText("asked"), "yes");
}

}  // namespace
}  // namespace velora
