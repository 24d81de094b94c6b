#include "VantrelFileZipper.h"

#include "core/Log.h"
#include "desktop/IdleTimer.h"

#include <QFile>
#include <QFileInfo>
#include <spawn.h>
#include <sys/wait.h>

namespace {
VantrelFileZipper *s_sharedZipper = nullptr;
// The progress of the run under way.
int s_totalFiles = 0;
int s_percent = 0;
int s_currentIndex = 0;
} // namespace

VantrelFileZipper::VantrelFileZipper(const QString &messagesDirectory)
    : m_messagesDirectory(messagesDirectory)
{
    s_sharedZipper = this;
}

VantrelFileZipper::~VantrelFileZipper()
{
    if (s_sharedZipper == this)
        s_sharedZipper = nullptr;
}

VantrelFileZipper *VantrelFileZipper::sharedInstance()
{
    return s_sharedZipper;
}

int VantrelFileZipper::percentDone(int index, int total)
{
    return int(double(index) / double(total) * 100.0);
}

bool VantrelFileZipper::zipSourceFilePaths(const QStringList &sourceFilePaths,
                                           const QString &destinationPath,
                                           bool preserveOriginalDirs,
                                           VantrelFileZipperDelegate *delegate)
{
    setZipProgressDelegate(delegate);
    // The names zip is given: bare names inside the Messages directory, unless told to keep
    // the paths as they are.
    QStringList items;
    if (preserveOriginalDirs) {
        items = sourceFilePaths;
    } else {
        for (const QString &path : sourceFilePaths)
            items << QFileInfo(path).fileName();
    }
    // The counts the progress alert shows.
    s_totalFiles = int(items.size());
    s_percent = 0;
    s_currentIndex = 0;
    m_zipProgressDelegate->zippingDidStart();
    // The screen stays awake while zip runs.
    IdleTimer::setIdleTimerDisabled(true);
    // Every run starts a fresh archive.
    QFile::remove(destinationPath);
    // One zip run per file, each adding it to the archive and reporting progress.
    for (const QString &item : std::as_const(items)) {
        mylog(QStringLiteral("zip destination path %1, path %2").arg(destinationPath, item));
        const QString source = m_messagesDirectory.filePath(item);
        // Each name reaches zip as one argument, whatever it holds, and zip stores it bare.
        QByteArray executable(zipExecutable);
        QByteArray junkPaths("-j");
        QByteArray destination = QFile::encodeName(destinationPath);
        QByteArray sourcePath = QFile::encodeName(source);
        char *arguments[] = { executable.data(), junkPaths.data(), destination.data(),
                              sourcePath.data(), nullptr };
        char *environment[] = { nullptr };
        pid_t pid = 0;
        const int result =
            posix_spawn(&pid, zipExecutable, nullptr, nullptr, arguments, environment);
        mylog(QStringLiteral("PD %1 result %2").arg(pid).arg(result));
        // A child that never started is not waited for; its file counts as handed over.
        if (result == 0) {
            int status = 0;
            waitpid(pid, &status, 0);
        }
        ++s_currentIndex;
        s_percent = percentDone(s_currentIndex, s_totalFiles);
        m_zipProgressDelegate->zipProgressUpdatedWithPercent(s_percent, item, s_currentIndex,
                                                             s_totalFiles);
    }
    IdleTimer::setIdleTimerDisabled(false);
    // An archive that exists counts as done, whatever it holds.
    const bool success = QFileInfo::exists(destinationPath);
    m_zipProgressDelegate->zippingDidFinishSuccessfully(success);
    return success;
}
