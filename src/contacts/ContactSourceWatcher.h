#pragma once

#include <QHash>
#include <QObject>
#include <QSocketNotifier>
#include <QStringList>
#include <memory>

// Tells, on the thread that made it, that what an address book reads from its sources may
// have changed: a ".vcf" file written, added, removed or renamed anywhere under a source
// folder (folders made later included), a source file written or replaced, or a source that
// did not exist coming into being (seen from its nearest existing ancestor). A burst read
// in one go is one signal; it says only that something changed, never what.
class ContactSourceWatcher : public QObject
{
    Q_OBJECT
public:
    // Watches at once; relative sources are taken from the current directory.
    explicit ContactSourceWatcher(const QStringList &sources);
    ~ContactSourceWatcher() override;

    // False when the system refused to watch anything (no inotify instance).
    bool isWatching() const { return m_queue >= 0; }

signals:
    void sourcesChanged();

private:
    struct Watch
    {
        bool tree { false }; // inside a source folder: its ".vcf" files and folders count
        QStringList awaited; // names of sources, or of folders on the way to one, that count
    };

    void arm();
    void watch(const QString &directory, bool tree, const QString &awaited = QString());
    void readEvents();

    QStringList m_sources;
    int m_queue { -1 }; // the inotify instance
    std::unique_ptr<QSocketNotifier> m_notifier;
    QHash<int, Watch> m_watches;   // by watch descriptor
    bool m_reportedFull { false }; // the "too many folders" line is written once
};
