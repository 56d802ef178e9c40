// Files that are no store any more: nothing crashes, everything is reported, and nothing is lost.

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

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
    void damageWith(const std::string& bytes) const { writeFile(file, bytes); }
    std::vector<std::string> setAside() const {
        return filesBeginningWith(folder.path(), "UserDefaults.json.damaged-");
    }
    void removeSetAside() const {
        for (const std::string& name : setAside()) {
            std::filesystem::remove(folder / name);
        }
    }
    /// Reads and writes a damaged store and checks that all went as it should.
    void expectSetAside(const std::string& bytes, bool readFirst) const {
        damageWith(bytes);
        DefaultsStore store(file);
        const Reports reports(store);
        store.registerDefault("number", 6);
        if (readFirst) {
            EXPECT_EQ(store.integer("number"), 6);
            EXPECT_FALSE(store.contains("flag"));
            EXPECT_EQ(readFile(file), bytes) << "a reader leaves it where it is";
            EXPECT_THAT(reports.lines(), ElementsAre(HasSubstr("cannot read " + file)));
        }
        EXPECT_TRUE(store.setInteger("new", 1));
        EXPECT_EQ(store.integer("new"), 1);
        EXPECT_EQ(readFile(file), "{\n    \"new\": 1\n}\n");
        ASSERT_EQ(setAside().size(), 1U);
        EXPECT_EQ(readFile(folder / setAside().front()), bytes);
        ASSERT_EQ(reports.lines().size(), readFirst ? 2U : 1U);
        EXPECT_THAT(reports.lines().back(), AllOf(HasSubstr(file + " is damaged"), HasSubstr(setAside().front())));
        removeSetAside();
        std::filesystem::remove(file);
    }

    TemporaryFolder folder;
    std::string file = folder / "UserDefaults.json";
};

TEST_F(DefaultsStoreDamage, SetsAsideAFileTruncatedAtAnyLength) {
    for (std::size_t length = 0; length + 2 < goodText.size(); length += length < 12 ? 1 : 9) {
        expectSetAside(goodText.substr(0, length), length % 5 == 0);
        ASSERT_FALSE(HasFailure()) << "at length " << length;
    }
}

TEST_F(DefaultsStoreDamage, SurvivesFlippedBytes) {
    std::mt19937 random(4711);
    for (int round = 0; round < 60; ++round) {
        std::string bytes = goodText;
        for (int flips = round % 5; flips >= 0; --flips) {
            bytes[random() % bytes.size()] = static_cast<char>(random());
        }
        damageWith(bytes);
        DefaultsStore store(file);
        const Reports reports(store);
        if (round % 8 == 0) {
            store.string("text");
            store.integer("number");
            store.allValues();
        }
        ASSERT_TRUE(store.setInteger("new", 1));
        ASSERT_EQ(DefaultsStore(file).integer("new"), 1);
        ASSERT_EQ(reports.lines().size(), setAside().size() * (round % 8 == 0 ? 2 : 1));
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
        expectSetAside(bytes, bytes.size() == 2);
    }
}

TEST_F(DefaultsStoreDamage, SetsAsideAFileThatIsFarTooLarge) {
    writeFile(file, std::string(4096, '{'));
    std::filesystem::resize_file(file, 100'000'000);
    DefaultsStore store(file);
    const Reports reports(store);
    EXPECT_EQ(store.integer("number"), 0);
    EXPECT_TRUE(store.setInteger("number", 1));
    ASSERT_EQ(setAside().size(), 1U);
    EXPECT_EQ(std::filesystem::file_size(folder / setAside().front()), 100'000'000U);
    EXPECT_THAT(reports.lines(), ElementsAre(HasSubstr("100000000 bytes"), HasSubstr("100000000 bytes")));
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
        store.setInteger("number", round);
    }
    ASSERT_EQ(setAside().size(), 5U);
    std::vector<std::string> contents;
    for (const std::string& name : setAside()) {
        contents.push_back(readFile(folder / name));
    }
    EXPECT_THAT(contents, ::testing::UnorderedElementsAre("damage 0", "damage 1", "damage 2", "damage 3", "damage 4"));
}

