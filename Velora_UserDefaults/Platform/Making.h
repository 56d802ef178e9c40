#pragma once

#include <concepts>
#include <memory>
#include <type_traits>
#include <utility>

#include <Velora_UserDefaults/Platform/Export.h>

namespace velora {

class MadeInTwoSteps;

/// A class whose objects `make` makes.
template <typename Object>
concept MakeableObject = std::derived_from<Object, MadeInTwoSteps>;

class Making;

template <MakeableObject Object, typename... Arguments>
requires std::constructible_from<Object, Making, Arguments...> std::shared_ptr<Object> make(Arguments&&... arguments);

/// The pass key that lets `make` alone run the constructors of shared objects. A constructor takes it
/// first and hands it on to its base; nothing else can create one.
class Making {
    explicit Making() = default;
    template <MakeableObject Object, typename... Arguments>
    requires std::constructible_from<Object, Making, Arguments...>
    friend std::shared_ptr<Object> make(Arguments&&... arguments);
};

/// The base of the shared objects whose making calls operations that a subclass may override.
///
/// A constructor cannot reach an override, nor hand out a shared pointer to the object. So `make`
/// constructs first and then runs `finishMaking`, where both are possible.
///
/// A base that does less work where its operations are not overridden has a member template
/// `void learnClass<Class>(Making)`: `make` calls it, between the two, with the class that it makes.
class VELORA_EXPORT MadeInTwoSteps {
public:
    /// Only `make` has a key.
    explicit MadeInTwoSteps(Making /*key*/) {}
    MadeInTwoSteps(const MadeInTwoSteps&) = delete;
    MadeInTwoSteps& operator=(const MadeInTwoSteps&) = delete;

protected:
    virtual ~MadeInTwoSteps() = default;

    /// The second step. An override calls its base's first.
    virtual void finishMaking() {}

private:
    template <MakeableObject Object, typename... Arguments>
    requires std::constructible_from<Object, Making, Arguments...>
    friend std::shared_ptr<Object> make(Arguments&&... arguments);
};

/// Makes a shared object: `make<ConsoleDestination>(nullptr, "console")`. The arguments are those of
/// the class's constructor without its key.
template <MakeableObject Object, typename... Arguments>
requires std::constructible_from<Object, Making, Arguments...> std::shared_ptr<Object> make(Arguments&&... arguments) {
    auto object = std::make_shared<Object>(Making(), std::forward<Arguments>(arguments)...);
    if constexpr (requires { object->template learnClass<Object>(Making()); }) {
        object->template learnClass<Object>(Making());
    }
    static_cast<MadeInTwoSteps&>(*object).finishMaking();
    return object;
}

}  // namespace velora
