#pragma once

#include <QByteArrayList>
#include <QObject>
#include <QPointer>
#include <QSocketNotifier>
#include <QString>
#include <memory>
#include <utility>

class VTDirectoryWatcher;

class VTDirectoryWatcherDelegate
{
public:
    virtual ~VTDirectoryWatcherDelegate() = default;
    virtual void directoryDidChange(VTDirectoryWatcher *watcher) = 0;
};

// The readiness callback kinds of the event queue's notifier; only reads are asked for.
enum CallBackType
{
    kCFFileDescriptorReadCallBack = 1,
    kCFFileDescriptorWriteCallBack = 2
};

// Tells its delegate, on the thread that started it, that entries were added to, removed from
// or renamed in one directory. A burst of changes read in one go is one call, and writes
// inside existing files are not changes. What changed the delegate may take during its call
// (takeChanges), so that a list of many recordings need only look at those.
//
// Two states: idle (nothing open: dirFD and kq are -1, dirKQRef null) and monitoring (all
// three set).
class VTDirectoryWatcher : public QObject
{
    Q_OBJECT
public:
    // A monitoring watcher owned by the caller, or null when the path or the delegate is
    // missing or the directory cannot be watched.
    static std::unique_ptr<VTDirectoryWatcher>
    watchFolderWithPath(const QString &path, VTDirectoryWatcherDelegate *delegate);

    explicit VTDirectoryWatcher(const QString &watchPath);
    ~VTDirectoryWatcher() override;

    QString watchingDirectoryPath() const { return watchPath; }
    VTDirectoryWatcherDelegate *delegate() const { return m_delegate; }
    void setDelegate(VTDirectoryWatcherDelegate *delegate) { m_delegate = delegate; }

    // Starts watching path (not watchPath). Answers false, with nothing left open, when
    // already monitoring or when any step fails.
    bool startMonitoringDirectory(const QString &path);
    // Stops watching; harmless when idle.
    void invalidate();

    // The names that came, went or were renamed (both names of a rename) since the changes
    // were last taken, as the kernel reported them; or everything, when that is not known: the
    // kernel dropped events, too many names piled up, or the directory is new to the
    // delegate (see markEverythingChanged).
    struct Changes
    {
        QByteArrayList names;
        bool everything { false };
    };
    Changes takeChanges() { return std::exchange(m_changes, {}); }
    // The next changes taken are everything: said by whoever hands the delegate a directory
    // whose contents it has not read.
    void markEverythingChanged();

    bool isMonitoring() const { return dirKQRef != nullptr; }
    int directoryDescriptor() const { return dirFD; }
    int queueDescriptor() const { return kq; }

private:
    friend void KQCallback(QSocketNotifier *kqRef, int callBackTypes, void *info);
    void kqueueFired();
    void noteEvents(const char *events, qsizetype size);

    VTDirectoryWatcherDelegate *m_delegate { nullptr }; // not owned
    int dirFD { -1 }; // the watched directory, opened as a path only
    int kq { -1 };    // the inotify instance
    QString watchPath;
    QPointer<QSocketNotifier> dirKQRef; // readiness of kq on the event loop; a child
    Changes m_changes;
};

void KQCallback(QSocketNotifier *kqRef, int callBackTypes, void *info);
