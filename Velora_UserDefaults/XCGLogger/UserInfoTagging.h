#pragma once

#include <concepts>
#include <initializer_list>
#include <map>
#include <ranges>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/XCGLogger/Constants.h>
#include <Velora_UserDefaults/XCGLogger/SourceLocation.h>
#include <Velora_UserDefaults/XCGLogger/UserInfo.h>

/// Tags and developer names for log calls, and the `|` that combines them with each other and with
/// other user info.
///
///     log->warning(Tag("net"), "no route to {}", host);
///     log->warning(Tag("net") | Dev("ann"), "retry {}", count);
///     log->info(Tag::names("net", "auth") | UserInfo{{"session", 7}}, "logged in");
///
/// Everything here is a value; the operations are safe to call from any thread.
namespace velora {

/// A text that is known when the program is compiled, such as a literal, and can be referred to for as
/// long as the process lives.
class LiteralText {
public:
    /// Refers to `literal`.
    template <std::size_t Size>
    consteval LiteralText(const char (&literal)[Size])  // NOLINT(google-explicit-constructor)
        : view_(static_cast<const char*>(literal)) {}

    /// The text.
    constexpr std::string_view view() const noexcept { return view_; }

private:
    std::string_view view_;
};

/// A text that is made when the program runs: anything that converts to `std::string_view`, but for
/// arrays of constant characters, which are literals.
template <typename Text>
concept RuntimeText = std::convertible_to<Text, std::string_view> &&
    !(std::is_array_v<std::remove_reference_t<Text>> && std::is_const_v<std::remove_reference_t<Text>>);

/// A range whose elements can be copied into a `std::string`, but for a text, which is one itself.
template <typename Range>
concept RangeOfTexts = !std::convertible_to<const Range&, std::string_view> && std::ranges::input_range<const Range> &&
                       std::constructible_from<std::string, std::ranges::range_reference_t<const Range>>;

/// A dictionary from text to values of one type, which a log call takes as user info.
template <typename Value>
struct UserInfoOf : std::map<std::string, Value, std::less<>> {
    using std::map<std::string, Value, std::less<>>::map;

    /// The same with values of any type.
    operator UserInfo() const { return UserInfo(this->begin(), this->end()); }  // NOLINT(google-explicit-constructor)
};

/// What puts one name into the user info of a log call: it has a name, readable and writable, and a
/// dictionary from text to text. `Tag` and `Dev` do; a host may add kinds of its own, with a conversion
/// to `UserInfo` so that log calls take one by itself.
template <typename Tagging>
concept UserInfoTaggingProtocol = requires(const Tagging& tagging, Tagging& changed, std::string name) {
    { tagging.name() } -> std::convertible_to<std::string_view>;
    changed.setName(name);
    { tagging.dictionary() } -> std::convertible_to<UserInfo>;
    { tagging.dictionary().begin()->second } -> std::convertible_to<std::string_view>;
};

/// A name under the user-info key `Key`. Made of a literal it refers to that and allocates nothing; any
/// other text it copies. An array of constant characters that is no compile-time constant does not
/// compile: make it a `std::string_view` first.
template <const std::string_view& Key>
class UserInfoName {
public:
    /// Refers to a literal, or copies any other text.
    explicit UserInfoName(LiteralText name) : name_(SourceText::referringTo(name.view())) {}
    template <RuntimeText Text>
    // NOLINTNEXTLINE(bugprone-forwarding-reference-overload): no name is text itself
    explicit UserInfoName(Text&& name) : name_(std::string(std::forward<Text>(name))) {}

    /// The same as the constructor, for those who like the call to read so: `Tag::name("net")`.
    static UserInfoName name(LiteralText name) { return UserInfoName(name); }
    template <RuntimeText Text>
    static UserInfoName name(Text&& name) {
        return UserInfoName(std::forward<Text>(name));
    }

    /// The user info with all the given names under the key, a list in the order of the arguments:
    /// `Tag::names("net", "auth")`. Without a name the list is empty.
    template <std::convertible_to<std::string_view>... Texts>
    static UserInfoOf<std::vector<std::string>> names(const Texts&... names) {
        return listed({std::string(std::string_view(names))...});
    }
    /// As above, for a list in braces: `Tag::names({"net", "auth"})`.
    static UserInfoOf<std::vector<std::string>> names(std::initializer_list<std::string_view> names) {
        return listed({names.begin(), names.end()});
    }
    /// As above, for the texts of a range.
    template <RangeOfTexts Range>
    static UserInfoOf<std::vector<std::string>> names(const Range& names) {
        std::vector<std::string> list;
        for (const auto& name : names) {
            list.emplace_back(name);
        }
        return listed(std::move(list));
    }

