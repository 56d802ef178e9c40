#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/Platform/URL.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>

namespace velora {

class DateFormatter;

/// A file destination that moves its file to an archive when it has grown too large or too old, marks each
/// archive as its own, and deletes the oldest ones beyond a number.
///
///     auto file = velora::make<velora::AutoRotatingFileDestination>(
///         nullptr, "/var/log/app/app.log", "file",
///         velora::AutoRotatingFileDestination::Options{.maxFileSize = 10'000'000, .targetMaxLogFiles = 5});
///     log->add(file);
///
/// `app.log` is archived beside itself as, for example, `app_2024-03-01_154502.log`. Which archives are its
/// own is told by the extended attributes that they were marked with, so those of earlier runs count, and
/// no other file in the folder is ever touched. Destinations with one identifier share their archives.
///
/// Limits are looked at after each line, so the line that crosses one stays in the old file. Size counts
/// the characters that a reader sees, not bytes, and no line feeds; a file grows somewhat past it.
///
/// Threads: as `FileDestination`; while one thread rotates, the others log on. Lines that a rotation itself logs, also
/// by its completion, count for no limit of this file and start no rotation of another one: the next line does.
/// Settings are made before logging starts. With a queue the rotation runs on it.
class VELORA_EXPORT AutoRotatingFileDestination : public FileDestination {
public:
    /// How to make one; each has a default.
    struct Options {
        /// Go on in an existing file, unless it is beyond a limit already; otherwise it is archived first.
        bool shouldAppend = true;
        /// The line that tells where appending began; only written with `shouldAppend`.
        std::optional<std::string> appendMarker = "-- ** ** ** --";
        std::optional<FileAttributes> attributes = std::nullopt;
        /// As the property `targetMaxFileSize`.
        std::uint64_t maxFileSize = autoRotatingFileDefaultMaxFileSize();
        /// As the property `targetMaxTimeInterval`.
        double maxTimeInterval = autoRotatingFileDefaultMaxTimeInterval();
        std::shared_ptr<const DateFormatter> archiveSuffixDateFormatter = nullptr;
        std::uint8_t targetMaxLogFiles = 10;
    };

    /// `owner` is usually null; the folder of `writeToFile` is made if it is missing. Without a target nothing is
    /// written and nothing rotates.
    AutoRotatingFileDestination(Making key, std::shared_ptr<XCGLogger> owner, const FileTarget& writeToFile,
                                std::string identifier, Options options);

    /// The same with every option in order.
    AutoRotatingFileDestination(Making key, std::shared_ptr<XCGLogger> owner, const FileTarget& writeToFile,
                                std::string identifier, bool shouldAppend, std::optional<std::string> appendMarker,
                                std::optional<FileAttributes> attributes, std::uint64_t maxFileSize,
                                double maxTimeInterval,
                                std::shared_ptr<const DateFormatter> archiveSuffixDateFormatter = nullptr,
                                std::uint8_t targetMaxLogFiles = 10);

    /// The six arguments of a plain file destination say nothing of rotation: a fatal error.
    [[deprecated("say when to rotate: pass Options, or the sizes and times too")]] AutoRotatingFileDestination(
        Making key, std::shared_ptr<XCGLogger> owner, const FileTarget& writeToFile, std::string identifier,
        bool shouldAppend, const std::optional<std::string>& appendMarker,
        const std::optional<FileAttributes>& attributes);

    ~AutoRotatingFileDestination() override;

    /// What `Options` takes when it is not told: 1,048,576 characters and 600 seconds at first. For the
    /// whole process; any thread.
    static std::uint64_t autoRotatingFileDefaultMaxFileSize();
    static void setAutoRotatingFileDefaultMaxFileSize(std::uint64_t size);
    static double autoRotatingFileDefaultMaxTimeInterval();
    static void setAutoRotatingFileDefaultMaxTimeInterval(double seconds);
    /// The folder for archives that have no other: `log` in the temporary folder. Each call makes it if
    /// it is missing. In a temporary folder that all may write to, such as /tmp, `log` may belong to another user, be a
    /// symbolic link or be writable to all: then it is `log-` and the user's number, such as `log-1000`. If that is no
    /// better, rotations to it fail.
    static URL defaultLogFolderURL();

