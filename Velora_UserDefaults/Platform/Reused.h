#pragma once

#include <memory>

namespace velora {

/// Borrows the calling thread's one spare object of a type, so that a buffer needed on every call is
/// allocated once per thread and not once per call. Internal.
///
/// The object comes as its last user left it. While it is borrowed, a nested borrower on the same
/// thread gets a new one, and so does a thread whose thread-local objects are gone already (a static
/// destructor that still logs); those are deleted when they are given back.
///
///     Reused<std::string> line;
///     line->clear();
///
/// `Object` is default-constructible and has no thread affinity. Each type has its own spare.
template <typename Object>
class Reused {
public:
    Reused() : object_(takeSpare()) {}
    Reused(const Reused&) = delete;
    Reused& operator=(const Reused&) = delete;
    ~Reused() { giveBack(object_); }

    Object& operator*() const noexcept { return *object_; }
    Object* operator->() const noexcept { return object_; }

private:
    // Trivially destructible, so that it can be read at any time in the life of a thread.
    struct Slot {
        Object* spare;
        bool isArmed;
        bool isGone;
    };
    struct Disposer {
        ~Disposer() {
            slot_.isGone = true;
            delete slot_.spare;
            slot_.spare = nullptr;
        }
    };

    static Object* takeSpare() {
        if (Object* const spare = slot_.spare) {
            slot_.spare = nullptr;
            return spare;
        }
        return new Object;
    }

    static void giveBack(Object* object) noexcept {
        if (slot_.spare != nullptr || slot_.isGone) {
            delete object;
            return;
        }
        if (!slot_.isArmed) {
            static thread_local const Disposer disposer;
            static_cast<void>(disposer);
            slot_.isArmed = true;
        }
        slot_.spare = object;
    }

    // The library is linked, not opened late, so its few pointers fit the static thread-local block;
    // this spares a call for each access.
    __attribute__((tls_model("initial-exec"))) static inline thread_local constinit Slot slot_{};

    Object* object_;
};

}  // namespace velora