    /// The name; valid until it is changed.
    std::string_view name() const noexcept { return name_.view(); }
    void setName(std::string name) { name_ = SourceText(std::move(name)); }

    /// The key mapped to the name.
    UserInfoOf<std::string> dictionary() const { return {{std::string(Key), name_.string()}}; }

    /// The same as user info.
    operator UserInfo() const { return {{std::string(Key), name_.string()}}; }  // NOLINT(google-explicit-constructor)

    friend bool operator==(const UserInfoName&, const UserInfoName&) = default;

private:
    static UserInfoOf<std::vector<std::string>> listed(std::vector<std::string> names) {
        UserInfoOf<std::vector<std::string>> dictionary;
        dictionary.emplace(Key, std::move(names));
        return dictionary;
    }

    SourceText name_;
};

/// What a line is about: a name under `Constants::userInfoKeyTags`, which `TagFilter` looks for.
using Tag = UserInfoName<Constants::userInfoKeyTags>;

/// Whom a line is for: a name under `Constants::userInfoKeyDevs`, which `DevFilter` looks for.
using Dev = UserInfoName<Constants::userInfoKeyDevs>;

/// `base` with the entries of `added`. Where both have a value under a key:
///  - if either is a set, the base's stays;
///  - two lists become one, the base's elements first;
///  - a list and a single value become the list with the single value at its end, whichever is whose;
///  - two single values become a list of the two, the base's first.
///
/// The list that comes of it is a `std::vector<std::string>` if all of its elements are text, else a
/// `std::vector<std::any>`. As lists count `std::vector`s, and as sets `std::set`s and
/// `std::unordered_set`s, of text (`std::string`, `std::string_view`, `const char*`), of booleans or of
/// numbers, and `std::vector<std::any>`; everything else is a single value.
VELORA_EXPORT UserInfo mergeUserInfo(UserInfo base, const UserInfo& added);

/// The user info that `left | right` stands for. The dictionary of a tag and the like is the base that
/// any other dictionary is merged onto, on whichever side it stands; otherwise the left is the base.
template <typename Left, typename Right>
UserInfo mergedOperands(const Left& left, const Right& right) {
    const auto userInfo = []<typename Operand>(const Operand& operand) -> UserInfo {
        if constexpr (UserInfoTaggingProtocol<Operand>) {
            return operand.dictionary();
        } else {
            return operand;
        }
    };
    if constexpr (UserInfoTaggingProtocol<Right> && !UserInfoTaggingProtocol<Left>) {
        return mergeUserInfo(userInfo(right), userInfo(left));
    } else {
        return mergeUserInfo(userInfo(left), userInfo(right));
    }
}

/// Several tags and the like joined by `|`: user info that is put together when it is needed, that is,
/// for a log call only if some destination accepts it. It holds its operands and may be kept.
template <typename Left, typename Right>
class TaggingExpression {
public:
    /// Holds both.
    TaggingExpression(Left left, Right right) : left_(std::move(left)), right_(std::move(right)) {}

    /// The dictionary that it stands for.
    operator UserInfo() const { return mergedOperands(left_, right_); }  // NOLINT(google-explicit-constructor)

private:
    Left left_;
    Right right_;
};

/// Whether a type is a `TaggingExpression`. Internal.
template <typename Type>
inline constexpr bool isTaggingExpression = false;
template <typename Left, typename Right>
inline constexpr bool isTaggingExpression<TaggingExpression<Left, Right>> = true;

/// An operand of `|` that costs nothing to hold on to.
template <typename Operand>
concept TaggingOperand =
    UserInfoTaggingProtocol<std::remove_cvref_t<Operand>> || isTaggingExpression<std::remove_cvref_t<Operand>>;

/// An operand of `|`: a tag and the like, or a dictionary.
template <typename Operand>
concept UserInfoOperand = TaggingOperand<Operand> || UserInfoSource<std::remove_cvref_t<Operand>>;

/// Combines tags, developer names and whatever else has a name: `Tag("net") | Dev("ann")`. See
/// `mergeUserInfo` for what becomes of two values under one key.
template <TaggingOperand Left, TaggingOperand Right>
auto operator|(Left&& left, Right&& right) {
    return TaggingExpression<std::remove_cvref_t<Left>, std::remove_cvref_t<Right>>(std::forward<Left>(left),
                                                                                    std::forward<Right>(right));
}

/// Merges dictionaries, or a dictionary and a tag or the like, at once.
template <UserInfoOperand Left, UserInfoOperand Right>
UserInfo operator|(Left&& left, Right&& right) {
    return mergedOperands(left, right);
}

}  // namespace velora
