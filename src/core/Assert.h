#pragma once

#include <QString>
#include <stdexcept>

namespace vantrel {

// Broken internal invariants end the process. Every assertion names the function as the
// system has always named it, the source file "VantrelApplication", its line and its
// expression, so that reports from the field read the same on every platform.
[[noreturn]] void assertionFailed(const char *function, const char *file, int line,
                                  const char *expression);

// Raised by a failed parameter check (the counterpart of an inconsistency exception).
class InternalInconsistencyException : public std::logic_error
{
public:
    using std::logic_error::logic_error;
};

struct AssertionHandler
{
    // Prints "*** Assertion failure in FUNCTION, FILE:LINE" to standard error and throws
    // InternalInconsistencyException with the description as its reason.
    [[noreturn]] static void handleFailureInFunction(const char *function, const char *file,
                                                     int line, const QString &description);
};

} // namespace vantrel

#define VT_SOURCE_FILE "VantrelApplication"

// VT_ASSERT(function text, line, condition, expression text)
#define VT_ASSERT(function, line, condition, expression)                                           \
    do {                                                                                           \
        if (!(condition))                                                                          \
            ::vantrel::assertionFailed(function, VT_SOURCE_FILE, line, expression);                \
    } while (false)
