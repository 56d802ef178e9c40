#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <support/TemporaryFolder.h>
#include <vector>

#include <Velora_UserDefaults/Platform/ExtendedAttributes.h>
#include <Velora_UserDefaults/XCGLogger/Constants.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/ArchivedLogFile.h>

namespace velora::test {
namespace {

using testing::ElementsAre;

class ArchivedLogFiles : public testing::Test {
protected:
    void makeFile(const std::string& name, const std::string& identifier, const std::string& timestamp) const {
        writeFile(folder / name, name);
        ASSERT_TRUE(mark(name, Constants::extendedAttributeArchivedLogIdentifierKey, identifier));
        ASSERT_TRUE(mark(name, Constants::extendedAttributeArchivedLogTimestampKey, timestamp));
    }
    bool mark(const std::string& name, std::string_view key, const std::string& value) const {
        return static_cast<bool>(writeExtendedAttribute(folder / name, key, value));
    }
    std::vector<std::string> paths() const {
        std::vector<std::string> paths;
        const auto archives = archivedLogFiles(folder.path().string());
        for (const ArchivedLogFile& archive : *archives) {
            paths.push_back(archive.path);
        }
        return paths;
    }

    TemporaryFolder folder;
};

TEST_F(ArchivedLogFiles, AreThoseOfEveryDestinationNewestFirst) {
    makeFile("b.log", "one", "1700000000.5");
    makeFile("a.log", "", "1700000001.0");
    makeFile("c.log", "two", "1700000000.25");
    const auto archives = archivedLogFiles(folder.path().string());
    ASSERT_TRUE(archives);
    EXPECT_THAT(paths(), ElementsAre(folder / "a.log", folder / "b.log", folder / "c.log"));
    EXPECT_EQ(archives->at(0).identifier, "");
    EXPECT_EQ(archives->at(2).identifier, "two");
    EXPECT_EQ(archives->at(2).timestamp, "1700000000.25");
}

TEST_F(ArchivedLogFiles, AreOnlyThoseWithBothMarks) {
    makeFile("archive.log", "one", "1");
    makeFile(".hidden.log", "one", "2");
    makeFile("broken.log", "one", "\xff");
    writeFile(folder / "live.log", "");
    writeFile(folder / "half.log", "");
    ASSERT_TRUE(mark("half.log", Constants::extendedAttributeArchivedLogIdentifierKey, "one"));
    writeFile(folder / "other-half.log", "");
    ASSERT_TRUE(mark("other-half.log", Constants::extendedAttributeArchivedLogTimestampKey, "1"));
    EXPECT_THAT(paths(), ElementsAre(folder / "archive.log"));
}

TEST_F(ArchivedLogFiles, CannotBeToldOfAFolderThatIsNone) {
    const auto archives = archivedLogFiles(folder / "missing");
    ASSERT_FALSE(archives);
    EXPECT_EQ(archives.error().code, ENOENT);
}

}  // namespace
}  // namespace velora::test
