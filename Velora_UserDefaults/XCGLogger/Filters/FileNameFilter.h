#pragma once

#include <string>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/Platform/Making.h>
#include <Velora_UserDefaults/XCGLogger/Filters/FilterItemSet.h>
#include <Velora_UserDefaults/XCGLogger/Filters/FilterItems.h>
#include <Velora_UserDefaults/XCGLogger/Filters/FilterProtocol.h>
#include <Velora_UserDefaults/XCGLogger/LogDetails.h>

namespace velora {

/// Drops or keeps lines by the source file that logged them.
///
///     destination->setFilters({{make<FileNameFilter>(ExcludeFrom{"Heartbeat.cpp"})}});
///
/// Names are compared whole and byte by byte: upper and lower case differ, there are no wildcards.
/// Open for subclassing; every operation can be overridden. Not synchronised: asking it is safe from
/// several threads at once, changing it while another thread asks is not.
class VELORA_EXPORT FileNameFilter : public FilterProtocol, public MadeInTwoSteps {
public:
    /// `make<FileNameFilter>(IncludeFrom{…})`: only the listed files' lines pass; with an empty list,
    /// none. Unless `excludePathWhenMatching` is false, a listed name and the name of a record's file
    /// are both reduced to what follows their last slash before they are compared.
    FileNameFilter(Making key, IncludeFrom fileNames, bool excludePathWhenMatching = true);
    /// `make<FileNameFilter>(ExcludeFrom{…})`: the listed files' lines are dropped.
    FileNameFilter(Making key, ExcludeFrom fileNames, bool excludePathWhenMatching = true);
    ~FileNameFilter() override;

    /// Whether the list is an allow list: a line that does not match is dropped.
    virtual bool inverse() const;
    virtual void setInverse(bool inverse);

    /// Adds one name, reduced to its last path component if the filter was made so. Returns whether it
    /// was not listed yet.
    virtual bool addFileName(std::string fileName);
    /// Adds each name by `addFileName`, in order.
    virtual void addFileNames(const FilterItems& fileNames);
    /// Removes every name. An allow list then drops every line, a block list none.
    virtual void clear();

    /// Whether `logDetails.fileName` is listed, or, for an allow list, is not. Changes neither argument.
    bool shouldExclude(LogDetails& logDetails, std::string& message) override;

    /// "FileNameFilter: Excluding matches for: a.cpp, b.cpp"; the name is that of the object's own
    /// class. The names are sorted; from six on each has a line of its own.
    std::string debugDescription() const override;

protected:
    /// Adds the names that the filter is made with.
    void finishMaking() override;

private:
    FileNameFilter(Making key, FilterItems fileNames, bool inverse, bool excludePathWhenMatching);

    bool inverse_ = false;
    bool excludePath_ = true;
    FilterItemSet fileNamesToMatch_;
    FilterItems fileNamesOfMaking_;
};

}  // namespace velora
