// Boost.Log in the rows that are compared. The place of a call is added to each record as its documentation does it;
// its dates have microseconds.

#include <benchmark/benchmark.h>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/log/attributes/clock.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/text_ostream_backend.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_logger.hpp>
#include <boost/log/support/date_time.hpp>
#include <boost/log/trivial.hpp>
#include <boost/log/utility/manipulators/add_value.hpp>
#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <fstream>
#include <string>
#include <vector>

#include "support/Measuring.h"

namespace velora::bench {

namespace {

namespace expr = boost::log::expressions;
namespace sinks = boost::log::sinks;
using boost::log::trivial::severity_level;

/// Lets finished lines go.
class DiscardingBackend : public sinks::basic_formatted_sink_backend<char, sinks::synchronized_feeding> {
public:
    void consume(const boost::log::record_view& /*record*/, const string_type& line) { Discarded::take(line); }
};

template <typename Backend>
boost::shared_ptr<sinks::sink> sinkWith(const boost::shared_ptr<Backend>& backend) {
    auto sink = boost::make_shared<sinks::synchronous_sink<Backend>>(backend);
    sink->set_formatter(
        expr::stream << expr::format_date_time<boost::posix_time::ptime>("TimeStamp", "%Y-%m-%d %H:%M:%S.%f") << " ["
                     << boost::log::trivial::severity << "] [" << expr::attr<std::string>("File") << ':'
                     << expr::attr<int>("Line") << "] " << expr::attr<std::string>("Function") << " > "
                     << expr::smessage);
    return sink;
}

class BoostLogger {
public:
    explicit BoostLogger(boost::shared_ptr<sinks::sink> sink, severity_level level = severity_level::info)
        : sink_(std::move(sink)) {
        const auto core = boost::log::core::get();
        core->add_global_attribute("TimeStamp", boost::log::attributes::local_clock());
        core->set_filter(boost::log::trivial::severity >= level);
        core->add_sink(sink_);
    }
    BoostLogger(const BoostLogger&) = delete;
    BoostLogger& operator=(const BoostLogger&) = delete;
    ~BoostLogger() { boost::log::core::get()->remove_sink(sink_); }

    void logLine(int number) { log(severity_level::info, number, static_cast<const char*>(__func__)); }
    void logBelowLevel(int number) { log(severity_level::debug, number, static_cast<const char*>(__func__)); }

private:
    void log(severity_level level, int number, const char* function) {
        BOOST_LOG_SEV(log_, level) << boost::log::add_value("File", __FILE_NAME__)
                                   << boost::log::add_value("Line", __LINE__)
                                   << boost::log::add_value("Function", function) << "message number " << number
                                   << " of this run";
    }

    boost::shared_ptr<sinks::sink> sink_;
    boost::log::sources::severity_logger_mt<severity_level> log_;
};

void belowLevel(benchmark::State& state) {
    BoostLogger log(sinkWith(boost::make_shared<DiscardingBackend>()), severity_level::error);
    measureCalls(state, [&](int number) { log.logBelowLevel(number); });
}
BENCHMARK(belowLevel)->Name("below-level/Boost.Log");

void composed(benchmark::State& state) {
    BoostLogger log(sinkWith(boost::make_shared<DiscardingBackend>()));
    measureDiscarded(state, [&](int number) { log.logLine(number); });
}
BENCHMARK(composed)->Name("composed/Boost.Log");

void measureFile(benchmark::State& state, bool flushesEachLine) {
    const LogFile file("boost.log");
    std::vector<char> buffer(65'536);  // as large as ours
    {
        const auto stream = boost::make_shared<std::ofstream>();
        stream->rdbuf()->pubsetbuf(buffer.data(), static_cast<std::streamsize>(buffer.size()));
        stream->open(file.path(), std::ios::trunc);
        const auto backend = boost::make_shared<sinks::text_ostream_backend>();
        backend->add_stream(stream);
        backend->auto_flush(flushesEachLine);
        BoostLogger log(sinkWith(backend));
        measureCalls(state, [&](int number) { log.logLine(number); });
    }
    file.check(state, state.iterations());
}

void fileInKernel(benchmark::State& state) {
    measureFile(state, true);
}
BENCHMARK(fileInKernel)->Name("file-kernel/Boost.Log")->Apply(fileLines);

void fileBuffered(benchmark::State& state) {
    measureFile(state, false);
}
BENCHMARK(fileBuffered)->Name("file-buffered/Boost.Log")->Apply(fileLines);

}  // namespace

}  // namespace velora::bench
