#include "HeardRecordings.h"

#include "core/Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <algorithm>

namespace {

// The first line of the file, and the version of what follows: one digest per line, in hex.
const QByteArray kHeader = "Vantrel Plus heard recordings 1";

} // namespace

HeardRecordings::HeardRecordings(const QString &messagesDirectory, const QString &folder)
{
    const QString home =
        folder.isEmpty()
            ? QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                  QLatin1String("/net.zorvath.vantrel/heard")
            : folder;
    m_path = home + u'/' +
             QString::number(digest(QFileInfo(messagesDirectory).absoluteFilePath()), 16)
                 .rightJustified(16, u'0');
    read();
}

quint64 HeardRecordings::digest(const QString &text)
{
    // FNV-1a over the UTF-8 bytes: the same on every machine and in every version.
    quint64 hash = 14695981039346656037ull;
    for (const char byte : text.toUtf8()) {
        hash ^= quint8(byte);
        hash *= 1099511628211ull;
    }
    return hash;
}

bool HeardRecordings::isHeard(const QString &fileName) const
{
    return std::binary_search(m_heard.cbegin(), m_heard.cend(), digest(fileName));
}

qsizetype HeardRecordings::unheardCount(const QList<Entry> &entries) const
{
    return std::count_if(entries.cbegin(), entries.cend(),
                         [this](const Entry &entry) { return !isHeard(entry.filename); });
}

void HeardRecordings::markHeard(const QString &fileName, const QList<Entry> &listed)
{
    const quint64 key = digest(fileName);
    const auto at = std::lower_bound(m_heard.begin(), m_heard.end(), key);
    if (at != m_heard.end() && *at == key)
        return;
    m_heard.insert(at, key);
    write(listed);
}

void HeardRecordings::read()
{
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly))
        return; // nothing heard yet
    const QList<QByteArray> lines = file.readAll().split('\n');
    std::vector<quint64> heard;
    bool damaged = lines.isEmpty() || lines.first() != kHeader;
    for (qsizetype i = 1; i < lines.size() && !damaged; ++i) {
        if (lines[i].isEmpty() && i == lines.size() - 1)
            break;
        bool ok = false;
        heard.push_back(lines[i].toULongLong(&ok, 16));
        damaged = !ok || lines[i].size() != 16;
    }
    if (damaged) {
        mylog(QStringLiteral("the list of heard recordings %1 is damaged: every recording shows "
                             "as unheard")
                  .arg(m_path));
        return;
    }
    std::sort(heard.begin(), heard.end());
    m_heard = std::move(heard);
}

void HeardRecordings::write(const QList<Entry> &listed)
{
    std::vector<quint64> kept;
    for (const Entry &entry : listed) {
        if (isHeard(entry.filename))
            kept.push_back(digest(entry.filename));
    }
    std::sort(kept.begin(), kept.end());
    kept.erase(std::unique(kept.begin(), kept.end()), kept.end());
    m_heard = std::move(kept);

    QDir().mkpath(QFileInfo(m_path).path());
    QFile::setPermissions(QFileInfo(m_path).path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QSaveFile file(m_path);
    QByteArray text = kHeader + '\n';
    text.reserve(text.size() + qsizetype(m_heard.size()) * 17);
    for (const quint64 key : m_heard)
        text += QByteArray::number(key, 16).rightJustified(16, '0') + '\n';
    // Only its owner may read which calls were listened to.
    if (!file.open(QIODevice::WriteOnly) ||
        !file.setPermissions(QFile::ReadOwner | QFile::WriteOwner) ||
        file.write(text) != text.size() || !file.commit())
        mylog(QStringLiteral("cannot write the list of heard recordings %1: %2")
                  .arg(m_path, file.errorString()));
}
