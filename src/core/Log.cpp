#include "Log.h"

#include "Assert.h"

#include <QDir>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace vantrel::log {

namespace {
constexpr const char *kMonths[12] = { "Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec" };
}

std::string lineHeader(const std::tm &local, const char *programName, int pid)
{
    char header[256];
    std::snprintf(header, sizeof header, "%.3s %d %.2d:%.2d:%.2d %s[%d]",
                  kMonths[local.tm_mon % 12], local.tm_mday, local.tm_hour, local.tm_min,
                  local.tm_sec, programName, pid);
    return header;
}

std::string fallbackPath()
{
    return QStringLiteral("%1/syslog").arg(QDir::tempPath()).toStdString();
}

void appendLine(const char *primaryPath, const std::string &fallback, const char *message)
{
    const std::time_t now = std::time(nullptr);
    std::tm local {};
    localtime_r(&now, &local);

    FILE *file = std::fopen(primaryPath, "a");
    if (!file) {
        // Deliberate: the fallback log is opened (and so created) but nothing is written to
        // it and it is left open. Kept as the log has always behaved.
        std::fopen(fallback.c_str(), "a");
        return;
    }
    std::string line = lineHeader(local, program_invocation_short_name, getpid());
    line += ' ';
    line += message;
    line += '\n';
    // One write per line, so that lines of processes sharing the file interleave whole.
    std::fwrite(line.data(), 1, line.size(), file);
    std::fclose(file);
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
