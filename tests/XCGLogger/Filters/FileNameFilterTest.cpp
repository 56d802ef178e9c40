#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/Filters/FileNameFilter.h>

namespace velora::test {
namespace {

using ::testing::ElementsAre;

// Only `make` makes a filter, and only of a list that says what it is for.
static_assert(!std::is_constructible_v<FileNameFilter, IncludeFrom>);
static_assert(!std::is_constructible_v<FileNameFilter, ExcludeFrom, bool>);
static_assert(!std::is_constructible_v<FileNameFilter, Making, std::vector<std::string>>);
static_assert(std::is_constructible_v<FileNameFilter, Making, IncludeFrom>);

bool excludes(FilterProtocol& filter, const char* fileName) {
    LogDetails details;
    details.fileName = fileName;
    details.message = "the message";
    std::string line = "the line";
    const bool answer = filter.shouldExclude(details, line);
    EXPECT_EQ(line, "the line");
    EXPECT_EQ(details.message, "the message");
    EXPECT_EQ(details.fileName, fileName);
    return answer;
}

TEST(FileNameFilter, DropsTheFilesOfABlockList) {
    const auto filter = make<FileNameFilter>(ExcludeFrom{"a.cpp", "b.cpp"});
    EXPECT_FALSE(filter->inverse());
    EXPECT_TRUE(excludes(*filter, "/src/a.cpp"));
    EXPECT_TRUE(excludes(*filter, "b.cpp"));
    EXPECT_FALSE(excludes(*filter, "/src/c.cpp"));
}

TEST(FileNameFilter, KeepsOnlyTheFilesOfAnAllowList) {
    const auto filter = make<FileNameFilter>(IncludeFrom{"a.cpp", "b.cpp"});
    EXPECT_TRUE(filter->inverse());
    EXPECT_FALSE(excludes(*filter, "/src/a.cpp"));
    EXPECT_FALSE(excludes(*filter, "b.cpp"));
    EXPECT_TRUE(excludes(*filter, "/src/c.cpp"));
}

TEST(FileNameFilter, DropsEverythingByAnEmptyAllowListAndNothingByAnEmptyBlockList) {
    for (const char* const fileName : {"/src/a.cpp", ""}) {
        EXPECT_TRUE(excludes(*make<FileNameFilter>(IncludeFrom{}), fileName));
        EXPECT_FALSE(excludes(*make<FileNameFilter>(ExcludeFrom{}), fileName));
    }
}

TEST(FileNameFilter, ComparesLastPathComponentsByDefault) {
    const auto filter = make<FileNameFilter>(ExcludeFrom{"/x/y/Widget.src"});
    EXPECT_EQ(filter->debugDescription(), "FileNameFilter: Excluding matches for: Widget.src");
    EXPECT_TRUE(excludes(*filter, "/other/dir/Widget.src"));
    EXPECT_TRUE(excludes(*filter, "Widget.src"));
    EXPECT_FALSE(excludes(*filter, "/x/y/Gadget.src"));
}

TEST(FileNameFilter, ComparesWholePathsWhenMadeSo) {
    const auto filter = make<FileNameFilter>(ExcludeFrom{"Widget.src", "/x/y/Gadget.src"}, false);
    EXPECT_EQ(filter->debugDescription(), "FileNameFilter: Excluding matches for: /x/y/Gadget.src, Widget.src");
    EXPECT_FALSE(excludes(*filter, "/x/Widget.src"));
    EXPECT_TRUE(excludes(*filter, "Widget.src"));
    EXPECT_TRUE(excludes(*filter, "/x/y/Gadget.src"));
    EXPECT_FALSE(excludes(*filter, "Gadget.src"));
    const auto allowing = make<FileNameFilter>(IncludeFrom{"/x/Widget.src"}, false);
    EXPECT_FALSE(excludes(*allowing, "/x/Widget.src"));
    EXPECT_TRUE(excludes(*allowing, "Widget.src"));
}

TEST(FileNameFilter, IgnoresTrailingSlashesAndKeepsALoneOne) {
    const auto filter = make<FileNameFilter>(ExcludeFrom{"/x/y/", "/"});
    EXPECT_EQ(filter->debugDescription(), "FileNameFilter: Excluding matches for: /, y");
    EXPECT_TRUE(excludes(*filter, "/"));
    EXPECT_TRUE(excludes(*filter, "z/y"));
}

TEST(FileNameFilter, TellsWhetherAnAddedNameIsNew) {
    const auto filter = make<FileNameFilter>(ExcludeFrom{"a.cpp"});
    EXPECT_TRUE(filter->addFileName("b.cpp"));
    EXPECT_FALSE(filter->addFileName("b.cpp"));
    EXPECT_FALSE(filter->addFileName("/some/where/a.cpp"));
    EXPECT_EQ(filter->debugDescription(), "FileNameFilter: Excluding matches for: a.cpp, b.cpp");
}

TEST(FileNameFilter, ComparesNamesByteByByte) {
    const auto filter = make<FileNameFilter>(ExcludeFrom{"Widget.src", "*.cpp", "Gad", " Pad.src"});
    EXPECT_TRUE(excludes(*filter, "Widget.src"));
    for (const char* const other : {"widget.src", "a.cpp", "Gadget.src", "Pad.src"}) {
        EXPECT_FALSE(excludes(*filter, other)) << other;
    }
}

TEST(FileNameFilter, MatchesAnEmptyNameWithAnEmptyOneOnly) {
    const auto without = make<FileNameFilter>(ExcludeFrom{"a.cpp"});
    EXPECT_FALSE(excludes(*without, ""));
    const auto with = make<FileNameFilter>(ExcludeFrom{""});
    EXPECT_TRUE(excludes(*with, ""));
    EXPECT_FALSE(excludes(*with, "a.cpp"));
}

TEST(FileNameFilter, TurnsFromBlockToAllowListAndBack) {
    const auto filter = make<FileNameFilter>(ExcludeFrom{"a.cpp"});
    filter->setInverse(true);
    EXPECT_FALSE(excludes(*filter, "a.cpp"));
    EXPECT_TRUE(excludes(*filter, "b.cpp"));
    EXPECT_EQ(filter->debugDescription(), "FileNameFilter: Including only matches for: a.cpp");
    filter->setInverse(false);
    EXPECT_TRUE(excludes(*filter, "a.cpp"));
    EXPECT_FALSE(excludes(*filter, "b.cpp"));
}

TEST(FileNameFilter, DropsEverythingOnceAnAllowListIsCleared) {
    const auto filter = make<FileNameFilter>(IncludeFrom{"/x/a.cpp"});
    EXPECT_FALSE(excludes(*filter, "a.cpp"));
    filter->clear();
    EXPECT_TRUE(excludes(*filter, "a.cpp"));
    EXPECT_TRUE(filter->inverse());
    filter->addFileName("/y/a.cpp");
    EXPECT_FALSE(excludes(*filter, "/z/a.cpp"));
}

class RecordingFilter : public FileNameFilter {
public:
    using FileNameFilter::FileNameFilter;

