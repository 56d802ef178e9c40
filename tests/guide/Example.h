#pragma once

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <support/TemporaryFolder.h>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora::test {

/// One example of the documentation, and what the page says that it prints. The code is made of the page by
/// examples.py; an object of this kind announces it to the tests.
struct Example {
    using Code = void (*)(const std::shared_ptr<XCGLogger>& log);

    Example(std::string page_, int line_, std::string file_, std::optional<std::string> output_, std::string shown_,
            Code run_)
        : page(std::move(page_)),
          line(line_),
          file(std::move(file_)),
          output(std::move(output_)),
          shown(std::move(shown_)),
          run(run_) {
        all().push_back(*this);
    }

    static std::vector<Example>& all() {
        static std::vector<Example> examples;
        return examples;
    }

    /// "first-line.md:7"
    std::string name() const { return page + ":" + std::to_string(line); }

    std::string page;
    /// Where in the page the code begins.
    int line;
    /// The name that the code has for a source file.
    std::string file;
    /// What the page shows as the output, if it shows one.
    std::optional<std::string> output;
    /// The output has only the lines that hold this text.
    std::string shown;
    Code run;
};

}  // namespace velora::test

namespace velora {

using test::readFile;

/// For what an example does besides printing, in the page's comments: ends the program if it is not so.
inline void expectAt(bool isSo, const char* what, int line) {
    if (!isSo) {
        std::cerr << "line " << line << " of the page: not so: " << what << '\n';
        std::_Exit(EXIT_FAILURE);
    }
}

}  // namespace velora

// A macro, so that the message names the expectation.
#define expect(...) ::velora::expectAt(static_cast<bool>(__VA_ARGS__), #__VA_ARGS__, __LINE__)
