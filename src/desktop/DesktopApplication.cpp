#include "DesktopApplication.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QLocale>
#include <QMimeDatabase>
#include <QProcess>
#include <QSet>
#include <QStandardPaths>

namespace {

using Group = QHash<QString, QString>;

// The keys of one group of a desktop-entry style file ("[Desktop Entry]", "[Added Associations]").
Group readGroup(const QString &path, QStringView wanted)
{
    Group keys;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return keys;
    bool inGroup = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(u'[')) {
            inGroup = line.size() == wanted.size() + 2 && line.endsWith(u']') &&
                      QStringView(line).mid(1, wanted.size()) == wanted;
            continue;
        }
        const qsizetype equals = line.indexOf(u'=');
        if (!inGroup || line.startsWith(u'#') || equals <= 0)
            continue;
        const QString key = line.left(equals).trimmed();
        if (!keys.contains(key))
            keys.insert(key, line.mid(equals + 1).trimmed());
    }
    return keys;
}

QStringList list(const QString &value)
{
    return value.split(u';', Qt::SkipEmptyParts);
}

// The escapes of a desktop entry's string values: \s, \n, \t, \r and \\.
QString unescape(const QString &value)
{
    QString text;
    for (qsizetype i = 0; i < value.size(); ++i) {
        if (value[i] != u'\\' || i + 1 == value.size()) {
            text += value[i];
            continue;
        }
        const QChar next = value[++i];
        text += next == u's'   ? u' '
                : next == u'n' ? u'\n'
                : next == u't' ? u'\t'
                : next == u'r' ? u'\r'
                               : next;
    }
    return text;
}

struct Argument
{
    QString text;
    bool quoted = false;
};

// An Exec line split as the desktop entry format quotes it: blanks separate, double quotes
// group, and inside them a backslash takes the next character literally.
QList<Argument> splitExec(const QString &exec)
{
    QList<Argument> arguments;
    Argument current;
    bool inArgument = false;
    bool inQuotes = false;
    for (qsizetype i = 0; i < exec.size(); ++i) {
        const QChar c = exec[i];
        if (inQuotes) {
            if (c == u'\\' && i + 1 < exec.size())
                current.text += exec[++i];
            else if (c == u'"')
                inQuotes = false;
            else
                current.text += c;
        } else if (c.isSpace()) {
            if (inArgument)
                arguments << std::exchange(current, {});
            inArgument = false;
        } else {
            inArgument = true;
            if (c == u'"')
                inQuotes = current.quoted = true;
            else
                current.text += c;
        }
    }
    if (inArgument)
        arguments << current;
    return arguments;
}

bool canRun(const QString &program)
{
    if (program.isEmpty())
        return false;
    if (program.contains(u'/'))
        return QFileInfo(program).isExecutable();
    return !QStandardPaths::findExecutable(program).isEmpty();
}

QStringList applicationDirectories()
{
    return QStandardPaths::standardLocations(QStandardPaths::ApplicationsLocation);
}

// mimeapps.list files, most important first: the user's and the system's configuration, then
// those beside the applications; in each folder the current desktop's own list
// ("gnome-mimeapps.list", where distributions put a desktop's defaults) before the common one.
QStringList mimeappsLists()
{
    QStringList names;
    for (const QString &desktop :
         QString::fromLocal8Bit(qgetenv("XDG_CURRENT_DESKTOP")).split(u':', Qt::SkipEmptyParts))
        names << desktop.toLower() + QStringLiteral("-mimeapps.list");
    names << QStringLiteral("mimeapps.list");
    QStringList lists;
    for (const QString &dir :
         QStandardPaths::standardLocations(QStandardPaths::GenericConfigLocation) +
             applicationDirectories()) {
        for (const QString &name : std::as_const(names))
            lists << dir + u'/' + name;
    }
    return lists;
}

// The type and its aliases, then every type it derives from but the catch-all of binary data,
// which any file is.
QStringList acceptedTypes(const QString &mimeType)
{
    const QMimeDatabase db;
    const QMimeType type = db.mimeTypeForName(mimeType);
    QStringList types { mimeType };
    for (const QString &name : QStringList { type.name() } + type.allAncestors()) {
        if (name == QLatin1String("application/octet-stream"))
            continue;
        types << name << db.mimeTypeForName(name).aliases();
    }
    types.removeAll(QString());
    types.removeDuplicates();
    return types;
}

} // namespace

