#include "core/Module.h"

#include "core/Log.h"

#include <QDir>
#include <QFileInfo>
#include <QLibrary>

QFunctionPointer Module::resolve(const char *module, const char *entry, const QString &wantedBy)
{
    const QString program = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
    QString problems;
    for (const QString &folder :
         { QFileInfo(program).dir().filePath(QStringLiteral(VANTREL_MODULE_DIR_FROM_PROGRAM)),
           QStringLiteral(VANTREL_BUILD_MODULE_DIR) }) {
        QLibrary library(folder + u'/' + QLatin1String(module));
        if (const QFunctionPointer found = library.resolve(entry))
            return found;
        problems += u' ' + library.errorString() + u';';
    }
    mylog(QStringLiteral("%1: no module:%2").arg(wantedBy, problems));
    return nullptr;
}
