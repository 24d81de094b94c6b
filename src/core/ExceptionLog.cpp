#include "ExceptionLog.h"

#include "Log.h"

#include <atomic>
#include <cstdlib>
#include <cxxabi.h>
#include <dlfcn.h>
#include <exception>
#include <memory>
#include <pthread.h>
#include <string>
#include <typeinfo>

namespace {

using ThrowRoutine = void (*)(void *, std::type_info *, void (*)(void *));

// The routine after ours in the search order: the C++ runtime's, or the sanitizer's wrapper of
// it. Constant-initialised, so a throw from a static initialiser that runs before ours finds it
// empty and resolves it then.
std::atomic<ThrowRoutine> nextThrow { nullptr };

// Set while this thread logs, so that an exception thrown by the logging goes straight on.
thread_local bool logging = false;

ThrowRoutine resolveNextThrow()
{
    ThrowRoutine next = nextThrow.load(std::memory_order_acquire);
    if (next == nullptr) {
        // Every thread finds the same routine: a race stores the same value twice.
        next = reinterpret_cast<ThrowRoutine>(::dlsym(RTLD_NEXT, "__cxa_throw"));
        nextThrow.store(next, std::memory_order_release);
    }
    return next;
}

std::string typeName(const std::type_info &type)
{
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> demangled(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
    return status == 0 && demangled ? demangled.get() : type.name();
}

// what() when a handler of std::exception would catch the object, else null. Asked as the
// unwinder asks it, which also finds a std::exception that is not the first base, and
// adjusts the pointer to it.
const char *reasonOf(void *thrown, const std::type_info &type)
{
    void *object = thrown;
    if (!typeid(std::exception).__do_catch(&type, &object, 1))
        return nullptr;
    return static_cast<const std::exception *>(object)->what();
}

void logThrow(void *thrown, const std::type_info &type)
{
    // Writing the log is a cancellation point; a cancelled thread unwinds from its own throw.
    int cancelState = 0;
    ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState);
    try {
        const char *reason = reasonOf(thrown, type);
        std::string line = "EXCEPTION WITH NAME ";
        line += typeName(type);
        line += " REASON ";
        line += reason ? reason : "(null)";
        mylog(line.c_str());
    } catch (...) {
        // Deliberate: a line that cannot be written never stops the exception it reports.
    }
    ::pthread_setcancelstate(cancelState, nullptr);
}

__attribute__((constructor)) void installBeforeMain()
{
    vantrel::installExceptionLog();
}

} // namespace

void vantrel::installExceptionLog()
{
    resolveNextThrow();
}

bool vantrel::exceptionLogInstalled()
{
    return nextThrow.load(std::memory_order_acquire) != nullptr;
}

// Replaces the runtime's routine for the whole process: the executable comes first in the
// search order, so throws in every shared library, also those opened later, land here. Defined
// where <cxxabi.h> declares it ([[noreturn]] there), with the same signature.
namespace __cxxabiv1 {
extern "C" __attribute__((noreturn, visibility("default"))) void
__cxa_throw(void *thrown, std::type_info *type, void (*destroy)(void *))
{
    if (!logging) {
        logging = true;
        logThrow(thrown, *type);
        logging = false;
    }
    const ThrowRoutine next = resolveNextThrow();
    if (next == nullptr)
        std::abort(); // no C++ runtime to throw with
    next(thrown, type, destroy);
    __builtin_unreachable();
}
} // namespace __cxxabiv1
