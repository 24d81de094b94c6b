#include "PrivateSoundServer.h"

#include <QProcessEnvironment>
#include <QTest>
#include <csignal>
#include <sys/prctl.h>

PrivateSoundServer::PrivateSoundServer()
    : m_socket(m_dir.filePath(QStringLiteral("native")))
{
    // The server keeps its own state beside its socket, apart from the shared one's.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_dir.path());
    environment.insert(QStringLiteral("PULSE_RUNTIME_PATH"), m_dir.path());
    m_server.setProcessEnvironment(environment);
    m_server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_server.setStandardOutputFile(QProcess::nullDevice());
    // The server never outlives a test that crashed.
    m_server.setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGKILL); });
}

PrivateSoundServer::~PrivateSoundServer()
{
    stop();
}

bool PrivateSoundServer::start()
{
    m_server.start(QStringLiteral("pulseaudio"),
                   { "--daemonize=no", "--exit-idle-time=-1", "--disallow-exit", "-n",
                     "--use-pid-file=no", "--log-level=error",
                     "--load=module-native-protocol-unix socket=" + m_socket + " auth-anonymous=1",
                     "--load=module-null-sink sink_name=speaker sink_properties=device.description=Speaker",
                     "--load=module-null-sink sink_name=earpiece sink_properties=device.description=Earpiece",
                     "--load=module-always-sink" });
    qputenv("PULSE_SERVER", ("unix:" + m_socket).toUtf8());
    if (!m_server.waitForStarted() || !QTest::qWaitFor([&] { return pactl({ "info" }); }, 5000))
        return false;
    keepBusy("speaker");
    keepBusy("earpiece");
    return true;
}

void PrivateSoundServer::Stop::operator()(QProcess *process) const
{
    process->kill();
    process->waitForFinished();
    delete process;
}

void PrivateSoundServer::keepBusy(const QString &sink)
{
    std::unique_ptr<QProcess, Stop> process(new QProcess);
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
    if (m_server.state() == QProcess::NotRunning)
        return;
    m_server.kill();
    m_server.waitForFinished();
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
