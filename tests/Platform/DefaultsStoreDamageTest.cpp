// Files that are no store any more: nothing crashes, everything is reported, and nothing is lost.

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <sys/stat.h>
#include <thread>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>

#include "DefaultsStoreTestSupport.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

const std::string goodText =
    "{\n    \"text\": \"Gr\xC3\xBC\xC3\x9F\x65\",\n    \"number\": 6,\n    \"flag\": true\n}\n";

class DefaultsStoreDamage : public ::testing::Test {
protected:
    void damageWith(const std::string& bytes) const {
        writeFile(file, bytes);
        makeOld(file);
    }
    std::vector<std::string> setAside() const {
        return filesBeginningWith(folder.path(), "UserDefaults.json.damaged-");
    }
    void removeSetAside() const {
        for (const std::string& name : setAside()) {
            std::filesystem::remove(folder / name);
        }
    }
    /// Reads and writes a damaged store and checks that all went as it should.
    void expectSetAside(const std::string& bytes, bool writeFirst) const {
        damageWith(bytes);
        DefaultsStore store(file);
        const Reports reports(store);
        store.registerDefault("number", 6);
        if (!writeFirst) {
            EXPECT_EQ(store.integer("number"), 6);
            EXPECT_FALSE(store.contains("flag"));
            EXPECT_FALSE(std::filesystem::exists(file));
        }
        EXPECT_TRUE(store.setInteger("new", 1));
        EXPECT_EQ(readFile(file), "{\n    \"new\": 1\n}\n");
        ASSERT_EQ(setAside().size(), 1U);
        EXPECT_EQ(readFile(folder / setAside().front()), bytes);
        EXPECT_THAT(reports.lines(),
                    ElementsAre(AllOf(HasSubstr(file + " is damaged"), HasSubstr(setAside().front()))));
        removeSetAside();
        std::filesystem::remove(file);
    }

    TemporaryFolder folder;
    std::string file = folder / "UserDefaults.json";
};

TEST_F(DefaultsStoreDamage, SetsAsideAFileTruncatedAtAnyLength) {
    for (std::size_t length = 0; length + 2 < goodText.size(); ++length) {
        expectSetAside(goodText.substr(0, length), length % 2 == 0);
        ASSERT_FALSE(HasFailure()) << "at length " << length;
    }
}

TEST_F(DefaultsStoreDamage, SurvivesFlippedBytes) {
    std::mt19937 random(4711);
    for (int round = 0; round < 200; ++round) {
        std::string bytes = goodText;
        for (int flips = round % 5; flips >= 0; --flips) {
            bytes[random() % bytes.size()] = static_cast<char>(random());
        }
        damageWith(bytes);
        DefaultsStore store(file);
        const Reports reports(store);
        store.string("text");
        store.integer("number");
        store.allValues();
        ASSERT_TRUE(store.setInteger("new", 1));
        ASSERT_EQ(DefaultsStore(file).integer("new"), 1);
        ASSERT_EQ(reports.lines().size(), setAside().size());
        if (!setAside().empty()) {
            ASSERT_EQ(readFile(folder / setAside().front()), bytes);
        }
        removeSetAside();
    }
}

TEST_F(DefaultsStoreDamage, SetsAsideWhatIsNoStore) {
    for (const std::string& bytes : {std::string("[1, 2]"), std::string("42"), std::string("\0\0\0\0", 4),
                                     std::string("{\"a\": \"\xFF\xFE\"}"), std::string("{\"a\": \"b\0c\"}", 12),
                                     "{\"a\": " + std::string(100'000, '[') + std::string(100'000, ']') + "}",
                                     goodText + goodText, goodText + '\0'}) {
        expectSetAside(bytes, false);
        expectSetAside(bytes, true);
    }
}

TEST_F(DefaultsStoreDamage, SetsAsideAFileThatIsFarTooLarge) {
    writeFile(file, std::string(4096, '{'));
    std::filesystem::resize_file(file, 100'000'000);
    makeOld(file);
    DefaultsStore store(file);
    const Reports reports(store);
    EXPECT_EQ(store.integer("number"), 0);
    ASSERT_EQ(setAside().size(), 1U);
    EXPECT_EQ(std::filesystem::file_size(folder / setAside().front()), 100'000'000U);
    EXPECT_THAT(reports.lines(), ElementsAre(HasSubstr("100000000 bytes")));
}

TEST_F(DefaultsStoreDamage, RefusesToGrowAFileBeyondWhatItWouldRead) {
    DefaultsStore store(file);
    const Reports reports(store);
    ASSERT_TRUE(store.setInteger("key", 1));
    const std::string large = R"({"large": ")" + std::string(16U << 20U, 'x') + "\"}";
    EXPECT_FALSE(store.importText(large));
    EXPECT_THAT(reports.lines(), ElementsAre(HasSubstr("more than a store may have")));
    EXPECT_EQ(readFile(file), "{\n    \"key\": 1\n}\n");
}

