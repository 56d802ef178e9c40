#include <filesystem>
#include <gtest/gtest.h>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreGeneration.h>

#include "DefaultsStoreTestSupport.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

class DefaultsStoreGenerationTest : public ::testing::Test {
protected:
    TemporaryFolder folder;
    std::string path = folder / "UserDefaults.json.generation";
    DefaultsStoreGeneration generation{path};
};

bool isSettled(const DefaultsStoreGeneration& generation) {
    return DefaultsStoreGeneration::isSettled(generation.value());
}

TEST_F(DefaultsStoreGenerationTest, IsUnsettledUntilItIsMapped) {
    EXPECT_FALSE(isSettled(generation));
    EXPECT_FALSE(generation.verify());
    generation.make();
    EXPECT_TRUE(isSettled(generation));
    EXPECT_TRUE(generation.verify());
}

TEST_F(DefaultsStoreGenerationTest, ShowsEveryChangeToEveryMapping) {
    generation.make();
    DefaultsStoreGeneration other(path);
    ASSERT_TRUE(other.verify());
    const std::uint64_t before = generation.value();
    {
        DefaultsStoreChange change(path);
        ASSERT_TRUE(change.begun());
        EXPECT_FALSE(isSettled(generation));
        EXPECT_FALSE(isSettled(other));
        change.complete();
    }
    EXPECT_EQ(generation.value(), before + 2);
    EXPECT_EQ(other.value(), before + 2);
}

TEST_F(DefaultsStoreGenerationTest, HealsAChangeThatWasNeverCompleted) {
    generation.make();
    const std::uint64_t before = generation.value();
    inChildProcess([this] {
        const DefaultsStoreChange change(path);
        ::_exit(0);
        return 0;
    });
    EXPECT_EQ(generation.value(), before + 1);
    generation.heal();
    EXPECT_EQ(generation.value(), before + 2);
    generation.heal();
    EXPECT_EQ(generation.value(), before + 2);
}

TEST_F(DefaultsStoreGenerationTest, NoticesThatItsFileWasReplaced) {
    generation.make();
    std::filesystem::remove(path);
    EXPECT_FALSE(generation.verify());
    EXPECT_FALSE(isSettled(generation));
    DefaultsStoreGeneration other(path);
    other.make();
    EXPECT_TRUE(generation.verify());
    DefaultsStoreChange(path).complete();
    EXPECT_EQ(generation.value(), other.value());
}

TEST_F(DefaultsStoreGenerationTest, RestoresTheLengthOfItsFile) {
    generation.make();
    std::filesystem::resize_file(path, 3);
    EXPECT_FALSE(generation.verify());
    EXPECT_FALSE(isSettled(generation));
    generation.make();
    EXPECT_TRUE(generation.verify());
    EXPECT_TRUE(isSettled(generation));
}

TEST_F(DefaultsStoreGenerationTest, DoesNotFollowALink) {
    writeFile(folder / "victim", "precious data");
    std::filesystem::create_symlink("victim", path);
    generation.make();
    EXPECT_TRUE(isSettled(generation));
    EXPECT_FALSE(std::filesystem::is_symlink(path));
    EXPECT_EQ(readFile(folder / "victim"), "precious data");
}

TEST_F(DefaultsStoreGenerationTest, NeverChangesWithoutAPath) {
    DefaultsStoreGeneration memory("");
    EXPECT_TRUE(memory.verify());
    EXPECT_EQ(memory.value(), 0U);
}

// What the counter is for, as a reader of the store sees it: the steps of a writer that dies between them.
TEST_F(DefaultsStoreGenerationTest, KeepsReadersFreshWhenAWriterDiesBetweenItsSteps) {
    const std::string file = folder / "UserDefaults.json";
    DefaultsStore store(file);
    store.setInteger("key", 1);
    ASSERT_EQ(store.integer("key"), 1);
    for (int value = 2; value < 50; ++value) {
        inChildProcess([&] {
            const DefaultsStoreChange change(path);
            writeFile(folder / "new", "{\"key\": " + std::to_string(value) + "}");
            std::filesystem::rename(folder / "new", file);
            ::_exit(0);
            return 0;
        });
        ASSERT_EQ(store.integer("key"), value);
    }
}

TEST_F(DefaultsStoreGenerationTest, MayBeMissingTruncatedOrGarbage) {
    const std::string file = folder / "UserDefaults.json";
    DefaultsStore reader(file);
    DefaultsStore writer(file);
    int value = 0;
    const auto writesAndReads = [&] {
        ++value;
        return writer.setInteger("key", value) && DefaultsStore(file).integer("key") == value;
    };
    EXPECT_TRUE(writesAndReads());
    std::filesystem::remove(path);
    EXPECT_TRUE(writesAndReads());
    writeFile(path, "abc");
    EXPECT_TRUE(writesAndReads());
    writeFile(path, "more bytes than a counter has, all of them garbage");
    EXPECT_TRUE(writesAndReads());
    EXPECT_EQ(reader.integer("key"), value);
    EXPECT_TRUE(writesAndReads());
    EXPECT_EQ(reader.integer("key"), value);
}

}  // namespace
}  // namespace velora::test
