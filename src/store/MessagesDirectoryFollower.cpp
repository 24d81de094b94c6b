#include "MessagesDirectoryFollower.h"

#include <QFile>
#include <QFileInfo>
#include <QScopedValueRollback>
#include <cerrno>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

// An entry of an ancestor that comes, goes or is renamed, and the ancestor itself going away.
constexpr uint32_t kAncestorMask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                   IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
// Events that concern a watched ancestor as a whole rather than one of its entries.
constexpr uint32_t kAncestorGone = IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT;
// Room for many events per read; one event needs at most sizeof(inotify_event) + NAME_MAX + 1.
constexpr size_t kEventBufferSize = 16 * 1024;

} // namespace

MessagesDirectoryFollower::MessagesDirectoryFollower(const QString &path,
                                                     VTDirectoryWatcherDelegate *delegate)
    : m_path(path.isEmpty() ? QString() : QFileInfo(path).absoluteFilePath()), m_delegate(delegate)
{
    if (m_path.isEmpty())
        return;
    m_inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_inotify >= 0) {
        m_notifier = std::make_unique<QSocketNotifier>(m_inotify, QSocketNotifier::Read);
        connect(m_notifier.get(), &QSocketNotifier::activated, this,
                &MessagesDirectoryFollower::ancestorsChanged);
    }
    follow(false);
}

MessagesDirectoryFollower::~MessagesDirectoryFollower()
{
    m_watcher.reset();
    m_notifier.reset();
    if (m_inotify >= 0)
        ::close(m_inotify); // and with it every watch on the ancestors
}

void MessagesDirectoryFollower::directoryDidChange(VTDirectoryWatcher *watcher)
{
    if (watcherIsAtPath()) {
        {
            const QScopedValueRollback inCallback(m_inWatcherCallback, true);
            if (m_delegate)
                m_delegate->directoryDidChange(watcher);
        }
        if (std::exchange(m_followDeferred, false))
            followSoon();
        return;
    }
    // The watched directory was removed or renamed away: this change is told with the move,
    // even if the same directory is back by then.
    m_changeUntold = true;
    followSoon();
}

void MessagesDirectoryFollower::followSoon()
{
    // Outside the watcher's callback, which still uses the watcher after it returns.
    QMetaObject::invokeMethod(
        this, [this] { follow(true); }, Qt::QueuedConnection);
}

void MessagesDirectoryFollower::ancestorsChanged()
{
    bool concerned = false;
    alignas(inotify_event) char buffer[kEventBufferSize];
    for (;;) {
        const ssize_t got = ::read(m_inotify, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break; // EAGAIN: all read
        for (ssize_t at = 0; at < got;) {
            const auto *event = reinterpret_cast<const inotify_event *>(buffer + at);
            concerned = concerned || concernsPath(*event);
            at += ssize_t(sizeof(inotify_event) + event->len);
        }
    }
    if (concerned)
        follow(true);
}

bool MessagesDirectoryFollower::concernsPath(const inotify_event &event) const
{
    // Events were dropped: anything may have happened.
    if (event.mask & IN_Q_OVERFLOW)
        return true;
    // Watches given up at the last rebuild are no longer listed, so their IN_IGNORED is not.
    for (const auto &[watch, name] : m_ancestors) {
        if (watch == event.wd &&
            ((event.mask & kAncestorGone) || (event.len > 0 && name == event.name)))
            return true;
    }
    return false;
}

void MessagesDirectoryFollower::follow(bool tellDelegate)
{
    // The ancestors are watched before the directory is looked at, so that whatever happens
    // after the look is reported.
    if (m_inWatcherCallback) {
        // The delegate ran an event loop of its own: the watcher must outlive its callback.
        m_followDeferred = true;
        return;
    }
    watchAncestors();
    struct stat now = {};
    const bool exists =
        ::stat(QFile::encodeName(m_path).constData(), &now) == 0 && S_ISDIR(now.st_mode);
    const bool moved = exists ? !watcherIsAtPath() : m_watcher != nullptr;
    if (!moved && !m_changeUntold)
        return;

    // Started before the delegate reads the directory: a file written from now on is reported,
    // one written before is read.
    if (moved) {
        m_watcher.reset();
        if (exists)
            m_watcher = VTDirectoryWatcher::watchFolderWithPath(m_path, this);
    }
    m_changeUntold = false;
    if (!tellDelegate || !m_delegate)
        return;
    // Whatever the delegate knew of the directory, this one it has not read.
    if (m_watcher)
        m_watcher->markEverythingChanged();
    m_delegate->directoryDidChange(m_watcher.get());
}

void MessagesDirectoryFollower::watchAncestors()
{
    if (m_inotify < 0)
        return;
    for (const auto &ancestor : m_ancestors)
        inotify_rm_watch(m_inotify, ancestor.first);
    m_ancestors.clear();

    // "/a/b/Messages": "/" for "a", "/a" for "b", "/a/b" for "Messages", as far as they exist.
    // Every level is watched, so that renaming any of them away is seen.
    const QByteArray path = QFile::encodeName(m_path);
    qsizetype slash = 0;
    for (;;) {
        const qsizetype next = path.indexOf('/', slash + 1);
        const QByteArray ancestor = slash == 0 ? QByteArray("/") : path.left(slash);
        const int watch = inotify_add_watch(m_inotify, ancestor.constData(), kAncestorMask);
        if (watch < 0)
            return; // missing, or no folder: the deepest existing ancestor is watched
        m_ancestors.emplace_back(watch, path.mid(slash + 1, next < 0 ? -1 : next - slash - 1));
        if (next < 0)
            return;
        slash = next;
    }
}

bool MessagesDirectoryFollower::watcherIsAtPath() const
{
    if (!m_watcher)
        return false;
    struct stat watched = {};
    struct stat now = {};
    return ::fstat(m_watcher->directoryDescriptor(), &watched) == 0 &&
           ::stat(QFile::encodeName(m_path).constData(), &now) == 0 &&
           watched.st_dev == now.st_dev && watched.st_ino == now.st_ino;
}
