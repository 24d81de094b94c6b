#include <stdexcept>

// A library of its own, opened at run time, that throws and catches inside itself, as system
// libraries do: nothing of the exception reaches the caller.
extern "C" __attribute__((visibility("default"))) void throwAndCatchInside(const char *reason)
{
    try {
        throw std::runtime_error(reason);
    } catch (const std::runtime_error &) {
    }
}
