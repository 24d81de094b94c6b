#pragma once

#include "store/MessagesDirectory.h"
#include "VantrelFileZipper.h"
#include "store/Entry.h"

#include <QList>
#include <QObject>
#include <QStringList>
#include <future>

// Packs the selected recordings into one zip archive on the thread pool and tells the list,
// on its own thread and in order, how the run goes. It knows the Messages directory and the
// entries it is given; the alert and the table are the list's.
class RecordingSharer : public QObject, private VantrelFileZipperDelegate
{
    Q_OBJECT
public:
    explicit RecordingSharer(const QString &messagesDirectory, QObject *parent = nullptr);
    // Waits for a run under way (the archiver reports to this object until it ends) and
    // removes the archive of the last run, unless it was taken elsewhere meanwhile.
    ~RecordingSharer() override;

    // The file a recording is shared as: its name with percent escapes removed, inside the
    // Messages directory. A name that the escapes would turn into another file's, or that
    // cannot be decoded, is the file the list shows, under its name as stored.
    QString sourcePath(const Entry &entry) const;

    // Archives files into outputZipFile with the shared archiver, off this thread; one run
    // at a time.
    void zipFiles(const QStringList &files, const QString &outputZipFile);
    bool isRunning() const;

    // "Compressing files: %d%% (%d/%d)", as the progress alert's title reads.
    static QString progressTitle(int percent, int currentIndex, int totalFiles);

signals:
    void zippingStarted();
    void progressUpdated(int percent, const QString &currentFilePath, int currentIndex,
                         int totalFiles);
    void zippingFinished(bool success);

private:
    // On the pool's thread; each becomes a signal, queued to this object's thread.
    void zippingDidStart() override { emit zippingStarted(); }
    void zipProgressUpdatedWithPercent(int percent, const QString &currentFilePath,
                                       int currentIndex, int totalFiles) override
    {
        emit progressUpdated(percent, currentFilePath, currentIndex, totalFiles);
    }
    void zippingDidFinishSuccessfully(bool success) override { emit zippingFinished(success); }

    MessagesDirectory m_messagesDirectory;
    VantrelFileZipper m_zipper; // the shared archiver, made with the Messages directory
    std::future<void> m_run;
    QString m_output; // the archive of the last run
};
