#include "RecordingSharer.h"

#include "RecordingFiles.h"

#include <QFile>
#include <QThreadPool>

RecordingSharer::RecordingSharer(const QString &messagesDirectory, QObject *parent)
    : QObject(parent), m_messagesDirectory(messagesDirectory), m_zipper(messagesDirectory)
{}

RecordingSharer::~RecordingSharer()
{
    if (!m_run.valid())
        return;
    m_run.wait();
    // Nobody takes the archive any more: it would outlive the program.
    QFile::remove(m_output);
}

QString RecordingSharer::sourcePath(const Entry &entry) const
{
    const std::optional<QString> decoded = m_messagesDirectory.checkedFilePath(entry.filename);
    const QString stored = m_messagesDirectory.filePath(entry.filename);
    // Recorders write no "%" into names, so the two agree for every real recording; where
    // they do not, the row's own file is the one the person chose.
    return decoded && *decoded == stored ? *decoded : stored;
}

bool RecordingSharer::isRunning() const
{
    return m_run.valid() && m_run.wait_for(std::chrono::seconds(0)) != std::future_status::ready;
}

void RecordingSharer::zipFiles(const QStringList &files, const QString &outputZipFile)
{
    if (isRunning())
        return;
    m_output = outputZipFile;
    auto done = std::make_shared<std::promise<void>>();
    m_run = done->get_future();
    QThreadPool::globalInstance()->start([this, files, outputZipFile, done] {
        VantrelFileZipper *zipper = VantrelFileZipper::sharedInstance();
        // The result also arrives through the delegate, which is what the list follows.
        (zipper ? zipper : &m_zipper)->zipSourceFilePaths(files, outputZipFile, false, this);
        done->set_value();
    });
}

QString RecordingSharer::progressTitle(int percent, int currentIndex, int totalFiles)
{
    return QStringLiteral("Compressing files: %1% (%2/%3)")
        .arg(percent)
        .arg(currentIndex)
        .arg(totalFiles);
}
