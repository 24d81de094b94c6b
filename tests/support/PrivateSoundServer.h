#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <map>
#include <memory>
#include <vector>

// An audio server of the test's own, with the null sinks "speaker" (the default) and
// "earpiece", for tests that take devices away or stop the server: the shared one of the
// test run stays as the other tests expect it. Points PULSE_SERVER of this process at it.
// PulseAudio itself, or with VANTREL_SOUND_SERVER=pipewire what Linux phones run: PipeWire
// with its session manager and its PulseAudio server.
class PrivateSoundServer
{
public:
    PrivateSoundServer();
    ~PrivateSoundServer();

    // Whether the tests run on PipeWire (VANTREL_SOUND_SERVER=pipewire).
    static bool isPipeWire();

    bool start();
    void stop();
    // pactl against this server; answers whether it succeeded.
    bool pactl(const QStringList &arguments, QString *output = nullptr) const;
    // Takes a sink away, as a device unplugged, and brings it back.
    bool removeSink(const QString &name);
    bool addSink(const QString &name, const QString &description);

private:
    // A null sink left idle waits up to two seconds between its rounds, where a device's sink
    // reacts at once; a silent stream of low latency keeps each sink at a device's pace.
    void keepBusy(const QString &sink);

    struct Stop
    {
        void operator()(QProcess *process) const;
    };
    using Process = std::unique_ptr<QProcess, Stop>;

    QTemporaryDir m_dir;
    std::map<QString, Process> m_keepBusy;
    QString m_socket;
    // The server's processes, the one that speaks to clients last.
    std::vector<Process> m_server;
};
