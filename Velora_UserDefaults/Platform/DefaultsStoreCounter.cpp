#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <Velora_UserDefaults/Platform/DefaultsStoreCounter.h>

namespace velora {
namespace {

constexpr mode_t mode = 0600;

std::uint64_t neverChanging = 0;
std::uint64_t notMapped = 1;

bool transferred(ssize_t size) {
    return size == static_cast<ssize_t>(sizeof(std::uint64_t));
}

/// Makes the object; nothing if another process has just made it.
Descriptor made(const std::string& name, const struct stat& folder) {
    Descriptor object(::shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, mode));
    // The umask may have taken rights away.
    if (object && (::fchmod(object.get(), mode) != 0 ||
                   (folder.st_uid != ::geteuid() && ::fchown(object.get(), folder.st_uid, folder.st_gid) != 0))) {
        object.close();
    }
    return object;
}

/// The counter of `folder`; nothing if there is none to be trusted.
Descriptor opened(const std::string& folder) {
    struct stat above {};
    const bool isFolder = ::stat(folder.c_str(), &above) == 0;
    if (!isFolder || (above.st_mode & S_IWOTH) != 0 || (above.st_uid != ::geteuid() && ::geteuid() != 0)) {
        return Descriptor();
    }
    const std::string name = fmt::format("/velora-defaults-{}-{:x}-{:x}", above.st_uid, above.st_dev, above.st_ino);
    Descriptor object(::shm_open(name.c_str(), O_RDWR, mode));
    if (!object && errno == ENOENT) {
        object = made(name, above);
    }
    struct stat status {};
    // Memory that the system has not got would end the process when it is read.
    if (!object || ::fstat(object.get(), &status) != 0 || status.st_uid != above.st_uid || status.st_nlink == 0 ||
        (status.st_mode & (S_IRWXG | S_IRWXO)) != 0 ||
        (status.st_size == 0 && ::posix_fallocate(object.get(), 0, sizeof(std::uint64_t)) != 0)) {
        return Descriptor();
    }
    return object;
}

}  // namespace

DefaultsStoreCounter::DefaultsStoreCounter(std::string folder)
    : folder_(std::move(folder)), counter_(folder_.empty() ? &neverChanging : &notMapped) {}

DefaultsStoreCounter::~DefaultsStoreCounter() {
    for (std::uint64_t* mapping : mappings_) {
        ::munmap(mapping, sizeof *mapping);
    }
}

void DefaultsStoreCounter::verify() {
    if (folder_.empty()) {
        return;
    }
    const Descriptor object = opened(folder_);
    struct stat status {};
    if (!object || ::fstat(object.get(), &status) != 0) {
        counter_.store(&notMapped, std::memory_order_release);
        return;
    }
    if (mappings_.empty() || status.st_dev != device_ || status.st_ino != inode_) {
        void* mapping = ::mmap(nullptr, sizeof(std::uint64_t), PROT_READ, MAP_SHARED, object.get(), 0);
        if (mapping == MAP_FAILED) {
            counter_.store(&notMapped, std::memory_order_release);
            return;
        }
        mappings_.push_back(static_cast<std::uint64_t*>(mapping));
        device_ = status.st_dev;
        inode_ = status.st_ino;
    }
    counter_.store(mappings_.back(), std::memory_order_release);
}

DefaultsStoreCounter::Change::Change(const std::string& folder) : object_(opened(folder)) {
    std::uint64_t value = 0;
    if (object_ && transferred(::pread(object_.get(), &value, sizeof value, 0))) {
        odd_ = value | 1U;
    }
    if (object_ && !transferred(::pwrite(object_.get(), &odd_, sizeof odd_, 0))) {
        object_.close();
    }
}

std::uint64_t DefaultsStoreCounter::Change::complete() {
    const std::uint64_t even = odd_ + 1;
    const Descriptor object(object_.release());
    return object && transferred(::pwrite(object.get(), &even, sizeof even, 0)) ? even : odd_;
}

}  // namespace velora
