#pragma once

#include <QString>
#include <QtGlobal>

// Parts of the program that link a large library of their own live in modules, loaded when
// first needed, so that a start that never needs them never maps that library.
namespace Module {

// The named entry point of the named module ("vantrel-tempo"), looked for in the program's own
// library folder as installed under any prefix (a package unpacked anywhere finds its own
// module, never another copy's), then where the build leaves it; null when neither has it,
// which the log says under the name of the part that wanted it ("AudioPlayer: speed"), with
// what went wrong in each place. A module found stays loaded for good.
QFunctionPointer resolve(const char *module, const char *entry, const QString &wantedBy);

} // namespace Module
