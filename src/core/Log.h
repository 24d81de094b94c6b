#pragma once

#include <QString>
#include <cstdint>
#include <ctime>
#include <string>

// The fields of an audio stream description, as the recording side reports them.
struct AudioStreamBasicDescription
{
    double mSampleRate { 0 };
    uint32_t mFormatID { 0 };
    uint32_t mFormatFlags { 0 };
    uint32_t mBytesPerPacket { 0 };
    uint32_t mFramesPerPacket { 0 };
    uint32_t mBytesPerFrame { 0 };
    uint32_t mChannelsPerFrame { 0 };
    uint32_t mBitsPerChannel { 0 };
    uint32_t mReserved { 0 };
};

// Appends one dated line to the diagnostic log "/tmp/syslog". The message is data: it is
// never used as a format. Callable from any thread; keeps no state between calls.
void mylog(const char *message);
inline void mylog(const QString &message)
{
    mylog(message.toUtf8().constData());
}

// Writes the fields of a stream description to the log, one "VantrelLog : " line each.
// Kept as a developer's tool; nothing calls it.
void dumpASBD(const AudioStreamBasicDescription *asbd);

namespace vantrel::log {

inline constexpr const char *kLogPath = "/tmp/syslog";

// "Nov 5 09:07:03 vantrel[1234]": the header that starts every line.
std::string lineHeader(const std::tm &local, const char *programName, int pid);

// The whole of mylog with its two paths made explicit, so that both can be exercised
// without touching the real log.
void appendLine(const char *primaryPath, const std::string &fallbackPath, const char *message);

// "%@/syslog" of the temporary directory.
std::string fallbackPath();

} // namespace vantrel::log
