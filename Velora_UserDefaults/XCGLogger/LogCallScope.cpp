#include <utility>

#include <Velora_UserDefaults/XCGLogger/Destinations/DestinationProtocol.h>
#include <Velora_UserDefaults/XCGLogger/LogCallScope.h>

namespace velora {

thread_local constinit Date LogCallScope::date_{};
thread_local constinit int LogCallScope::depth_ = 0;
thread_local constinit std::vector<std::shared_ptr<DestinationProtocol>>* LogCallScope::kept_ = nullptr;

void LogCallScope::keepUntilCallEnds(const std::shared_ptr<DestinationProtocol>& destination) {
    if (depth_ == 0) {
        return;
    }
    if (kept_ == nullptr) {
        kept_ = new std::vector<std::shared_ptr<DestinationProtocol>>;
    }
    kept_->push_back(destination);
}

void LogCallScope::release() noexcept {
    // Cleared first: the destinations' destructors may log.
    delete std::exchange(kept_, nullptr);
}

}  // namespace velora
