#include "DemoDirectory.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

std::optional<QString> DemoDirectory::samplesDirectory()
{
    // Beside the program as installed under any prefix (bin/../share/vantrel/samples), then
    // where it was configured to be installed, then the source tree it was built from. Read
    // before the application object exists, hence the executable's path from /proc.
    const QString program = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
    const QStringList candidates = {
        QFileInfo(program).dir().filePath(QStringLiteral("../share/vantrel/samples")),
        QStringLiteral(VANTREL_INSTALLED_SAMPLES_DIR),
        QStringLiteral(VANTREL_SOURCE_SAMPLES_DIR),
    };
    for (const QString &candidate : candidates) {
        if (QFileInfo::exists(candidate + QLatin1String("/contacts.vcf")))
            return QDir::cleanPath(candidate);
    }
    return std::nullopt;
}

std::unique_ptr<DemoDirectory> DemoDirectory::create(QString *error)
{
    const auto samples = samplesDirectory();
    if (!samples) {
        *error =
            QStringLiteral("vantrel: the demo recordings are not installed (looked in %1 and %2)")
                .arg(QStringLiteral(VANTREL_INSTALLED_SAMPLES_DIR),
                     QStringLiteral(VANTREL_SOURCE_SAMPLES_DIR));
        return nullptr;
    }
    std::unique_ptr<DemoDirectory> demo(new DemoDirectory);
    if (!demo->m_root.isValid() || !QDir(demo->m_root.path()).mkdir(QStringLiteral("Messages"))) {
        *error = QStringLiteral("vantrel: cannot make a temporary directory for the demo: %1")
                     .arg(demo->m_root.errorString());
        return nullptr;
    }
    const QDir source(*samples);
    const QStringList recordings = source.entryList(
        { QStringLiteral("msg-_*.caf"), QStringLiteral("msg-_*.txt") }, QDir::Files);
    for (const QString &name : recordings) {
        if (!QFile::copy(source.filePath(name), demo->messagesDirectory() + u'/' + name)) {
            *error =
                QStringLiteral("vantrel: cannot copy demo recording %1").arg(source.filePath(name));
            return nullptr;
        }
    }
    if (!QFile::copy(source.filePath(QStringLiteral("contacts.vcf")), demo->contactsPath())) {
        *error = QStringLiteral("vantrel: cannot copy demo contacts %1")
                     .arg(source.filePath(QStringLiteral("contacts.vcf")));
        return nullptr;
    }
    return demo;
}

QString DemoDirectory::messagesDirectory() const
{
    return m_root.path() + QLatin1String("/Messages");
}

QString DemoDirectory::contactsPath() const
{
    return m_root.path() + QLatin1String("/contacts.vcf");
}
