#pragma once

/// Keeps exceptions from leaving a piece of code. Internal.

#include <cxxabi.h>
#include <exception>
#include <string>
#include <string_view>

namespace velora {

/// The name of the type of the exception being handled, as in C++ source; inside a `catch` block only.
std::string currentExceptionTypeName();

/// What `guarded` does with the exception being handled; apart from it, so that `guarded` is inlined.
// A cancellation is caught without an object, by a reference to none: a sanitizer must not take offence.
template <class Report>
__attribute__((cold, noinline, no_sanitize("null"))) void reportCurrentException(Report& report) {
    try {
        throw;
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (const std::exception& exception) {
        const char* text = exception.what();
        if (text != nullptr && *text != '\0') {
            report(std::string_view(text));
        } else {
            report(std::string_view(currentExceptionTypeName()));
        }
    } catch (...) {
        report(std::string_view(currentExceptionTypeName()));
    }
}

/// Runs `closure()` and returns whether it came to its end. If it throws, `report(text)` gets a description of the
/// exception as `std::string_view`, valid during the call: what `what()` says, or for an exception that is no
/// `std::exception`, or says nothing, the name of its type.
///
/// What `report` throws goes to the caller. Cancellation of the thread (pthread_cancel(3), pthread_exit(3)), which
/// passes through C++ code as if it were an exception, goes on, as it must, and is not reported.
/// Runs on the calling thread, and costs nothing unless something is thrown.
template <class Closure, class Report>
bool guarded(Closure&& closure,
             Report&& report) {  // NOLINT(cppcoreguidelines-missing-std-forward): called, not passed on
    try {
        closure();
        return true;
    } catch (...) {
        reportCurrentException(report);
        return false;
    }
}

}  // namespace velora