    /// How many characters a file may have. Setting 0 stores the largest number: no rotation by size.
    virtual std::uint64_t targetMaxFileSize() const { return targetMaxFileSize_; }
    virtual void setTargetMaxFileSize(std::uint64_t size);
    /// How old a file may be, in seconds. Setting less than 1 stores 0: no rotation by age.
    virtual double targetMaxTimeInterval() const { return targetMaxTimeInterval_; }
    virtual void setTargetMaxTimeInterval(double seconds);
    /// How many archives are kept. Setting it deletes what is too many at once.
    virtual std::uint8_t targetMaxLogFiles() const { return targetMaxLogFiles_; }
    virtual void setTargetMaxLogFiles(std::uint8_t count);
    /// The folder for archives: at first that of the live file, if that has an extension, else
    /// `defaultLogFolderURL()`, which absent means too. Setting it makes the folder.
    virtual const std::optional<URL>& archiveFolderURL() const { return archiveFolderURL_; }
    virtual void setArchiveFolderURL(std::optional<URL> url);
    /// Called after each rotation with whether it succeeded, on the thread that rotates.
    virtual const std::function<void(bool success)>& autoRotationCompletion() const { return autoRotationCompletion_; }
    virtual void setAutoRotationCompletion(std::function<void(bool success)> closure);
    /// Makes the text between an archive's base name and its extension: the formatter set, or one with the
    /// pattern "_yyyy-MM-dd_HHmmss" in the user's locale. Setting null returns to that one.
    virtual const std::shared_ptr<const DateFormatter>& archiveSuffixDateFormatter() const;
    virtual void setArchiveSuffixDateFormatter(std::shared_ptr<const DateFormatter> formatter);

    /// The live file's name without its extension, and the extension.
    const std::string& baseFileName() const { return baseFileName_; }
    const std::string& fileExtension() const { return fileExtension_; }
    /// How many characters the live file counts so far, and since when it runs, in seconds since 1970.
    std::uint64_t currentLogFileSize() const { return counted(); }
    double currentLogStartTimeInterval() const { return beginning(); }

    /// As the base's; rotates at once if the header of the file reaches a limit.
    void setOwner(std::shared_ptr<XCGLogger> owner) override;

    void write(std::string_view message) override;

    /// Deletes the oldest archives beyond `targetMaxLogFiles`.
    virtual void cleanUpLogFiles();
    /// Deletes every archive of this destination.
    virtual void purgeArchivedLogFiles();
    /// This destination's archives, newest first.
    virtual std::vector<URL> archivedFileURLs() const;
    /// Archives the live file now under a dated name, and prunes the archives. A name that exists already,
    /// as on a second rotation within a second, makes it fail without a change to the live file. With a queue
    /// it first waits for the lines logged before. Does nothing while another rotation runs.
    virtual void rotateFile();
    using FileDestination::rotateFile;
    /// Whether a limit has been reached.
    virtual bool shouldRotate() const;

protected:
    void finishMaking() override;

private:
    void findNames();
    void takeOverLiveFile();
    URL archiveFolder() const;
    bool archiveTo(const URL& folder, Turn& turn);
    void remove(const URL& archive);

    bool shouldAppendAtFirst_;
    std::atomic<std::uint64_t> targetMaxFileSize_ = 0;
    std::atomic<double> targetMaxTimeInterval_ = 0;
    std::atomic<std::uint8_t> targetMaxLogFiles_;
    std::optional<URL> archiveFolderURL_;
    std::function<void(bool success)> autoRotationCompletion_;
    std::shared_ptr<const DateFormatter> customArchiveSuffixDateFormatter_;
    std::string baseFileName_ = "xcglogger";
    std::string fileExtension_ = "log";
};

}  // namespace velora
