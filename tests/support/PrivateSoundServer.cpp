#include "PrivateSoundServer.h"

#include <QFileInfo>
#include <QProcessEnvironment>
#include <QTest>
#include <csignal>
#include <sys/prctl.h>

bool PrivateSoundServer::isPipeWire()
{
    return qgetenv("VANTREL_SOUND_SERVER") == "pipewire";
}

PrivateSoundServer::PrivateSoundServer() : m_socket(m_dir.filePath(QStringLiteral("native"))) {}

PrivateSoundServer::~PrivateSoundServer()
{
    stop();
}

bool PrivateSoundServer::start()
{
    // The server keeps its own state and its socket ("native", either server) in the folder,
    // apart from the shared one's.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_dir.path());
    environment.insert(QStringLiteral("PULSE_RUNTIME_PATH"), m_dir.path());
    const auto launch = [&](const QString &program, const QStringList &arguments) {
        auto &process = m_server.emplace_back(new QProcess);
        process->setProcessEnvironment(environment);
        process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process->setStandardOutputFile(QProcess::nullDevice());
        // The server never outlives a test that crashed.
        process->setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGKILL); });
        process->start(program, arguments);
        return process->waitForStarted();
    };
    qputenv("PULSE_SERVER", ("unix:" + m_socket).toUtf8());
    if (!isPipeWire()) {
        if (!launch(QStringLiteral("pulseaudio"),
                    { "--daemonize=no", "--exit-idle-time=-1", "--disallow-exit", "-n",
                      "--use-pid-file=no", "--log-level=error",
                      "--load=module-native-protocol-unix socket=" + m_socket + " auth-anonymous=1",
                      "--load=module-null-sink sink_name=speaker "
                      "sink_properties=device.description=Speaker",
                      "--load=module-null-sink sink_name=earpiece "
                      "sink_properties=device.description=Earpiece",
                      "--load=module-always-sink" }) ||
            !QTest::qWaitFor([&] { return pactl({ "info" }); }, 5000))
            return false;
        keepBusy("speaker");
        keepBusy("earpiece");
        return true;
    }
    // Quiet unless something fails; the sinks are made as a user makes them, through the
    // PulseAudio server, and the speaker chosen as the default.
    environment.insert(QStringLiteral("PIPEWIRE_LOG_LEVEL"), QStringLiteral("E"));
    environment.insert(QStringLiteral("WIREPLUMBER_DEBUG"), QStringLiteral("E"));
    // Its session manager and PulseAudio server give up at once when PipeWire's socket is
    // not there yet, as on a loaded machine; so they start once it is, and either is
    // started again should it have given up all the same.
    const QString pipeWireSocket = m_dir.filePath(QStringLiteral("pipewire-0"));
    if (!launch(QStringLiteral("pipewire"), {}) ||
        !QTest::qWaitFor([&] { return QFileInfo::exists(pipeWireSocket); }, 10000) ||
        !launch(QStringLiteral("wireplumber"), {}) || !launch(QStringLiteral("pipewire-pulse"), {}))
        return false;
    const bool answers = QTest::qWaitFor(
        [&] {
            for (const auto &process : m_server) {
                if (process->state() == QProcess::NotRunning)
                    process->start();
            }
            return pactl({ "info" });
        },
        20000);
    // The session manager takes a moment to know a new sink before it can be the default.
    return answers && addSink("speaker", "Speaker") && addSink("earpiece", "Earpiece") &&
           QTest::qWaitFor(
               [&] {
                   return pactl({ "set-default-sink", "speaker" });
               },
               10000);
}

void PrivateSoundServer::Stop::operator()(QProcess *process) const
{
    process->kill();
    process->waitForFinished();
    delete process;
}

void PrivateSoundServer::keepBusy(const QString &sink)
{
    Process process(new QProcess);
    process->setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGKILL); });
    process->setStandardInputFile(QStringLiteral("/dev/zero"));
    process->start(QStringLiteral("pacat"), { "--playback", "--device=" + sink, "--raw",
                                              "--latency-msec=10", "--rate=48000" });
    process->waitForStarted();
    m_keepBusy[sink] = std::move(process);
}

void PrivateSoundServer::stop()
{
    m_keepBusy.clear();
    // The one that speaks to clients first, so that they see the server go at once.
    while (!m_server.empty())
        m_server.pop_back();
}

bool PrivateSoundServer::pactl(const QStringList &arguments, QString *output) const
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("PULSE_SERVER"), "unix:" + m_socket);
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral("pactl"), arguments);
    if (!process.waitForFinished(5000) || process.exitCode() != 0)
        return false;
    if (output)
        *output = QString::fromUtf8(process.readAllStandardOutput());
    return true;
}

bool PrivateSoundServer::removeSink(const QString &name)
{
    QString modules;
    if (!pactl({ "list", "short", "modules" }, &modules))
        return false;
    for (const QString &line : modules.split(u'\n')) {
        if (line.contains("sink_name=" + name + ' ') || line.endsWith("sink_name=" + name)) {
            m_keepBusy.erase(name);
            return pactl({ "unload-module", line.section(u'\t', 0, 0) });
        }
    }
    return false;
}

bool PrivateSoundServer::addSink(const QString &name, const QString &description)
{
    if (!pactl({ "load-module", "module-null-sink", "sink_name=" + name,
                 "sink_properties=device.description=" + description }))
        return false;
    keepBusy(name);
    return true;
}
