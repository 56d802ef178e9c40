#pragma once

/// How operations on files tell that they failed: as a value, never by throwing.

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include <Velora_UserDefaults/Platform/Export.h>

namespace velora {

/// Why an operation on a file failed. A plain value.
struct FileError {
    /// The system's error number (`errno`), for example ENOENT.
    int code = 0;
    /// A sentence for people, without a full stop, that names the file and the system's reason:
    /// `The file “/var/log/app.log” couldn’t be opened for writing: Permission denied`.
    std::string description;

    /// The error `code` of an attempt on the file at `path`. `failure` continues the sentence, for example
    /// `couldn’t be opened for writing`; `kind` says what the path names.
    VELORA_EXPORT static FileError make(int code, std::string_view path, std::string_view failure,
                                        std::string_view kind = "file");
};

/// Whether `path` can name a file: it has no NUL inside, at which the system would take it to end.
inline bool canNameFile(std::string_view path) {
    return path.find('\0') == std::string_view::npos;
}

/// What an operation on a file gives: its value, or the error that kept it from giving one.
///
///     if (auto names = FileManager::contentsOfFolder(path)) {
///         use(*names);
///     } else {
///         report(names.error().description);
///     }
///
/// As safe to share between threads as the value it holds.
template <class T>
class [[nodiscard]] FileResult {
public:
    /// A success. Implicit, so that an operation can simply return its value.
    FileResult(T value) : content_(std::in_place_index<0>, std::move(value)) {}
    /// A failure. Implicit for the same reason.
    FileResult(FileError error) : content_(std::in_place_index<1>, std::move(error)) {}

    /// Whether there is a value.
    explicit operator bool() const { return content_.index() == 0; }

    /// The value; only after a success.
    T& operator*() & { return *std::get_if<0>(&content_); }
    const T& operator*() const& { return *std::get_if<0>(&content_); }
    T&& operator*() && { return std::move(*std::get_if<0>(&content_)); }
    T* operator->() { return std::get_if<0>(&content_); }
    const T* operator->() const { return std::get_if<0>(&content_); }

    /// The error; only after a failure.
    [[nodiscard]] const FileError& error() const { return *std::get_if<1>(&content_); }

private:
    std::variant<T, FileError> content_;
};

/// What an operation without a value of its own gives: success, or an error.
template <>
class [[nodiscard]] FileResult<void> {
public:
    /// A success.
    FileResult() = default;
    /// A failure. Implicit, so that an operation can simply return its error.
    FileResult(FileError error) : error_(std::move(error)) {}

    /// Whether the operation succeeded.
    explicit operator bool() const { return !error_.has_value(); }

    /// The error; only after a failure.
    [[nodiscard]] const FileError& error() const { return *error_; }

private:
    std::optional<FileError> error_;
};

}  // namespace velora
