#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/Platform/OptionalText.h>
#include <Velora_UserDefaults/Platform/URL.h>

namespace velora {

class DefaultsStoreEngine;

/// The preferences of one user: typed values under text keys, shared by all processes of the user.
///
/// The values lie in one JSON file that a person can read and edit. A read returns what the last completed write of any
/// process left, a write is durable and visible to every process when the call returns, and two processes that write
/// different keys at the same time lose neither. A program that edits the file without this class, such as a text
/// editor, is noticed within 50 ms, and so is a process in another mount namespace (a container).
///
///     DefaultsStore& store = DefaultsStore::standard();
///     store.setInteger("PinLength", 8);
///     store.registerDefault("Warnings", true);
///     bool warnings = store.boolean("Warnings");      // true until somebody stores something else
///
/// Values convert on reading. What a stored value reads as:
///
/// | stored   | string          | integer                | real                | boolean       | url                 |
/// |----------|-----------------|------------------------|---------------------|---------------|---------------------|
/// | string   | itself          | leading integer, or 0  | leading number or 0 | see boolean() | path, `~` expanded  |
/// | integer  | decimal digits  | itself                 | the nearest         | not 0         | absent              |
/// | real     | shortest digits | truncated              | itself              | not 0         | absent              |
/// | boolean  | "1" or "0"      | 1 or 0                 | 1 or 0              | itself        | absent              |
/// | URL      | absent          | 0                      | 0                   | false         | itself              |
/// | list, …  | absent          | 0                      | 0                   | false         | absent              |
///
/// An integer that does not fit in 64 bits reads as the nearest one that does. A stored `null` counts as absent. Where
/// the user's own values lack a key, the registered default of that key is read in the same way.
///
/// The file is an object with one member for each key, in the order in which they were first stored. A URL is stored as
/// `{"url": "file:///home/ann/Chats/"}`, bytes as `{"base64": "AAE="}`, all else as the JSON value of its type. Members
/// that nobody writes keep their exact text, so numbers of other programs lose no digit. Of two members with one key
/// the later one counts, and the next write drops the other. Text that is not UTF-8 is stored with U+FFFD in place of
/// each bad byte sequence; a key that is not UTF-8 is refused.
///
/// A missing file is an empty store. A file that cannot be read now (no descriptors, an I/O error, no permission, no
/// regular file) or that cannot be parsed (half written, damaged, above 16 MiB, nested more than 512 deep) leaves
/// readers the last values that they had, is reported once, and is looked at again within 50 ms. A store object that
/// has had none yet waits for up to 0.2 s, once, before it reads as empty. Readers never touch the file. A write waits
/// as long and then renames a damaged file to `<name>.damaged-<UTC time>`, reports that, and begins a new one; where
/// the file cannot be read it fails.
///
/// No operation throws for a fault of the file system. A write that fails changes nothing, returns false and is
/// reported.
///
/// Beside the file lies `<name>.lock`, which is locked (flock(2)) while writing; both may be copied, restored and
/// deleted at any time. Whoever holds the lock makes writes wait, which is reported after a second. A counter in POSIX
/// shared memory tells processes of writes; where there is none, and in a folder that all may write to, each read looks
/// at the file. If the path names a symbolic link when the store is opened, the file it leads to is the store and the
/// link stays. What root makes in another user's folder belongs to that user.
///
/// Thread-safe: every operation may be called from any thread at any time, also from several stores on one file, and
/// on both sides of a `fork`. An operation waits for writers only if it writes.
class VELORA_EXPORT DefaultsStore {
public:
    /// What a stored value is.
    enum class Type : std::uint8_t {
        string,
        integer,
        boolean,
        real,
        url,
        other  ///< a list, or an object that is no URL
    };

    /// One stored value.
    struct Entry {
        std::string key;   ///< as it stands in the file
        Type type;         ///< what kind of value it is
        std::string text;  ///< the value as text: a string or URL itself, a number in digits, "true"/"false", else JSON
        std::string json;  ///< the value exactly as it stands in the file
        /// Whether everything is equal, the file's own spelling too.
        bool operator==(const Entry&) const = default;
    };

    /// A key to read by: any text, or a `slot`, which spares the search.
    class VELORA_EXPORT Key {
    public:
        /// The key that `text` is. It is not copied: the key is for one call.
        template <typename Text>
        requires std::is_convertible_v<const Text&, std::string_view> Key(const Text& text)
            : text_(text) {}  // NOLINT(google-explicit-constructor): each text is a key

        /// A key that is read often. To be made once and kept: what it refers to stays until the process ends.
        ///
        ///     static const auto warnings = DefaultsStore::Key::slot("Warnings");
        static Key slot(std::string_view text);

        /// The key itself.
        std::string_view text() const { return text_; }

    private:
        friend class DefaultsStoreEngine;
        std::string_view text_;
        std::size_t slot_ = SIZE_MAX;
    };

    /// A value for the registration domain. The text is copied.
    using Registered = std::variant<bool, std::int64_t, std::string_view>;

    /// Takes one line that tells what went wrong with the store.
    using ReportHandler = std::function<void(const std::string& line)>;