    bool addFileName(std::string fileName) override {
        added.push_back(fileName);
        return FileNameFilter::addFileName("renamed-" + fileName);
    }

    std::vector<std::string> added;
};

TEST(FileNameFilter, AddsTheNamesItIsMadeWithByAnOverride) {
    const auto filter = make<RecordingFilter>(IncludeFrom{"b.cpp", "a.cpp", "b.cpp"});
    filter->addFileNames({"z.cpp", "y.cpp"});
    EXPECT_THAT(filter->added, ElementsAre("b.cpp", "a.cpp", "b.cpp", "z.cpp", "y.cpp"));
    EXPECT_FALSE(excludes(*filter, "renamed-a.cpp"));
    EXPECT_TRUE(excludes(*filter, "a.cpp"));
}

class AddingManyFilter : public FileNameFilter {
public:
    using FileNameFilter::FileNameFilter;
    void addFileNames(const FilterItems& fileNames) override {
        FileNameFilter::addFileNames(fileNames);
        addFileName("always.cpp");
    }
};

TEST(FileNameFilter, IsMadeByAnOverrideThatAddsSeveralNames) {
    const auto filter = make<AddingManyFilter>(ExcludeFrom{"a.cpp"});
    EXPECT_EQ(filter->debugDescription(), "AddingManyFilter: Excluding matches for: a.cpp, always.cpp");
}

class AlwaysAllowList : public FileNameFilter {
public:
    using FileNameFilter::FileNameFilter;
    bool inverse() const override { return true; }
};

TEST(FileNameFilter, ReadsWhetherItIsAnAllowListThroughAnOverride) {
    const auto filter = make<AlwaysAllowList>(ExcludeFrom{"a.cpp"});
    EXPECT_FALSE(excludes(*filter, "a.cpp"));
    EXPECT_TRUE(excludes(*filter, "b.cpp"));
    EXPECT_EQ(filter->debugDescription(), "AlwaysAllowList: Including only matches for: a.cpp");
}

}  // namespace
}  // namespace velora::test
