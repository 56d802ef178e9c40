#pragma once

#include <atomic>
#include <string>

#include <Velora_UserDefaults/Platform/DateFormatter.h>

namespace velora::test {

/// Gives "_1", "_2", … whatever the date, so that archives have names in the order in which they are made.
class CountingFormatter : public DateFormatter {
public:
    CountingFormatter() : DateFormatter("yyyy") {}
    void append(Date /*date*/, std::string& out) const override { out += "_" + std::to_string(++count_); }

private:
    mutable std::atomic<int> count_ = 0;
};

}  // namespace velora::test
