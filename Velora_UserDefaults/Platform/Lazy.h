#pragma once

#include <atomic>
#include <memory>

namespace velora {

/// An object that is made at its first use and never destroyed, for use by static objects that go late, too. Internal.
///
///     static constinit Lazy<const std::string> name;
///     return name.get([] { return new std::string(findName()); });
///
/// Thread-safe and lock-free: threads that come first at the same time each make one, and all but one are deleted. A
/// child forked while another thread makes it makes its own; with a static object of a function it would wait for ever
/// for that thread, which the child has not.
template <typename Object>
class Lazy {
public:
    constexpr Lazy() = default;

    /// The object; `make` returns one made with `new`.
    template <typename Make>
    Object& get(Make make) {
        Object* object = object_.load(std::memory_order_acquire);
        if (object == nullptr) [[unlikely]] {
            std::unique_ptr<Object> made(make());
            if (object_.compare_exchange_strong(object, made.get(), std::memory_order_acq_rel)) {
                object = made.release();
            }
        }
        return *object;
    }

private:
    std::atomic<Object*> object_ = nullptr;
};

}  // namespace velora
