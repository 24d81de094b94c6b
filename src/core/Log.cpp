#include "Log.h"

#include "Assert.h"

#include <QtGlobal>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vantrel::log {

namespace {
constexpr const char *kMonths[12] = { "Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec" };

// The log holds phone numbers, names and transcripts: readable by its owner only.
constexpr mode_t kLogFileMode = 0600;
constexpr mode_t kPrivateDirectoryMode = 0700;

// Appending, never through a symbolic link, and never waiting on a FIFO without a reader.
constexpr int kAppendFlags = O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

// A descriptor for appending to path, or -1. A file of another user counts as one that
// cannot be opened: checked on the opened file itself, so that it cannot be swapped between
// the check and the write.
int openOwnFile(const char *path)
{
    const int fd = ::open(path, kAppendFlags, kLogFileMode);
    if (fd < 0)
        return -1;
    struct stat status = {};
    if (::fstat(fd, &status) != 0 || status.st_uid != ::geteuid()) {
        ::close(fd);
        return -1;
    }
    return fd;
}

std::string parentOf(const std::string &path)
{
    const auto slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}
} // namespace

std::string lineHeader(const std::tm &local, const char *programName, int pid)
{
    char header[256];
    std::snprintf(header, sizeof header, "%.3s %d %.2d:%.2d:%.2d %s[%d]",
                  kMonths[local.tm_mon % 12], local.tm_mday, local.tm_hour, local.tm_min,
                  local.tm_sec, programName, pid);
    return header;
}

std::string temporaryDirectory()
{
    // A runtime directory that is not absolute is no runtime directory.
    const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
    if (runtime.startsWith('/'))
        return runtime.toStdString() + "/net.zorvath.vantrel";
    return "/tmp/net.zorvath.vantrel-" + std::to_string(::geteuid());
}

bool ensurePrivateDirectory(const std::string &path)
{
    const bool made = ::mkdir(path.c_str(), kPrivateDirectoryMode) == 0;
    if (!made && errno != EEXIST)
        return false;
    // O_NOFOLLOW refuses a symbolic link in the folder's place, wherever it points.
    const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat status = {};
    bool mine =
        ::fstat(fd, &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == ::geteuid();
    // The umask may have taken the owner's own bits away.
    if (mine && made)
        mine = ::fchmod(fd, kPrivateDirectoryMode) == 0;
    ::close(fd);
    return mine;
}

std::string fallbackPath()
{
    return temporaryDirectory() + "/syslog";
}

void appendLine(const char *primaryPath, const std::string &fallback, const char *message)
{
    const std::time_t now = std::time(nullptr);
    std::tm local {};
    localtime_r(&now, &local);

    const int fd = openOwnFile(primaryPath);
    if (fd < 0) {
        // Deliberate: the fallback log is opened (and so created) but nothing is written to
        // it and it is left open. Kept as the log has always behaved. It is a bare descriptor,
        // so nothing is lost on the heap.
        if (ensurePrivateDirectory(parentOf(fallback)))
            openOwnFile(fallback.c_str());
        return;
    }
    std::string line = lineHeader(local, program_invocation_short_name, getpid());
    line += ' ';
    line += message;
    line += '\n';
    // One write per line, so that lines of processes sharing the file interleave whole.
    // Errors are ignored: the log never reports failure.
    [[maybe_unused]] const ssize_t written = ::write(fd, line.data(), line.size());
    ::close(fd);
}

} // namespace vantrel::log

void mylog(const char *message)
{
    vantrel::log::appendLine(vantrel::log::kLogPath, vantrel::log::fallbackPath(),
                             message ? message : "(null)");
}

void dumpASBD(const AudioStreamBasicDescription *asbd)
{
    if (asbd == nullptr) {
        vantrel::AssertionHandler::handleFailureInFunction(
            "void dumpASBD(const AudioStreamBasicDescription *)", "VantrelApplication", 88,
            QStringLiteral("Invalid parameter not satisfying: %1")
                .arg(QLatin1String("NULL != asbd")));
    }
    // "%.4s" of the identifier: its four bytes in memory order, up to the first NUL.
    char formatID[5] = {};
    std::memcpy(formatID, &asbd->mFormatID, 4);
    const auto line = [](const QString &text) {
        mylog(QStringLiteral("VantrelLog : %1").arg(text));
    };
    line(QString::asprintf("mSampleRate         %f", asbd->mSampleRate));
    line(QString::asprintf("mFormatID           %.4s", formatID));
    line(QString::asprintf("mFormatFlags        %u", asbd->mFormatFlags));
    line(QString::asprintf("mBytesPerPacket     %u", asbd->mBytesPerPacket));
    line(QString::asprintf("mFramesPerPacket    %u", asbd->mFramesPerPacket));
    line(QString::asprintf("mBytesPerFrame      %u", asbd->mBytesPerFrame));
    line(QString::asprintf("mChannelsPerFrame   %u", asbd->mChannelsPerFrame));
    line(QString::asprintf("mBitsPerChannel     %u", asbd->mBitsPerChannel));
    line(QString::asprintf("mReserved           %u", asbd->mReserved));
}
