#pragma once

#include "store/VTDirectoryWatcher.h"

#include <QByteArray>
#include <QObject>
#include <QSocketNotifier>
#include <QString>
#include <memory>
#include <utility>
#include <vector>

struct inotify_event;

// Keeps a VTDirectoryWatcher on the directory at one path, whatever becomes of it: missing at
// launch and made later (with or without its parents), removed, renamed away, replaced, or
// renamed into place full of files. While there is no directory it waits on the path's
// existing ancestors. Each time the directory appears, goes or is replaced, the delegate hears
// directoryDidChange once, with the new watcher (null while there is none); in between it
// hears the watcher's own reports. Served by the event loop of the thread that made it.
class MessagesDirectoryFollower : public QObject, private VTDirectoryWatcherDelegate
{
    Q_OBJECT
public:
    // Starts following at once; the directory's present contents are the caller's to read.
    MessagesDirectoryFollower(const QString &path, VTDirectoryWatcherDelegate *delegate);
    ~MessagesDirectoryFollower() override;

    QString path() const { return m_path; }
    // The watcher of the directory now at the path, or null while there is none.
    VTDirectoryWatcher *directoryWatcher() const { return m_watcher.get(); }

private:
    void directoryDidChange(VTDirectoryWatcher *watcher) override;
    void ancestorsChanged();
    bool concernsPath(const inotify_event &event) const;
    void follow(bool tellDelegate);
    void followSoon();
    void watchAncestors();
    bool watcherIsAtPath() const;

    QString m_path;                                     // absolute and clean
    VTDirectoryWatcherDelegate *m_delegate { nullptr }; // not owned
    std::unique_ptr<VTDirectoryWatcher> m_watcher;
    int m_inotify { -1 }; // watches on the ancestors
    std::unique_ptr<QSocketNotifier> m_notifier;
    // Each existing ancestor's watch, with the name of the path's next component inside it.
    std::vector<std::pair<int, QByteArray>> m_ancestors;
    bool m_inWatcherCallback { false }; // the delegate is hearing the watcher's own report
    bool m_followDeferred { false };    // an ancestor changed meanwhile
    bool m_changeUntold { false };      // the watcher saw a change after its directory moved
};
