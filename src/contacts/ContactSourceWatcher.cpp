#include "ContactSourceWatcher.h"

#include "core/Log.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <cerrno>
#include <cstring>
#include <sys/inotify.h>
#include <unistd.h>

namespace {

// Entries that come, go or are renamed, files written (editors that rewrite in place) or made
// readable, and the watched folder itself going away.
constexpr uint32_t kWatchMask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                IN_CLOSE_WRITE | IN_MODIFY | IN_ATTRIB | IN_DELETE_SELF |
                                IN_MOVE_SELF | IN_ONLYDIR;
// What changes the set of folders to watch when it happens to a folder.
constexpr uint32_t kEntryChange = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;

} // namespace

ContactSourceWatcher::ContactSourceWatcher(const QStringList &sources)
{
    for (const QString &source : sources) {
        if (!source.isEmpty())
            m_sources << QDir::cleanPath(QFileInfo(source).absoluteFilePath());
    }
    m_queue = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_queue < 0) {
        mylog(QStringLiteral("ContactStore: cannot follow the address book's files: %1")
                  .arg(QString::fromLocal8Bit(std::strerror(errno))));
        return;
    }
    m_notifier = std::make_unique<QSocketNotifier>(m_queue, QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &ContactSourceWatcher::readEvents);
    arm();
}

ContactSourceWatcher::~ContactSourceWatcher()
{
    m_notifier.reset();
    if (m_queue >= 0)
        ::close(m_queue);
}

// Watches afresh: which folders exist, and so which to watch, is known only now.
void ContactSourceWatcher::arm()
{
    for (auto it = m_watches.cbegin(); it != m_watches.cend(); ++it)
        inotify_rm_watch(m_queue, it.key());
    m_watches.clear();

    for (const QString &source : m_sources) {
        const QFileInfo info(source);
        if (info.isDir()) {
            // The same folders the address book reads.
            watch(source, true);
            QDirIterator folders(source, QDir::Dirs | QDir::NoDotAndDotDot,
                                 QDirIterator::Subdirectories | QDirIterator::FollowSymlinks);
            while (folders.hasNext())
                watch(folders.next(), true);
        } else if (info.exists()) {
            watch(info.absolutePath(), false, info.fileName());
            if (info.isSymLink()) {
                const QFileInfo target(info.canonicalFilePath());
                watch(target.absolutePath(), false, target.fileName());
            }
        } else {
            // Not there yet: the nearest existing ancestor, for the next name on the way.
            QString path = source;
            for (QString parent = QFileInfo(path).path(); parent != path;
                 path = parent, parent = QFileInfo(path).path()) {
                if (QFileInfo(parent).isDir()) {
                    watch(parent, false, QFileInfo(path).fileName());
                    break;
                }
            }
        }
    }
}

void ContactSourceWatcher::watch(const QString &directory, bool tree, const QString &awaited)
{
    const int descriptor =
        inotify_add_watch(m_queue, QFile::encodeName(directory).constData(), kWatchMask);
    if (descriptor < 0) {
        if (errno == ENOSPC && !m_reportedFull) {
            m_reportedFull = true;
            mylog(QStringLiteral("ContactStore: too many folders to follow; %1 and others are "
                                 "read again only when another change is seen")
                      .arg(directory));
        }
        return;
    }
    // Two paths can lead to one folder; the kernel then answers the same descriptor.
    Watch &entry = m_watches[descriptor];
    entry.tree = entry.tree || tree;
    if (!awaited.isEmpty() && !entry.awaited.contains(awaited))
        entry.awaited << awaited;
}

void ContactSourceWatcher::readEvents()
{
    bool changed = false;
    bool rearm = false;
    alignas(inotify_event) char buffer[16 * 1024];
    for (;;) {
        const ssize_t got = ::read(m_queue, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        for (const char *p = buffer; p < buffer + got;) {
            const auto *event = reinterpret_cast<const inotify_event *>(p);
            p += sizeof(inotify_event) + event->len;
            if (event->mask & IN_Q_OVERFLOW) {
                changed = rearm = true;
                continue;
            }
            // Events of watches dropped by an earlier arm() are stale.
            const auto found = m_watches.constFind(event->wd);
            if (found == m_watches.cend())
                continue;
            if (event->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT)) {
                changed = rearm = true;
                continue;
            }
            const QString name = event->len ? QFile::decodeName(event->name) : QString();
            if (name.isEmpty())
                continue;
            if (found->awaited.contains(name)) {
                changed = true;
                rearm = rearm || (event->mask & kEntryChange);
            } else if (found->tree && (event->mask & IN_ISDIR)) {
                // A folder's files come and go with it.
                if (event->mask & kEntryChange)
                    changed = rearm = true;
            } else if (found->tree && name.endsWith(QLatin1String(".vcf"), Qt::CaseInsensitive)) {
                changed = true;
            }
        }
    }
    if (rearm)
        arm();
    if (changed)
        emit sourcesChanged();
}
