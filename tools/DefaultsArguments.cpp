#include "DefaultsArguments.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace velora {

namespace {

constexpr std::array<std::string_view, 4> types = {"string", "int", "bool", "url"};
constexpr std::array<std::string_view, 3> writeOptions = {"--force", "--help", "-h"};

template <typename List>
bool has(const List& list, std::string_view text) {
    return std::find(list.begin(), list.end(), text) != list.end();
}

/// "--int" for "-int" and "--int"; empty for what names no type.
std::string typeOption(std::string_view argument) {
    if (!argument.starts_with('-')) {
        return {};
    }
    argument.remove_prefix(argument.starts_with("--") ? 2 : 1);
    return has(types, argument) ? "--" + std::string(argument) : std::string();
}

bool looksLikeOption(std::string_view argument) {
    return argument.size() > 1 && argument.starts_with('-');
}

/// Arguments sorted into options, and what stands behind them.
class Sorted {
public:
    void addOption(std::string option) { options_.push_back(std::move(option)); }
    void addOperand(std::string operand) { operands_.push_back(std::move(operand)); }
    std::size_t operands() const { return operands_.size(); }

    std::vector<std::string> joined() const {
        std::vector<std::string> all = options_;
        all.emplace_back("--");
        all.insert(all.end(), operands_.begin(), operands_.end());
        return all;
    }

private:
    std::vector<std::string> options_;
    std::vector<std::string> operands_;
};

/// Whether `argument` of `write` is an option, behind so many operands. Right behind the key, a dash may begin a value.
bool isWriteOption(std::string_view argument, std::size_t operands) {
    return has(writeOptions, argument) || (operands != 1 && looksLikeOption(argument));
}

std::vector<std::string> writeArguments(const std::vector<std::string>& arguments) {
    Sorted sorted;
    sorted.addOption(arguments.front());
    bool isTyped = false;
    bool onlyOperands = false;
    for (std::size_t index = 1; index < arguments.size(); ++index) {
        const std::string& argument = arguments[index];
        const bool isValue = onlyOperands || (isTyped && sorted.operands() == 1);
        const std::string type = isValue || sorted.operands() > 1 ? std::string() : typeOption(argument);
        if (!isValue && argument == "--") {
            onlyOperands = true;
        } else if (!type.empty()) {
            sorted.addOption(type);
            isTyped = true;
        } else if (!isValue && isWriteOption(argument, sorted.operands())) {
            sorted.addOption(argument);
        } else {
            sorted.addOperand(argument);
        }
    }
    return sorted.joined();
}

std::vector<std::string> argumentsWithOperands(const std::vector<std::string>& arguments) {
    Sorted sorted;
    sorted.addOption(arguments.front());
    bool onlyOperands = false;
    for (std::size_t index = 1; index < arguments.size(); ++index) {
        if (!onlyOperands && arguments[index] == "--") {
            onlyOperands = true;
        } else if (!onlyOperands && looksLikeOption(arguments[index])) {
            sorted.addOption(arguments[index]);
        } else {
            sorted.addOperand(arguments[index]);
        }
    }
    return sorted.joined();
}

}  // namespace

std::vector<std::string> parserArguments(const std::vector<std::string>& arguments) {
    constexpr std::array<std::string_view, 6> withOperands = {"read",  "describe", "delete",
                                                              "reset", "export",   "import"};
    if (arguments.empty()) {
        return arguments;
    }
    if (arguments.front() == "write") {
        return writeArguments(arguments);
    }
    return has(withOperands, arguments.front()) ? argumentsWithOperands(arguments) : arguments;
}

}  // namespace velora
