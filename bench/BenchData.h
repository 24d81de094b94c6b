#pragma once

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <string>

// A Messages directory and an address book the size of a heavy user's, in a temporary
// directory that goes away with the object. The same counts always give the same files, so
// runs compare.
//
// Callers come from a pool of about 3,000 addresses (mostly "+1555...", some "+44...", a few
// e-mail handles called over FaceTime); the address book's numbers own about half of them,
// written the way people type them ("(555) 123-4567", "+44 7700 900123"), so that finding a
// caller's contact goes through the number matching rather than a plain string compare.
class BenchData
{
public:
    BenchData(int recordings, int contacts = 1000);

    bool isValid() const { return m_valid; }
    int recordingCount() const { return m_recordings; }
    QString root() const { return m_root.path(); }
    QString messagesDirectory() const { return m_root.path() + QLatin1String("/Messages"); }
    QString contactsFile() const { return m_root.path() + QLatin1String("/contacts.vcf"); }
    const QStringList &callers() const { return m_callers; }
    // The call time of the newest recording written.
    QDateTime newestTime() const { return m_newest; }

    // "msg-_TEL-_+15551234567-_15-Nov-2026-22-10-07.caf"; handles are FaceTime calls.
    static QString recordingName(const QString &address, const QDateTime &time,
                                 bool faceTime = false);
    static bool writeFile(const QString &path, const QByteArray &data = {});

    // Fixes what the results depend on, whatever the shell running them: a headless Qt, a
    // time zone with daylight saving, a US English locale. Call first thing in main().
    static void setUpEnvironment();

    // What no catalogue can go below: list the directory, split each name on "-_" and look for
    // its transcript with stat, in plain C++ and POSIX calls. Answers the recordings seen.
    static std::size_t directoryFloor(const std::string &directory);
    // The process's CPU time: a busy machine inflates wall time unevenly.
    static double cpuSeconds();

    // Google Benchmark's main: runs what the command line selects and answers the exit code.
    static int runBenchmarks(int argc, char **argv);

private:
    QTemporaryDir m_root;
    QStringList m_callers;
    QDateTime m_newest;
    int m_recordings { 0 };
    bool m_valid { false };
};
