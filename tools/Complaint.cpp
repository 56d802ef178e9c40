#include "Complaint.h"

#include <cstring>
#include <iostream>

#include "TerminalText.h"

namespace velora {

void complain(std::string_view text) {
    std::cerr << VELORA_TOOL ": " << printable(text) << "\n";
}

std::string_view reasonOf(int error) {
    const char* const reason = ::strerrordesc_np(error);
    return reason == nullptr ? "Unknown error" : reason;
}

}  // namespace velora
