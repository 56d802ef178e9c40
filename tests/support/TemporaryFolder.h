#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <vector>

namespace velora::test {

/// A new, empty folder of a test's own, removed with all it holds when the object goes.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "velora-test-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("cannot make a temporary folder");
        }
        path_ = pattern;
        removeCounters();
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        removeCounters();
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::filesystem::path& path() const { return path_; }
    /// The path of `name` inside the folder, as text.
    std::string operator/(const std::string& name) const { return (path_ / name).string(); }

private:
    /// Removes the shared memory of preferences stores in the folder: the next folder with its inode would have it.
    void removeCounters() const {
        std::error_code ignored;
        std::vector<std::string> ends{endOfCounter(path_)};
        std::filesystem::recursive_directory_iterator entry(
            path_, std::filesystem::directory_options::skip_permission_denied, ignored);
        for (; !ignored && entry != std::filesystem::end(entry); entry.increment(ignored)) {
            if (entry->is_directory(ignored)) {
                ends.push_back(endOfCounter(entry->path()));
            }
        }
        std::filesystem::directory_iterator object("/dev/shm", ignored);
        for (; !ignored && object != std::filesystem::end(object); object.increment(ignored)) {
            const std::string name = object->path().filename();
            if (name.starts_with("velora-defaults-") &&
                std::ranges::any_of(ends, [&](const std::string& each) { return name.ends_with(each); })) {
                ::shm_unlink(name.c_str());
            }
        }
    }

    static std::string endOfCounter(const std::filesystem::path& folder) {
        struct stat status {};
        ::stat(folder.c_str(), &status);
        std::ostringstream text;
        text << std::hex << '-' << status.st_dev << '-' << status.st_ino;
        return text.str();
    }

    std::filesystem::path path_;
};

/// All bytes of the file at `path`; empty if it cannot be read.
inline std::string readFile(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

/// Replaces the file at `path` by one that holds `bytes`.
inline void writeFile(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream << bytes;
}

}  // namespace velora::test
