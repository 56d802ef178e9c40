#pragma once

#include <semaphore>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>

namespace velora::test {

/// Keeps a queue's thread busy from its construction until `open()`.
class Barrier {
public:
    explicit Barrier(DispatchQueue& queue) {
        queue.async([this] {
            reached_.release();
            opened_.acquire();
        });
        reached_.acquire();
    }
    void open() { opened_.release(); }

private:
    std::binary_semaphore reached_{0};
    std::binary_semaphore opened_{0};
};

}  // namespace velora::test
