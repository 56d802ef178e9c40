// The services of the platform that hosts may use too.

#include <any>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>

#include <Velora_UserDefaults/Platform/Bundle.h>
#include <Velora_UserDefaults/Platform/Date.h>
#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/DefaultsStore.h>
#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/FatalError.h>
#include <Velora_UserDefaults/Platform/FileError.h>
#include <Velora_UserDefaults/Platform/FileHandle.h>
#include <Velora_UserDefaults/Platform/FileManager.h>
#include <Velora_UserDefaults/Platform/RawValue.h>
#include <Velora_UserDefaults/Platform/ThreadInfo.h>
#include <Velora_UserDefaults/Platform/URL.h>

#include "Check.h"

namespace {

enum class Side : std::uint8_t { host, guest };

}  // namespace

template <>
inline constexpr Side velora::lastCase<Side> = Side::guest;

namespace {

void useDates() {
    const velora::Date moment = velora::dateFromSecondsSince1970(86'400.25);
    check(velora::secondsSince1970(moment) == 86'400.25);
    const velora::DateFormatter formatter("yyyy-MM-dd HH:mm:ss.SSS", "en_US", "UTC");
    check(formatter.string(moment) == "1970-01-02 00:00:00.250");
}

void useFiles(const std::string& folder) {
    const velora::URL file = velora::URL::fileURL(folder, true).appendingPathComponent("greeting.txt");
    check(file.isFileURL());
    check(file.pathExtension() == "txt");

    velora::FileResult<velora::FileHandle> handle = velora::FileHandle::openForWriting(file.path());
    check(!handle);
    check(velora::FileManager::createFile(file.path()));
    handle = velora::FileHandle::openForWriting(file.path());
    check(static_cast<bool>(handle));
    check(static_cast<bool>(handle->write("hello\n")));
    check(static_cast<bool>(handle->close()));

    std::ifstream stream(file.path());
    const std::string content{std::istreambuf_iterator<char>(stream), {}};
    check(content == "hello\n");

    const velora::FileResult<void> removal = velora::FileManager::remove(folder + "/missing");
    check(!removal);
    check(!removal.error().description.empty());
}

void useQueue() {
    const auto queue = velora::DispatchQueue::make("consumer");
    int count = 0;
    queue->async([&count] { ++count; });
    queue->sync([&count] { count *= 2; });
    check(count == 2);
}

void useStore(const std::string& folder) {
    velora::DefaultsStore store(folder + "/Settings.json");
    store.registerDefault("Port", std::int64_t{5900});
    check(store.integer("Port") == 5900);
    check(store.setString("Name", "München"));
    check(velora::DefaultsStore(folder + "/Settings.json").string("Name") == "München");
}

void useFactsOfTheHost() {
    velora::Bundle::main().setVersion("4.2", "1138");
    check(velora::Bundle::main().infoText(velora::Bundle::shortVersionKey) == "4.2");
    velora::setCurrentThreadName("consumer");
    check(velora::fromRawValue<Side>(1) == Side::guest);
    check(!velora::fromRawValue<Side>(2));
}

}  // namespace

void usePlatform(const std::string& folder) {
    if (folder.empty()) {
        velora::fatalError("the consumer needs a folder");
    }
    useDates();
    useFiles(folder);
    useQueue();
    useStore(folder);
    useFactsOfTheHost();
}