TEST_F(DefaultsStoreDamage, NeverOverwritesAnEarlierDamagedFile) {
    for (int round = 0; round < 5; ++round) {
        damageWith("damage " + std::to_string(round));
        DefaultsStore store(file);
        const Reports reports(store);
        store.integer("number");
    }
    ASSERT_EQ(setAside().size(), 5U);
    std::vector<std::string> contents;
    for (const std::string& name : setAside()) {
        contents.push_back(readFile(folder / name));
    }
    EXPECT_THAT(contents, ::testing::UnorderedElementsAre("damage 0", "damage 1", "damage 2", "damage 3", "damage 4"));
}

TEST_F(DefaultsStoreDamage, WaitsForAnotherProgramToFinishTheFile) {
    DefaultsStore store(file);
    const Reports reports(store);
    store.setInteger("number", 1);
    ASSERT_EQ(store.integer("number"), 1);
    writeFile(file, "{\"number\": ");
    for (int read = 0; read < 10; ++read) {
        EXPECT_EQ(store.integer("number"), 1);
        EXPECT_EQ(DefaultsStore(file).integer("number"), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    std::jthread editor([this] { writeFile(file, "{\"number\": 2}"); });
    ASSERT_TRUE(store.setInteger("other", 3));
    EXPECT_EQ(store.integer("number"), 2);
    EXPECT_TRUE(reports.lines().empty());
    EXPECT_TRUE(setAside().empty());
}

TEST_F(DefaultsStoreDamage, DoesNotWaitForEver) {
    DefaultsStore store(file);
    const Reports reports(store);
    writeFile(file, "{\"number\": ");
    ASSERT_TRUE(store.setInteger("other", 3));
    EXPECT_EQ(setAside().size(), 1U);
    EXPECT_EQ(reports.lines().size(), 1U);
}

TEST_F(DefaultsStoreDamage, LeavesAFolderInItsPlaceAlone) {
    std::filesystem::create_directory(file);
    DefaultsStore store(file);
    const Reports reports(store);
    store.registerDefault("number", 6);
    for (int read = 0; read < 3; ++read) {
        EXPECT_EQ(store.integer("number"), 6);
    }
    EXPECT_THAT(reports.lines(), ElementsAre(HasSubstr("it is a folder")));
    EXPECT_FALSE(store.setInteger("number", 7));
    EXPECT_EQ(store.integer("number"), 6);
    EXPECT_TRUE(std::filesystem::is_directory(file));
    EXPECT_THAT(reports.lines(), ElementsAre(HasSubstr("it is a folder"), HasSubstr("cannot store a value")));
}

TEST_F(DefaultsStoreDamage, ExportsNothingThatItCannotRead) {
    std::filesystem::create_directory(file);
    writeFile(folder / "backup.json", goodText);
    DefaultsStore store(file);
    const Reports reports(store);
    EXPECT_FALSE(store.exportTo(folder / "backup.json"));
    EXPECT_EQ(readFile(folder / "backup.json"), goodText);
    EXPECT_THAT(reports.lines(), ElementsAre(HasSubstr("it is a folder"), HasSubstr("the store cannot be read")));
}

TEST_F(DefaultsStoreDamage, IsNotHeldUpByANamedPipeInItsPlace) {
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    DefaultsStore store(file);
    const Reports reports(store);
    EXPECT_EQ(store.integer("number"), 0);
    EXPECT_FALSE(store.setInteger("number", 7));
    EXPECT_EQ(reports.lines().size(), 2U);
}

TEST_F(DefaultsStoreDamage, RecoversWhenTheFileIsRepairedByHand) {
    std::filesystem::create_directory(file);
    DefaultsStore store(file);
    const Reports reports(store);
    EXPECT_EQ(store.integer("number"), 0);
    std::filesystem::remove(file);
    writeFile(file, goodText);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(store.integer("number"), 6);
    EXPECT_TRUE(store.setInteger("number", 7));
}

}  // namespace
}  // namespace velora::test