TEST_F(DefaultsStoreDamage, LeavesReadersTheLastGoodValues) {
    DefaultsStore store(file);
    const Reports reports(store);
    ASSERT_TRUE(store.importText(R"({"incoming": false, "encryption": true, "pin": 12})"));
    for (const char* damage : {"", "{\"pin\": ", "no store at all"}) {
        writeFile(file, damage);
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
        while (std::chrono::steady_clock::now() < end) {
            ASSERT_EQ(store.integer("pin"), 12);
            ASSERT_TRUE(store.boolean("encryption"));
            ASSERT_FALSE(store.boolean("incoming"));
            ASSERT_TRUE(store.contains("incoming"));
        }
        EXPECT_EQ(readFile(file), damage) << "readers set nothing aside";
    }
    EXPECT_TRUE(setAside().empty());
    writeFile(file, R"({"pin": 13})");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(store.integer("pin"), 13);
    EXPECT_FALSE(store.contains("incoming"));
}

TEST_F(DefaultsStoreDamage, TellsReadersOfItOnce) {
    DefaultsStore store(file);
    const Reports reports(store);
    ASSERT_TRUE(store.setInteger("pin", 12));
    writeFile(file, "damage");
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
    while (std::chrono::steady_clock::now() < end) {
        ASSERT_EQ(store.integer("pin"), 12);
    }
    EXPECT_THAT(reports.lines(),
                ElementsAre(AllOf(HasSubstr("cannot read " + file), HasSubstr("The last values hold"))));
}

TEST_F(DefaultsStoreDamage, DoesNotTellOfAFileThatIsJustBeingWritten) {
    DefaultsStore store(file);
    const Reports reports(store);
    ASSERT_TRUE(store.setInteger("pin", 12));
    for (int edit = 0; edit < 5; ++edit) {
        writeFile(file, "");
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(60);
        while (std::chrono::steady_clock::now() < end) {
            ASSERT_EQ(store.integer("pin"), 12 + edit);
        }
        writeFile(file, "{\"pin\": " + std::to_string(13 + edit) + "}");
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        ASSERT_EQ(store.integer("pin"), 13 + edit);
    }
    EXPECT_TRUE(reports.lines().empty());
}

TEST_F(DefaultsStoreDamage, LetsANewReaderWaitOnceForAFileThatIsBeingWritten) {
    writeFile(file, "{\"pin\": ");
    std::jthread editor([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
        writeFile(file, "{\"pin\": 12}");
    });
    DefaultsStore store(file);
    const Reports reports(store);
    EXPECT_EQ(store.integer("pin"), 12);
    EXPECT_TRUE(reports.lines().empty());
}

TEST_F(DefaultsStoreDamage, DoesNotLetAReaderWaitTwice) {
    writeFile(file, "{\"pin\": ");
    DefaultsStore store(file);
    const Reports reports(store);
    EXPECT_EQ(store.integer("pin"), 0);
    EXPECT_EQ(reports.lines().size(), 1U);
    // 2,000 reads that each wait would take minutes: the test's own time limit ends that.
    for (int read = 0; read < 2000; ++read) {
        store.integer("pin");
    }
    EXPECT_EQ(reports.lines().size(), 1U);
    writeFile(file, "{\"pin\": 12}");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(store.integer("pin"), 12);
}

TEST_F(DefaultsStoreDamage, KeepsAnEditThatLiesEmptyForAWhile) {
    DefaultsStore store(file);
    ASSERT_TRUE(store.setInteger("number", 1));
    const int edited = ::open(file.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(600);
    while (std::chrono::steady_clock::now() < end) {
        ASSERT_EQ(store.integer("number"), 1);
    }
    ASSERT_EQ(::write(edited, "{\"number\": 2}", 13), 13);
    ::close(edited);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(store.integer("number"), 2);
    EXPECT_TRUE(setAside().empty());
}

TEST_F(DefaultsStoreDamage, LetsAWriterWaitForAnotherProgramToFinishTheFile) {
    DefaultsStore store(file);
    const Reports reports(store);
    store.setInteger("number", 1);
    writeFile(file, "{\"number\": ");
    std::jthread editor([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
        writeFile(file, "{\"number\": 2}");
    });
    ASSERT_TRUE(store.setInteger("other", 3));
    EXPECT_EQ(store.integer("number"), 2);
    EXPECT_TRUE(reports.lines().empty());
    EXPECT_TRUE(setAside().empty());
}

TEST_F(DefaultsStoreDamage, DoesNotLetAWriterWaitForEver) {
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
    EXPECT_THAT(reports.lines(), ElementsAre(HasSubstr("the store cannot be read: it is a folder")));
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
