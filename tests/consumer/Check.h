#pragma once

#include <cstdlib>
#include <iostream>
#include <source_location>

/// Ends the program with a message unless `holds`.
inline void check(bool holds, std::source_location place = std::source_location::current()) {
    if (!holds) {
        std::cerr << place.file_name() << ':' << place.line() << ": what " << place.function_name()
                  << " expects does not hold\n";
        std::exit(EXIT_FAILURE);
    }
}
