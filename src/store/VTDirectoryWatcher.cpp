#include "VTDirectoryWatcher.h"

#include "core/Assert.h"

#include <QFile>
#include <QSocketNotifier>
#include <cerrno>
#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace {

// Entries added, removed or renamed; IN_MODIFY is left out on purpose, so that a file being
// written does not reload the list at every write.
constexpr uint32_t kWatchMask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ONLYDIR;

// More names than this are taken as everything: listing the directory once is cheaper than
// looking at each of them.
constexpr qsizetype kMostNames = 4096;

} // namespace

std::unique_ptr<VTDirectoryWatcher>
VTDirectoryWatcher::watchFolderWithPath(const QString &path, VTDirectoryWatcherDelegate *delegate)
{
    if (path.isNull() || delegate == nullptr)
        return nullptr;
    auto watcher = std::make_unique<VTDirectoryWatcher>(path);
    watcher->setDelegate(delegate);
    if (!watcher->startMonitoringDirectory(path))
        return nullptr;
    return watcher;
}

VTDirectoryWatcher::VTDirectoryWatcher(const QString &path) : watchPath(path) {}

VTDirectoryWatcher::~VTDirectoryWatcher()
{
    invalidate();
}

bool VTDirectoryWatcher::startMonitoringDirectory(const QString &path)
{
    if (dirKQRef != nullptr || dirFD != -1 || kq != -1)
        return false;

    // A path-only descriptor: it names the directory without reading it.
    dirFD = ::open(QFile::encodeName(path).constData(), O_PATH | O_CLOEXEC);
    if (dirFD < 0) {
        dirFD = -1;
        return false;
    }

    kq = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (kq < 0) {
        kq = -1;
        ::close(dirFD);
        dirFD = -1;
        return false;
    }

    // Watch the very directory that was opened, even if the path has changed since.
    const QByteArray opened = "/proc/self/fd/" + QByteArray::number(dirFD);
    if (inotify_add_watch(kq, opened.constData(), kWatchMask) < 0) {
        ::close(kq);
        kq = -1;
        ::close(dirFD);
        dirFD = -1;
        return false;
    }

    dirKQRef = new QSocketNotifier(kq, QSocketNotifier::Read, this);
    connect(dirKQRef, &QSocketNotifier::activated, this, [this] {
        // One-shot: the notifier stays off until kqueueFired has read the queue.
        dirKQRef->setEnabled(false);
        KQCallback(dirKQRef, kCFFileDescriptorReadCallBack, this);
    });
    dirKQRef->setEnabled(true);
    return true;
}

void KQCallback(QSocketNotifier *kqRef, int callBackTypes, void *info)
{
    auto *obj = qobject_cast<VTDirectoryWatcher *>(static_cast<QObject *>(info));
    VT_ASSERT("KQCallback", 409, obj != nullptr, "[obj isKindOfClass:[VTDirectoryWatcher class]]");
    VT_ASSERT("KQCallback", 410, kqRef == obj->dirKQRef, "kqRef == obj->dirKQRef");
    VT_ASSERT("KQCallback", 411, callBackTypes == kCFFileDescriptorReadCallBack,
              "callBackTypes == kCFFileDescriptorReadCallBack");
    obj->kqueueFired();
}

void VTDirectoryWatcher::kqueueFired()
{
    VT_ASSERT("-[VTDirectoryWatcher kqueueFired]", 389, kq >= 0, "kq >= 0");

    // Read everything that is queued: a burst that arrived since the last call is one change.
    int eventCount = 0;
    alignas(inotify_event) char buffer[16 * 1024];
    for (;;) {
        const ssize_t got = ::read(kq, buffer, sizeof buffer);
        if (got > 0) {
            eventCount = 1;
            noteEvents(buffer, got);
            continue;
        }
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0 && errno != EAGAIN) {
            eventCount = -1;
            markEverythingChanged();
        }
        break;
    }
    VT_ASSERT("-[VTDirectoryWatcher kqueueFired]", 396, (eventCount >= 0) && (eventCount < 2),
              "(eventCount >= 0) && (eventCount < 2)");

    if (m_delegate)
        m_delegate->directoryDidChange(this);

    // The delegate may have stopped the watcher.
    if (dirKQRef)
        dirKQRef->setEnabled(true);
}

void VTDirectoryWatcher::noteEvents(const char *events, qsizetype size)
{
    for (qsizetype at = 0; at < size;) {
        const auto *event = reinterpret_cast<const inotify_event *>(events + at);
        at += qsizetype(sizeof(inotify_event) + event->len);
        if (m_changes.everything)
            continue;
        if (event->mask & IN_Q_OVERFLOW)
            markEverythingChanged();
        else if (event->len > 0)
            m_changes.names.append(QByteArray(event->name));
        if (m_changes.names.size() > kMostNames)
            markEverythingChanged();
    }
}

void VTDirectoryWatcher::markEverythingChanged()
{
    m_changes.names.clear();
    m_changes.everything = true;
}

void VTDirectoryWatcher::invalidate()
{
    if (dirKQRef != nullptr) {
        // The notifier may be the one whose signal is being delivered: it goes at the next
        // turn of the event loop, switched off until then.
        dirKQRef->setEnabled(false);
        dirKQRef->deleteLater();
        dirKQRef = nullptr;
        ::close(kq);
        kq = -1;
    }
    if (dirFD != -1) {
        ::close(dirFD);
        dirFD = -1;
    }
}
