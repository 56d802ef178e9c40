#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/Making.h>

namespace velora::test {
namespace {

int livingThings = 0;

class Thing : public MadeInTwoSteps, public std::enable_shared_from_this<Thing> {
public:
    explicit Thing(Making key, std::string name = "unnamed") : MadeInTwoSteps(key), name_(std::move(name)) {
        ++livingThings;
        steps.emplace_back("constructed");
    }
    ~Thing() override { --livingThings; }

    const std::string& name() const { return name_; }
    std::vector<std::string> steps;
    std::shared_ptr<Thing> seenInSecondStep;

protected:
    void finishMaking() override {
        MadeInTwoSteps::finishMaking();
        steps.emplace_back("finished");
        addToSteps();
        seenInSecondStep = shared_from_this();
    }
    virtual void addToSteps() { steps.emplace_back("base"); }

private:
    std::string name_;
};

class DerivedThing : public Thing {
public:
    using Thing::Thing;

protected:
    void addToSteps() override { steps.emplace_back("override"); }
};

class MoveOnlyThing : public MadeInTwoSteps {
public:
    MoveOnlyThing(Making key, std::unique_ptr<int> value) : MadeInTwoSteps(key), value(std::move(value)) {}
    std::unique_ptr<int> value;
};

class UnfinishableThing : public Thing {
public:
    using Thing::Thing;

protected:
    void finishMaking() override { throw std::runtime_error("cannot finish"); }
};

template <typename Type>
concept Braceable = requires {
    Type{};
};

// There is no other way than `make`.
static_assert(!std::is_default_constructible_v<Making> && !Braceable<Making> && !std::is_aggregate_v<Making>);
static_assert(!std::is_constructible_v<Thing> && !std::is_constructible_v<Thing, std::string>);
static_assert(!std::is_constructible_v<DerivedThing> && !std::is_constructible_v<DerivedThing, std::string>);
static_assert(!std::is_copy_constructible_v<Thing> && !std::is_move_constructible_v<Thing>);
static_assert(std::is_constructible_v<DerivedThing, Making, std::string>, "which inherits its constructors");

TEST(Making, ReachesOverridesAndTheSharedPointerInTheSecondStep) {
    const auto thing = make<DerivedThing>("derived");
    EXPECT_EQ(thing->name(), "derived");
    EXPECT_THAT(thing->steps, testing::ElementsAre("constructed", "finished", "override"));
    EXPECT_EQ(thing->seenInSecondStep, thing);
    thing->seenInSecondStep = nullptr;
}

TEST(Making, HandsOnArgumentsThatCanOnlyBeMoved) {
    const auto thing = make<MoveOnlyThing>(std::make_unique<int>(7));
    ASSERT_TRUE(thing->value);
    EXPECT_EQ(*thing->value, 7);
}

class CuriousThing : public Thing {
public:
    using Thing::Thing;

    template <typename Class>
    void learnClass(Making /*key*/) {
        steps.emplace_back(std::is_same_v<Class, CuriousThing> ? "learned itself" : "learned a subclass");
    }
};

class DerivedCuriousThing final : public CuriousThing {
public:
    using CuriousThing::CuriousThing;
};

TEST(Making, TellsABaseWhichClassItMakesBeforeTheSecondStep) {
    const auto base = make<CuriousThing>();
    EXPECT_THAT(base->steps, testing::ElementsAre("constructed", "learned itself", "finished", "base"));
    const auto derived = make<DerivedCuriousThing>();
    EXPECT_THAT(derived->steps, testing::ElementsAre("constructed", "learned a subclass", "finished", "base"));
    base->seenInSecondStep.reset();
    derived->seenInSecondStep.reset();
}

TEST(Making, LeavesNothingBehindWhenTheSecondStepThrows) {
    const int before = livingThings;
    EXPECT_THROW(make<UnfinishableThing>("never"), std::runtime_error);
    EXPECT_EQ(livingThings, before);
}

}  // namespace
}  // namespace velora::test