    /// The standard defaults of the user: the file that the environment variable VELORA_DEFAULTS_FILE names, else
    /// `Quillon Velora/UserDefaults.json` in `$XDG_CONFIG_HOME` (XDG base directories), else in
    /// `~/.config`, where the home is `$HOME` or what the password database says. With no home at all the values live
    /// in memory only, which is reported once. The environment is read on the first call; a process that gained
    /// privileges when it was executed ignores it (secure_getenv(3)). The store lives until the process ends.
    static DefaultsStore& standard();

    /// The path that `standard()` opens in the present environment; empty if there is none.
    static std::string standardPath();

    /// Opens the store in the file at `path`, which need not exist. An empty path makes a store in memory only.
    /// Nothing is read before the first operation; missing folders are made by the first write, with mode 0700, the
    /// file with 0600.
    explicit DefaultsStore(const std::string& path);
    DefaultsStore(const DefaultsStore&) = delete;
    DefaultsStore& operator=(const DefaultsStore&) = delete;
    ~DefaultsStore();

    /// The path of the file, absolute and with links resolved; empty for a store in memory.
    const std::string& path() const;

    /// Sets who is told of damage and of failing writes; nobody set (an empty function, as at first) means one line on
    /// standard error each. The handler is called from the thread that met the fault, with no lock held; it may use
    /// the store. A fault of the file is reported once, every failing write once.
    void setReportHandler(ReportHandler handler);

    // Reading. Each call sees the file as the last completed write left it.

    /// The text stored or registered under `key`; absent if there is none or it has no text form (see the table).
    std::optional<std::string> string(const Key& key) const;
    /// The integer under `key`; 0 if there is none. From text: blanks, a sign and decimal digits at its beginning, the
    /// rest ignored ("42 px" is 42, "px" is 0).
    std::int64_t integer(const Key& key) const;
    /// The real number under `key`; 0 if there is none. From text: as for an integer, with a fraction and an exponent.
    double real(const Key& key) const;
    /// The truth value under `key`; false if there is none. Text is true if, after blanks, a sign and zeros, it goes on
    /// with one of Y, y, T, t or a digit from 1 to 9 ("YES", "true", "1", "007"; not "on").
    bool boolean(const Key& key) const;
    /// The URL under `key`; absent if there is none. Text is taken as a path, with a leading `~` or `~name` expanded
    /// and relative to the current folder if it is not absolute; empty text is absent.
    std::optional<URL> url(const Key& key) const;
    /// The same, after `registerDefault(key, registered)`: in one step what a getter does on every call.
    std::int64_t integer(const Key& key, std::int64_t registered);
    bool boolean(const Key& key, bool registered);
    /// The list of texts under `key`; absent if there is none, or a list with anything else in it.
    std::optional<std::vector<std::string>> strings(const Key& key) const;
    /// The bytes under `key`; absent if there are none.
    std::optional<std::vector<std::byte>> bytes(const Key& key) const;
    /// Whether the user's own values have `key`. Registered defaults do not count.
    bool contains(std::string_view key) const;
    /// All of the user's own values in the order of the file, each key once.
    std::vector<Entry> allValues() const;

    // Writing. Each call returns whether the value is stored; if it is, it is so durably. Storing what is stored
    // already writes nothing.

    /// Stores text; absent removes the key.
    bool setString(std::string_view key, OptionalText value);
    bool setInteger(std::string_view key, std::int64_t value);
    /// Stores a real number. JSON has none that is infinite or no number: these are refused.
    bool setReal(std::string_view key, double value);
    bool setBool(std::string_view key, bool value);
    /// Stores a URL, which stays one of any scheme; absent removes the key.
    bool setURL(std::string_view key, const std::optional<URL>& value);
    bool setStrings(std::string_view key, std::span<const std::string> texts);
    bool setBytes(std::string_view key, std::span<const std::byte> bytes);
    /// Removes `key` from the user's own values, so that a registered default shows again.
    bool remove(std::string_view key);
    /// Removes all of these keys in one write: another process sees all of them or none.
    bool removeKeys(std::span<const std::string> keys);

    // The registration domain: values in the memory of this store object, below the user's own.

    /// Registers the default of one key, in place of an earlier one. Registering the same value again, as a getter may
    /// before every read, costs a look-up.
    void registerDefault(const Key& key, Registered value);
    void registerDefaults(std::initializer_list<std::pair<std::string_view, Registered>> values);

    // Whole contents.

    /// The user's own values as the text of a JSON object.
    std::string exportText() const;
    /// Writes `exportText()` to the file at `path` (mode 0600), which either is replaced as a whole or stays as it was.
    /// /dev/stdout, /dev/stderr and /dev/fd/N are written to. A folder, a device or the store's own file is refused,
    /// and nothing is written if the store cannot be read.
    bool exportTo(const std::string& path) const;
    /// Stores every member of a JSON object, in one write; keys that it lacks stay. If `json` is no JSON object,
    /// nothing is stored. The members' exact text is kept.
    bool importText(std::string_view json);
    /// Does the same with the contents of the file at `path`.
    bool importFrom(const std::string& path);

    // Observing.

    /// A number that differs from that of an earlier call if the user's own values changed in between, through
    /// whomever. It says nothing to another process or store.
    std::uint64_t generation() const;
    /// Waits until `generation()` is not `since` any more, which it looks at every 50 ms, but no longer than `timeout`.
    /// Returns the generation then.
    std::uint64_t waitForChange(std::uint64_t since, std::chrono::milliseconds timeout) const;

private:
    std::unique_ptr<DefaultsStoreEngine> engine_;
};

}  // namespace velora
