#include "Assert.h"

#include <cstdio>
#include <cstdlib>

namespace vantrel {

void assertionFailed(const char *function, const char *file, int line, const char *expression)
{
    std::fprintf(stderr, "Assertion failed: (%s), function %s, file %s, line %d.\n", expression,
                 function, file, line);
    std::fflush(stderr);
    std::abort();
}

void AssertionHandler::handleFailureInFunction(const char *function, const char *file, int line,
                                               const QString &description)
{
    std::fprintf(stderr, "*** Assertion failure in %s, %s:%d\n",
                 function ? function : "<Unknown Function>", file ? file : "<Unknown File>", line);
    throw InternalInconsistencyException(description.toStdString());
}

} // namespace vantrel
