#include <ctime>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <Velora_UserDefaults/Platform/DefaultsStoreFile.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreGeneration.h>

namespace velora {
namespace {

constexpr auto counterSize = static_cast<off_t>(sizeof(std::uint64_t));

std::uint64_t neverChanging = 0;
std::uint64_t notMapped = 1;

bool readCounter(int descriptor, std::uint64_t& value) {
    return ::pread(descriptor, &value, sizeof value, 0) == counterSize;
}

bool writeCounter(int descriptor, std::uint64_t value) {
    return ::pwrite(descriptor, &value, sizeof value, 0) == counterSize;
}

/// An even number that no earlier counter of this store had, as long as the clock was not set back.
std::uint64_t freshCounter() {
    timespec time{};
    ::clock_gettime(CLOCK_REALTIME, &time);
    return (static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000U + static_cast<std::uint64_t>(time.tv_nsec)) &
           ~std::uint64_t{1};
}

}  // namespace

DefaultsStoreGeneration::DefaultsStoreGeneration(std::string path)
    : path_(std::move(path)), counter_(path_.empty() ? &neverChanging : &notMapped) {}

DefaultsStoreGeneration::~DefaultsStoreGeneration() {
    for (void* mapping : mappings_) {
        ::munmap(mapping, sizeof(std::uint64_t));
    }
}

bool DefaultsStoreGeneration::verify() {
    if (path_.empty()) {
        return true;
    }
    struct stat status {};
    if (::lstat(path_.c_str(), &status) != 0 || status.st_size < counterSize) {
        unmap();
        return false;
    }
    if (counter_.load(std::memory_order_relaxed) != &notMapped && status.st_dev == device_ && status.st_ino == inode_) {
        return true;
    }
    const Descriptor file = openBesideStore(path_, O_RDONLY);
    if (!file || !map(file.get())) {
        unmap();
        return false;
    }
    return true;
}

void DefaultsStoreGeneration::make() {
    Descriptor file = openBesideStore(path_, O_RDWR | O_CREAT);
    if (!file) {
        // Something in the way, or a counter that only somebody else can write: those who mapped it notice soon.
        ::unlink(path_.c_str());
        file = openBesideStore(path_, O_RDWR | O_CREAT | O_EXCL);
    }
    std::uint64_t value = 0;
    if (file && (readCounter(file.get(), value) || writeCounter(file.get(), freshCounter()))) {
        map(file.get());
    }
}

bool DefaultsStoreGeneration::map(int descriptor) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0 || status.st_size < counterSize) {
        return false;
    }
    void* mapping = ::mmap(nullptr, sizeof(std::uint64_t), PROT_READ, MAP_SHARED, descriptor, 0);
    if (mapping == MAP_FAILED) {
        return false;
    }
    mappings_.push_back(mapping);
    device_ = status.st_dev;
    inode_ = status.st_ino;
    counter_.store(static_cast<std::uint64_t*>(mapping), std::memory_order_release);
    return true;
}

void DefaultsStoreGeneration::unmap() {
    counter_.store(&notMapped, std::memory_order_release);
}

void DefaultsStoreGeneration::heal() {
    const Descriptor file = openBesideStore(path_, O_RDWR);
    std::uint64_t value = 0;
    if (file && readCounter(file.get(), value) && !isSettled(value)) {
        writeCounter(file.get(), value + 1);
    }
}

DefaultsStoreChange::DefaultsStoreChange(const std::string& path) : file_(openBesideStore(path, O_RDWR)) {
    std::uint64_t value = 0;
    if (file_ && readCounter(file_.get(), value)) {
        odd_ = value | 1U;
        begun_ = writeCounter(file_.get(), odd_);
    }
}

void DefaultsStoreChange::complete() {
    if (std::exchange(begun_, false)) {
        writeCounter(file_.get(), odd_ + 1);
    }
}

}  // namespace velora
