#pragma once

#include <any>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/Platform/Export.h>

namespace velora {

/// What the host application tells about itself: an information dictionary of values by name, empty until
/// the host fills it, best before it sets up logging.
///
///     Bundle::main().setVersion("2.4.1", "5810");
///
/// Any thread may call anything at any time, also in a forked child and during exit.
class VELORA_EXPORT Bundle {
public:
    /// The key of the version that people see, for example "2.4.1".
    static constexpr const char* shortVersionKey = "CFBundleShortVersionString";
    /// The key of the build number, for example "5810".
    static constexpr const char* versionKey = "CFBundleVersion";

    /// A bundle that says nothing yet.
    Bundle();
    Bundle(const Bundle&) = delete;
    Bundle& operator=(const Bundle&) = delete;
    ~Bundle();

    /// The bundle of the running application.
    static Bundle& main();

    /// Sets the value of `key`; an empty `value` takes it away. Text may be given as `std::string`,
    /// `std::string_view` or C string; it is copied and kept as `std::string`.
    void setInfo(std::string_view key, std::any value);

    /// The value of `key`; an empty `std::any` if it has none.
    [[nodiscard]] std::any info(std::string_view key) const;

    /// The value of `key` if it is text.
    [[nodiscard]] std::optional<std::string> infoText(std::string_view key) const;

    /// Sets the two versions that the log's start-up header shows.
    void setVersion(std::string_view shortVersion, std::string_view build);

private:
    struct Content;
    std::unique_ptr<Content> content_;
};

}  // namespace velora
