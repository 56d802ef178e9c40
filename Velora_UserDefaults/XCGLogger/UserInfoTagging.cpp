#include <algorithm>
#include <any>
#include <iterator>

#include <Velora_UserDefaults/XCGLogger/UserInfoTagging.h>
#include <Velora_UserDefaults/XCGLogger/UserInfoValue.h>

namespace velora {

namespace {

std::any listOf(std::vector<std::any> elements) {
    const bool areTexts = std::all_of(elements.begin(), elements.end(),
                                      [](const std::any& element) { return textIn(element).has_value(); });
    if (!areTexts) {
        return elements;
    }
    std::vector<std::string> texts;
    texts.reserve(elements.size());
    for (const std::any& element : elements) {
        texts.emplace_back(*textIn(element));
    }
    return texts;
}

std::any mergedValue(const std::any& existing, const std::any& added) {
    if (isSet(existing) || isSet(added)) {
        return existing;
    }
    const auto existingList = elementsOfList(existing);
    const auto addedList = elementsOfList(added);
    std::vector<std::any> first = existingList.value_or(std::vector<std::any>(1, existing));
    std::vector<std::any> second = addedList.value_or(std::vector<std::any>(1, added));
    if (addedList && !existingList) {
        std::swap(first, second);
    }
    std::move(second.begin(), second.end(), std::back_inserter(first));
    return listOf(std::move(first));
}

}  // namespace

UserInfo mergeUserInfo(UserInfo base, const UserInfo& added) {
    for (const auto& [key, value] : added) {
        const auto [entry, isNew] = base.try_emplace(key, value);
        if (!isNew) {
            entry->second = mergedValue(entry->second, value);
        }
    }
    return base;
}

}  // namespace velora
