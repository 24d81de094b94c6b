#pragma once

namespace vantrel {

// Every C++ exception thrown in the process, by our code, Qt, the C++ library or any shared
// library, caught or not, writes "EXCEPTION WITH NAME <type> REASON <what()>" to the
// diagnostic log before any handler runs. The log wraps the runtime's throw routine
// (__cxa_throw); installing finds the routine it forwards to. That happens before main on
// its own, and on the first throw if that comes earlier; calling it again changes nothing.
void installExceptionLog();

// Whether the routine the log forwards to has been found.
bool exceptionLogInstalled();

} // namespace vantrel
