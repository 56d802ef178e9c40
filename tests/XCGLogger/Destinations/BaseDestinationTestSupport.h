#pragma once

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include <Velora_UserDefaults/Platform/DateFormatter.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/RecordingDestination.h"

namespace velora::test {

class BaseDestinationTest : public testing::Test {
protected:
    BaseDestinationTest() {
        log_->setDateFormatter(std::make_shared<const DateFormatter>("yyyy-MM-dd HH:mm:ss.SSS", "en_US_POSIX", "UTC"));
        log_->add(destination_);
    }
    ~BaseDestinationTest() override { removeDestinations(*log_); }

    /// The line that the destination makes of an ordinary record.
    std::string line(LogDetails record) {
        destination_->clear();
        destination_->process(record);
        return onlyLine();
    }
    /// The line that it makes of an internal one.
    std::string internalLine(LogDetails record) {
        destination_->clear();
        destination_->processInternal(record);
        return onlyLine();
    }
    std::string onlyLine() const {
        const std::vector<std::string> lines = destination_->lines();
        return lines.size() == 1 ? lines[0] : "not one line";
    }
    /// Switches each column by one bit of `columns`.
    void showColumns(unsigned columns) {
        destination_->setShowDate((columns & 1U) != 0);
        destination_->setShowLevel((columns & 2U) != 0);
        destination_->setShowLogIdentifier((columns & 4U) != 0);
        destination_->setShowThreadName((columns & 8U) != 0);
        destination_->setShowFileName((columns & 16U) != 0);
        destination_->setShowLineNumber((columns & 32U) != 0);
        destination_->setShowFunctionName((columns & 64U) != 0);
    }
    /// The line with nothing but the thread column.
    std::string threadLine() {
        hideColumns(*destination_);
        destination_->setShowThreadName(true);
        return line(aRecord());
    }

    std::shared_ptr<XCGLogger> log_ = make<XCGLogger>("app", false);
    std::shared_ptr<RecordingDestination> destination_ = make<RecordingDestination>(nullptr, "recording");
};

}  // namespace velora::test
