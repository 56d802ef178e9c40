#pragma once

#include <string>
#include <vector>

namespace velora {

/// The arguments of velora-defaults in the form that its parser takes: a type may be asked for by `-int` as well as
/// by `--int`, and keys, values and files stand behind a `--`, so that one may begin with a dash or be called like a
/// command.
///
/// In `write KEY VALUE` everything behind the key that is no option of `write` is the value, and so is whatever
/// follows the key and a type.
std::vector<std::string> parserArguments(const std::vector<std::string>& arguments);

}  // namespace velora
