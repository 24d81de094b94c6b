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
// never used as a format. Callable from any thread; keeps no state between calls. The log
// holds phone numbers, names and transcripts: a file the program creates is its owner's only.
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
// without touching the real log. The primary file must be this user's own and no symbolic
// link; the fallback is opened only inside a private folder (see ensurePrivateDirectory).
void appendLine(const char *primaryPath, const std::string &fallbackPath, const char *message);

// The application's temporary directory: "$XDG_RUNTIME_DIR/net.zorvath.vantrel", or
// "/tmp/net.zorvath.vantrel-UID" where there is no runtime directory. Only the path.
std::string temporaryDirectory();

// Creates path as a folder of this user only (mode 0700) when it is missing. Answers whether
// path is now a folder, not a symbolic link, owned by this user.
bool ensurePrivateDirectory(const std::string &path);

// "%@/syslog" of the temporary directory.
std::string fallbackPath();

} // namespace vantrel::log