std::optional<DesktopApplication> DesktopApplication::fromFile(const QString &desktopId,
                                                               const QString &path)
{
    const Group entry = readGroup(path, u"Desktop Entry");
    const auto is = [&](const char *key, const char *value) {
        return entry.value(QLatin1String(key)) == QLatin1String(value);
    };
    // A terminal application would need a terminal emulator to be chosen for it.
    if (!is("Type", "Application") || is("Hidden", "true") || is("Terminal", "true"))
        return std::nullopt;
    DesktopApplication application;
    application.m_desktopId = desktopId;
    application.m_file = path;
    application.m_exec = unescape(entry.value(QStringLiteral("Exec")));
    application.m_icon = unescape(entry.value(QStringLiteral("Icon")));
    application.m_mimeTypes = list(entry.value(QStringLiteral("MimeType")));
    const QString locale = QLocale().name();
    for (const QString &key :
         { QStringLiteral("Name[%1]").arg(locale),
           QStringLiteral("Name[%1]").arg(locale.section(u'_', 0, 0)), QStringLiteral("Name") }) {
        if (entry.contains(key)) {
            application.m_name = unescape(entry.value(key));
            break;
        }
    }
    const QList<Argument> command = splitExec(application.m_exec);
    const QString tryExec = unescape(entry.value(QStringLiteral("TryExec")));
    if (application.m_name.isEmpty() || command.isEmpty() || !canRun(command.first().text) ||
        (!tryExec.isEmpty() && !canRun(tryExec)))
        return std::nullopt;
    return application;
}

QList<DesktopApplication> DesktopApplication::applicationsForMimeType(const QString &mimeType)
{
    const QStringList types = acceptedTypes(mimeType);
    const auto forType = [&](const Group &group) {
        QStringList ids;
        for (const QString &type : types)
            ids << list(group.value(type));
        return ids;
    };
    QStringList defaults;
    QStringList added;
    QSet<QString> removed;
    for (const QString &path : mimeappsLists()) {
        defaults << forType(readGroup(path, u"Default Applications"));
        added << forType(readGroup(path, u"Added Associations"));
        for (const QString &id : forType(readGroup(path, u"Removed Associations")))
            removed.insert(id);
    }

    // Every desktop file, the first of each id winning, as the directories rank them.
    QHash<QString, DesktopApplication> byId;
    QStringList declaring;
    for (const QString &dir : applicationDirectories()) {
        QDirIterator files(dir, { QStringLiteral("*.desktop") }, QDir::Files,
                           QDirIterator::Subdirectories);
        while (files.hasNext()) {
            const QString path = files.next();
            const QString id = QDir(dir).relativeFilePath(path).replace(u'/', u'-');
            if (byId.contains(id))
                continue;
            const auto application = fromFile(id, path);
            if (!application)
                continue;
            byId.insert(id, *application);
            for (const QString &type : application->m_mimeTypes) {
                if (types.contains(type)) {
                    declaring << id;
                    break;
                }
            }
        }
    }
    std::sort(declaring.begin(), declaring.end(), [&](const QString &a, const QString &b) {
        return byId[a].m_name.localeAwareCompare(byId[b].m_name) < 0;
    });

    QList<DesktopApplication> applications;
    QSet<QString> listed;
    for (const QString &id : defaults + added + declaring) {
        if (listed.contains(id) || removed.contains(id) || !byId.contains(id))
            continue;
        listed.insert(id);
        applications << byId[id];
    }
    return applications;
}

QStringList DesktopApplication::commandForFile(const QString &path) const
{
    QStringList command;
    bool fileGiven = false;
    const QList<Argument> arguments = splitExec(m_exec);
    for (const Argument &argument : arguments) {
        // A code inside quotes is not one (the format forbids it); it stays as written.
        if (argument.quoted || !argument.text.contains(u'%')) {
            command << argument.text;
            continue;
        }
        if (argument.text == QLatin1String("%i")) {
            if (!m_icon.isEmpty())
                command << QStringLiteral("--icon") << m_icon;
            continue;
        }
        QString text;
        for (qsizetype i = 0; i < argument.text.size(); ++i) {
            if (argument.text[i] != u'%' || i + 1 == argument.text.size()) {
                text += argument.text[i];
                continue;
            }
            switch (argument.text[++i].unicode()) {
            case u'f':
            case u'F':
            case u'u':
            case u'U':
                text += path;
                fileGiven = true;
                break;
            case u'c':
                text += m_name;
                break;
            case u'k':
                text += m_file;
                break;
            case u'%':
                text += u'%';
                break;
            default: // deprecated and unknown codes are dropped
                break;
            }
        }
        // A code alone that expanded to nothing (%i without an icon, %d) leaves no argument.
        if (!text.isEmpty() || argument.text.size() != 2)
            command << text;
    }
    if (!fileGiven && !command.isEmpty())
        command << path;
    return command;
}

bool DesktopApplication::launch(const QString &path) const
{
    QStringList command = commandForFile(path);
    if (command.isEmpty())
        return false;
    const QString program = command.takeFirst();
    return QProcess::startDetached(program, command, QDir::homePath());
}
