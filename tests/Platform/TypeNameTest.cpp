#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

#include <Velora_UserDefaults/Platform/TypeName.h>

namespace outer::inner {

class Plain {};
class Polymorphic {
public:
    Polymorphic() = default;
    Polymorphic(const Polymorphic&) = delete;
    Polymorphic& operator=(const Polymorphic&) = delete;
    virtual ~Polymorphic() = default;
};
class Derived : public Polymorphic {};
template <class... T>
class Box {
public:
    class Lid {};
};
class Enclosing {
public:
    class Nested {};
    template <class T>
    class Holder {};
    const std::type_info& operator<(int) const {
        class Local {};
        return typeid(Local);
    }
    const std::type_info& operator()(const std::vector<Plain>&) const {
        class Called {};
        return typeid(Called);
    }
};
enum class Color { red };

template <class T>
const std::type_info& localOfTemplate(const std::map<std::string, T>&) {
    class InTemplate {};
    return typeid(InTemplate);
}

}  // namespace outer::inner

class Global {};

namespace velora::test {
namespace {

class Hidden {};
template <class T>
class HiddenBox {};

TEST(UnqualifiedTypeName, KeepsAPlainName) {
    EXPECT_EQ(unqualifiedTypeName(typeid(Global)), "Global");
    EXPECT_EQ(unqualifiedTypeName(typeid(int)), "int");
}

TEST(UnqualifiedTypeName, DropsNamespaces) {
    EXPECT_EQ(unqualifiedTypeName(typeid(outer::inner::Plain)), "Plain");
    EXPECT_EQ(unqualifiedTypeName(typeid(outer::inner::Color)), "Color");
}

TEST(UnqualifiedTypeName, DropsAnonymousNamespaces) {
    EXPECT_EQ(unqualifiedTypeName(typeid(Hidden)), "Hidden");
    EXPECT_EQ(unqualifiedTypeName(typeid(HiddenBox<Hidden>)), "HiddenBox");
}

TEST(UnqualifiedTypeName, DropsEnclosingClasses) {
    EXPECT_EQ(unqualifiedTypeName(typeid(outer::inner::Enclosing::Nested)), "Nested");
    EXPECT_EQ(unqualifiedTypeName(typeid(outer::inner::Enclosing::Holder<outer::inner::Plain>)), "Holder");
    EXPECT_EQ(unqualifiedTypeName(typeid(outer::inner::Box<outer::inner::Plain>::Lid)), "Lid");
}

TEST(UnqualifiedTypeName, DropsTemplateArguments) {
    using outer::inner::Box;
    EXPECT_EQ(unqualifiedTypeName(typeid(Box<>)), "Box");
    EXPECT_EQ(unqualifiedTypeName(typeid(Box<int>)), "Box");
    EXPECT_EQ(unqualifiedTypeName(typeid(Box<Box<Hidden>, std::map<int, Box<int>>>)), "Box");
    EXPECT_EQ(unqualifiedTypeName(typeid(std::function<void(outer::inner::Plain)>)), "function");
    EXPECT_EQ(unqualifiedTypeName(typeid(std::string)), "basic_string");
}

TEST(UnqualifiedTypeName, DropsTheFunctionThatALocalClassIsIn) {
    class Local {};
    EXPECT_EQ(unqualifiedTypeName(typeid(Local)), "Local");
    EXPECT_EQ(unqualifiedTypeName(outer::inner::localOfTemplate<int>({})), "InTemplate");
    const auto fromLambda = []() -> const std::type_info& {
        class InLambda {};
        return typeid(InLambda);
    };
    EXPECT_EQ(unqualifiedTypeName(fromLambda()), "InLambda");
}

TEST(UnqualifiedTypeName, IsNotConfusedByBracketsInOperatorNames) {
    const outer::inner::Enclosing enclosing;
    EXPECT_EQ(unqualifiedTypeName(enclosing < 1), "Local");
    EXPECT_EQ(unqualifiedTypeName(enclosing({})), "Called");
}

TEST(UnqualifiedTypeName, DescribesALambda) {
    const auto lambda = [](const std::vector<outer::inner::Plain>&) {};
    const std::string name = unqualifiedTypeName(typeid(lambda));
    EXPECT_EQ(name.substr(0, 8), "{lambda(");
    EXPECT_EQ(name.back(), '}');
}

TEST(DynamicTypeName, IsThatOfTheMostDerivedClass) {
    const outer::inner::Derived derived;
    const outer::inner::Polymorphic& base = derived;
    EXPECT_EQ(dynamicTypeName(base), "Derived");
    EXPECT_EQ(dynamicTypeName(outer::inner::Polymorphic()), "Polymorphic");
}

TEST(DynamicTypeName, OfAClassWithoutVirtualFunctionsIsItsStaticOne) {
    EXPECT_EQ(dynamicTypeName(outer::inner::Plain()), "Plain");
}

}  // namespace
}  // namespace velora::test
