#include <string_view>
#include <utility>

#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/Platform/TypeName.h>
#include <Velora_UserDefaults/XCGLogger/Filters/FileNameFilter.h>

namespace velora {

FileNameFilter::FileNameFilter(Making key, FilterItems fileNames, bool inverse, bool excludePathWhenMatching)
    : MadeInTwoSteps(key),
      inverse_(inverse),
      excludePath_(excludePathWhenMatching),
      fileNamesOfMaking_(std::move(fileNames)) {}

FileNameFilter::FileNameFilter(Making key, IncludeFrom fileNames, bool excludePathWhenMatching)
    : FileNameFilter(key, FilterItems(std::move(fileNames)), true, excludePathWhenMatching) {}

FileNameFilter::FileNameFilter(Making key, ExcludeFrom fileNames, bool excludePathWhenMatching)
    : FileNameFilter(key, FilterItems(std::move(fileNames)), false, excludePathWhenMatching) {}

FileNameFilter::~FileNameFilter() = default;

void FileNameFilter::finishMaking() {
    MadeInTwoSteps::finishMaking();
    addFileNames(std::exchange(fileNamesOfMaking_, {}));
}

bool FileNameFilter::inverse() const {
    return inverse_;
}

void FileNameFilter::setInverse(bool inverse) {
    inverse_ = inverse;
}

bool FileNameFilter::addFileName(std::string fileName) {
    if (excludePath_) {
        return fileNamesToMatch_.insert(std::string(lastPathComponent(fileName)));
    }
    return fileNamesToMatch_.insert(std::move(fileName));
}

void FileNameFilter::addFileNames(const FilterItems& fileNames) {
    for (const std::string& fileName : fileNames) {
        addFileName(fileName);
    }
}

void FileNameFilter::clear() {
    fileNamesToMatch_.clear();
}

bool FileNameFilter::shouldExclude(LogDetails& logDetails, std::string& /*message*/) {
    std::string_view fileName = logDetails.fileName;
    if (excludePath_) {
        fileName = lastPathComponent(fileName);
    }
    return fileNamesToMatch_.contains(fileName) != inverse();
}

std::string FileNameFilter::debugDescription() const {
    return dynamicTypeName(*this) + ": " + fileNamesToMatch_.description(inverse());
}

}  // namespace velora
