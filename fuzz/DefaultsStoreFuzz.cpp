// A whole store on a file of any bytes: readers leave damage where it is, a write sets it aside byte for byte, writes
// keep all that was there, and what one store writes and exports another one reads and imports. The first line is a
// key, the second a value, the rest the file.

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <support/Fuzzing.h>
#include <support/TemporaryFolder.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreDocument.h>
#include <Velora_UserDefaults/Platform/Text.h>

#include "../tests/Platform/DefaultsStoreTestSupport.h"

namespace velora::test {
namespace {

using Entries = std::vector<DefaultsStore::Entry>;

const TemporaryFolder& folderOfAllInputs() {
    static const TemporaryFolder folder;
    return folder;
}

/// A folder of one input, empty at first.
class InputFolder {
public:
    InputFolder() { std::filesystem::create_directory(path_); }
    InputFolder(const InputFolder&) = delete;
    InputFolder& operator=(const InputFolder&) = delete;
    ~InputFolder() { std::filesystem::remove_all(path_); }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    const std::string& path() const { return path_; }

private:
    std::string path_ = folderOfAllInputs() / "input";
};

Entries without(Entries entries, std::string_view key) {
    std::erase_if(entries, [key](const DefaultsStore::Entry& entry) { return entry.key == key; });
    return entries;
}

Entries sorted(Entries entries) {
    std::ranges::sort(entries, {}, &DefaultsStore::Entry::key);
    return entries;
}

/// A write has set the bytes aside if, and only if, they are no store.
void checkDamage(const InputFolder& folder, const std::string& bytes, bool isDamaged) {
    const auto setAside = filesBeginningWith(folder.path(), "store.damaged-");
    requireSame(setAside.size(), std::size_t{isDamaged ? 1U : 0U}, "only a damaged file is set aside");
    if (isDamaged) {
        requireEqual(readFile(folder / setAside.front()), bytes, "a damaged file is kept");
    }
}

void checkWriting(DefaultsStore& store, const std::string& key, const std::string& value) {
    const Entries before = store.allValues();
    const bool isText = isValidUTF8(key);
    requireSame(store.setString(key, value), isText, "text can be stored under any key that is text");
    require(without(store.allValues(), key) == without(before, key), "writing one key leaves the others");
    if (!isText) {
        return;
    }
    DefaultsStore other(store.path());
    require(other.allValues() == store.allValues(), "another store reads the same");
    if (isValidUTF8(value)) {
        requireEqual(other.string(key).value(), value, "what was stored is read");
    }
    require(store.remove(key) && !store.contains(key) && !other.contains(key), "what is removed is gone");
    require(other.allValues() == without(before, key), "removing one key leaves the others");
}

void checkExport(const InputFolder& folder, const DefaultsStore& store) {
    DefaultsStore copy(folder / "copy");
    require(copy.importText(store.exportText()), "an export can be imported");
    // Of a key that the file has twice, the place may be another one.
    require(sorted(copy.allValues()) == sorted(store.allValues()), "an export holds every value");
}

void check(const std::string& key, const std::string& value, const std::string& bytes) {
    const InputFolder folder;
    const std::string path = folder / "store";
    writeFile(path, bytes);
    std::string fault;
    const bool isDamaged = !DefaultsStoreDocument::parse(bytes, fault);
    DefaultsStore store(path);
    const Reports reports(store);
    if (isDamaged && bytes.size() % 8 != 0) {
        return;  // each wait for such a file takes its time
    }
    const Entries entries = store.allValues();
    requireEqual(readFile(path), bytes, "reading changes nothing");
    requireSame(reports.lines().size(), std::size_t{isDamaged ? 1U : 0U}, "damage is reported once, and nothing else");
    require(!isDamaged || entries.empty(), "a store whose file is damaged has no values");
    for (const DefaultsStore::Entry& entry : entries) {
        require(store.contains(entry.key), "the store has what it lists");
        requireSame(
            store.url(entry.key).has_value() && store.integer(entry.key) != 0 && entry.type == DefaultsStore::Type::url,
            false, "a URL is no number");
    }
    require(store.setBool("written", true), "a store can be written whatever lay there");
    checkDamage(folder, bytes, isDamaged);
    checkWriting(store, key, value);
    checkExport(folder, store);
}

}  // namespace
}  // namespace velora::test

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    velora::test::useMemoryForTemporaryFolders();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    velora::test::Input input(data, size);
    const std::string key(input.line());
    const std::string value(input.line());
    velora::test::check(key, value, std::string(input.rest()));
    return 0;
}
