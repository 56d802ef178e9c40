// Our file destination with its pending lines in a file, which a crash does not cost.

#include <benchmark/benchmark.h>
#include <memory>

#include "support/Measuring.h"
#include "support/OurLogger.h"

namespace velora::bench {

namespace {

/// A file destination whose lines wait in another file.
class KeptFile {
public:
    explicit KeptFile(std::shared_ptr<DispatchQueue> queue) : destination_(ourFile(log.path(), std::move(queue))) {
        if (const auto kept = destination_->setPendingLinesFile(pending_.path()); !kept) {
            error_ = kept.error().description;
        }
    }

    const std::shared_ptr<FileDestination>& destination(benchmark::State& state) const {
        if (!error_.empty()) {
            state.SkipWithError(error_.c_str());
        }
        return destination_;
    }

    const LogFile log{"ours-kept.log"};

private:
    const LogFile pending_{"ours-kept.pending"};
    std::shared_ptr<FileDestination> destination_;
    std::string error_;
};

void buffered(benchmark::State& state) {
    const KeptFile file(nullptr);
    file.destination(state)->setWriteBufferCapacity(65'536);
    {
        const OurLogger log(file.destination(state));
        measureCalls(state, [&](int number) { log.logLine(number); });
    }
    file.log.check(state, state.iterations());
}
BENCHMARK(buffered)->Name("kept-buffered/ours")->Apply(fileLines);

void queueEndToEnd(benchmark::State& state) {
    const auto queue = DispatchQueue::make("bench");
    const KeptFile file(queue);
    {
        const OurLogger log(file.destination(state));
        measureQueue(
            state, [&](int number) { log.logLine(number); }, [&] { queue->drain(); });
    }
    file.log.check(state, queuedLines());
}
BENCHMARK(queueEndToEnd)->Name("kept-end-to-end/ours")->Apply(queued);

void queueCaller(benchmark::State& state) {
    const KeptFile file(DispatchQueue::make("bench"));
    {
        const OurLogger log(file.destination(state));
        measureBursts(state, [&](int number) { log.logLine(number); });
    }
    file.log.check(state, bursts() * burstLines);
}
BENCHMARK(queueCaller)->Name("kept-caller/ours")->Apply(bursting);

}  // namespace

}  // namespace velora::bench
