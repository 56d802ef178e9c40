// User info: merged, as the rules for two values under one key say it, and judged by filters. Each line is an entry: a
// digit for the dictionary (0 the base, else the added one), one for the kind of its value, the key up to a "=", and
// texts parted by ",". The first line is the list of a filter and the second that of a filter of file names.

#include <algorithm>
#include <any>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <support/Fuzzing.h>
#include <unordered_set>
#include <vector>

#include <Velora_UserDefaults/Platform/Making.h>
#include <Velora_UserDefaults/XCGLogger/Constants.h>
#include <Velora_UserDefaults/XCGLogger/Filters/FileNameFilter.h>
#include <Velora_UserDefaults/XCGLogger/Filters/TagFilter.h>
#include <Velora_UserDefaults/XCGLogger/UserInfoTagging.h>

namespace velora::test {
namespace {

using Texts = std::vector<std::string>;

enum class Form : std::uint8_t { single, list, set };

/// A value as the rules see it. An element that is no text has a "#" before it, one that is text a "'".
struct Model {
    Form form = Form::single;
    Texts elements;
    bool operator==(const Model&) const = default;

    bool onlyTexts() const {
        return std::all_of(elements.begin(), elements.end(),
                           [](const std::string& element) { return element.starts_with('\''); });
    }
};

struct Value {
    std::any value;
    Model model;
};

Texts split(std::string_view text, char separator) {
    Texts parts;
    Input input(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    while (!input.atEnd()) {
        parts.emplace_back(input.until(separator));
    }
    return parts;
}

Texts marked(const Texts& texts) {
    Texts result;
    for (const std::string& text : texts) {
        result.push_back("'" + text);
    }
    return result;
}

/// A list in which every other element is a number.
Value mixedList(const Texts& texts) {
    Value value{.value = {}, .model = {.form = Form::list, .elements = {}}};
    std::vector<std::any> elements;
    for (const std::string& text : texts) {
        elements.emplace_back(text);
        elements.emplace_back(static_cast<int>(text.size()));
        value.model.elements.insert(value.model.elements.end(), {"'" + text, fmt::format("#{}", text.size())});
    }
    value.value = std::move(elements);
    return value;
}

Model modelOfSet(const std::set<std::string>& texts) {
    return {.form = Form::set, .elements = marked(Texts(texts.begin(), texts.end()))};
}

Value valueOf(std::size_t kind, const Texts& texts) {
    const std::set<std::string> set(texts.begin(), texts.end());
    const std::string first = texts.empty() ? "" : texts.front();
    switch (kind) {
        case 0:
            return {.value = first, .model = {.form = Form::single, .elements = {"'" + first}}};
        case 1:
            return {.value = texts, .model = {.form = Form::list, .elements = marked(texts)}};
        case 2:
            return {.value = set, .model = modelOfSet(set)};
        case 3:
            return {.value = std::unordered_set<std::string>(set.begin(), set.end()), .model = modelOfSet(set)};
        case 4:
            return mixedList(texts);
        case 5:
            return {.value = true, .model = {.form = Form::single, .elements = {"#true"}}};
        case 6:
            return {.value = std::vector<std::any>(texts.begin(), texts.end()),
                    .model = {.form = Form::list, .elements = marked(texts)}};
        default:
            return {.value = static_cast<int>(first.size()),
                    .model = {.form = Form::single, .elements = {fmt::format("#{}", first.size())}}};
    }
}

Model merged(const Model& base, const Model& added) {
    if (base.form == Form::set || added.form == Form::set) {
        return base;
    }
    const bool addedFirst = base.form == Form::single && added.form == Form::list;
    Model result{.form = Form::list, .elements = addedFirst ? added.elements : base.elements};
    const Texts& rest = addedFirst ? base.elements : added.elements;
    result.elements.insert(result.elements.end(), rest.begin(), rest.end());
    return result;
}

std::string elementOf(const std::any& element) {
    if (const auto* text = std::any_cast<std::string>(&element)) {
        return "'" + *text;
    }
    if (const auto* number = std::any_cast<int>(&element)) {
        return fmt::format("#{}", *number);
    }
    require(std::any_cast<bool>(&element) != nullptr, "an element is one that was put in");
    return "#true";
}

Model modelOf(const std::any& value) {
    if (const auto* texts = std::any_cast<Texts>(&value)) {
        return {.form = Form::list, .elements = marked(*texts)};
    }
    if (const auto* set = std::any_cast<std::set<std::string>>(&value)) {
        return modelOfSet(*set);
    }
    if (const auto* set = std::any_cast<std::unordered_set<std::string>>(&value)) {
        return modelOfSet({set->begin(), set->end()});
    }
    Model model;
    if (const auto* elements = std::any_cast<std::vector<std::any>>(&value)) {
        model.form = Form::list;
        std::transform(elements->begin(), elements->end(), std::back_inserter(model.elements), elementOf);
        return model;
    }
    model.elements = {elementOf(value)};
    return model;
}

struct Dictionary {
    UserInfo userInfo;
    std::map<std::string, Model> models;

    void add(const std::string& key, const Value& value) {
        userInfo[key] = value.value;
        models[key] = value.model;
    }
};

/// Whether a filter's list has one of the texts under the filter's key.
bool matches(const Dictionary& dictionary, const std::string& key, const std::set<std::string>& items) {
    const auto found = dictionary.models.find(key);
    if (found == dictionary.models.end() || !found->second.onlyTexts()) {
        return false;
    }
    return std::any_of(found->second.elements.begin(), found->second.elements.end(),
                       [&](const std::string& element) { return items.contains(element.substr(1)); });
}

Dictionary checkedMerge(const Dictionary& base, const Dictionary& added) {
    Dictionary result{.userInfo = mergeUserInfo(base.userInfo, added.userInfo), .models = base.models};
    for (const auto& [key, model] : added.models) {
        const auto [entry, isNew] = result.models.try_emplace(key, model);
        entry->second = isNew ? model : merged(entry->second, model);
    }
    require(result.userInfo.size() == result.models.size(), "merging keeps every key");
    for (const auto& [key, model] : result.models) {
        require(modelOf(result.userInfo.at(key)) == model, "the value under a key is merged: " + key);
    }
    return result;
}

void checkTagFilter(const Dictionary& dictionary, const Texts& items) {
    const std::set<std::string> distinct(items.begin(), items.end());
    const bool matched = matches(dictionary, std::string(Constants::userInfoKeyTags), distinct);
    const auto including = make<TagFilter>(IncludeFrom(items));
    const auto excluding = make<TagFilter>(ExcludeFrom(items));
    including->setApplyFilterToInternalMessages(true);
    excluding->setApplyFilterToInternalMessages(true);
    LogDetails details{.level = Level::info, .userInfo = dictionary.userInfo};
    std::string message = "line";
    requireSame(including->shouldExclude(details, message), !matched, "an allow list");
    requireSame(excluding->shouldExclude(details, message), matched, "a block list");
    for (const std::string& item : distinct) {
        require(!including->addItem(item), "an item is listed once");
        require(including->debugDescription().find(item) != std::string::npos, "each item is described");
    }
}

void checkFileNameFilter(const Texts& names, const std::string& fileName) {
    const auto nameOf = [](std::string path) {
        while (path.size() > 1 && path.back() == '/') {
            path.pop_back();
        }
        return path == "/" ? path : path.substr(path.rfind('/') + 1);
    };
    const auto filter = make<FileNameFilter>(ExcludeFrom(names));
    const auto exact = make<FileNameFilter>(ExcludeFrom(names), /*excludePathWhenMatching=*/false);
    LogDetails details{.level = Level::info, .fileName = std::string_view(fileName)};
    std::string message;
    const bool hasName = std::any_of(names.begin(), names.end(),
                                     [&](const std::string& name) { return nameOf(name) == nameOf(fileName); });
    requireSame(filter->shouldExclude(details, message), hasName, "a file's name");
    requireSame(exact->shouldExclude(details, message), std::find(names.begin(), names.end(), fileName) != names.end(),
                "a file's path");
}

}  // namespace
}  // namespace velora::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace std::string_literals;
    velora::test::Input input(data, size);
    const velora::test::Texts items = velora::test::split(input.line(), ',');
    velora::test::Texts fileNames = velora::test::split(input.line(), ',');
    const std::string fileName = fileNames.empty() ? ""s : fileNames.back();
    velora::test::checkFileNameFilter(fileNames, "/folder/" + fileName);
    velora::test::checkFileNameFilter(items, fileName);
    velora::test::Dictionary base;
    velora::test::Dictionary added;
    while (!input.atEnd()) {
        velora::test::Dictionary& dictionary = input.number(2) == 0 ? base : added;
        const std::size_t kind = input.number(8);
        std::string key(input.until('='));
        // The key that a filter of tags looks at is long: "t" is short for it.
        key = key == "t" ? std::string(velora::Constants::userInfoKeyTags) : key;
        dictionary.add(key, velora::test::valueOf(kind, velora::test::split(input.line(), ',')));
    }
    velora::test::checkTagFilter(base, items);
    velora::test::checkTagFilter(velora::test::checkedMerge(base, added), items);
    return 0;
}
