#include <utility>

#include <Velora_UserDefaults/Platform/DefaultsStoreSnapshot.h>

namespace velora {

DefaultsStoreContent::DefaultsStoreContent(std::string text, const DefaultsStoreDocument& document)
    : text(std::move(text)) {
    for (const DefaultsStoreDocument::Member& member : document.members()) {
        if (member.key) {
            values.set(*member.key, DefaultsStoreValue::fromJSON(member.json));
        }
    }
}

}  // namespace velora
