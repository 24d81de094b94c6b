#include "PhoneCompositor.h"

#include "TestSupport.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QStandardPaths>
#include <QThread>

namespace {

constexpr const char *kOutput = "HEADLESS-1";
constexpr const char *kForeignToplevel = "/usr/lib/wlroots/foreign-toplevel";
// A loaded machine still brings the compositor up in this.
constexpr int kStartMilliseconds = 20000;

} // namespace

QString PhoneCompositor::missingPrograms()
{
    QStringList missing;
    for (const char *program : { "phoc", "grim", "wlr-randr" }) {
        if (QStandardPaths::findExecutable(QString::fromLatin1(program)).isEmpty())
            missing << QString::fromLatin1(program);
    }
    if (!QFile::exists(QString::fromLatin1(kForeignToplevel)))
        missing << QString::fromLatin1(kForeignToplevel);
    return missing.join(u", ");
}

PhoneCompositor::PhoneCompositor(const QSize &pixels, int scale) : m_pixels(pixels), m_scale(scale)
{
}

PhoneCompositor::~PhoneCompositor()
{
    m_closer.kill();
    m_closer.waitForFinished();
    m_phoc.terminate();
    if (!m_phoc.waitForFinished(5000))
        m_phoc.kill();
    m_phoc.waitForFinished();
}

QString PhoneCompositor::start()
{
    if (!m_runtime.isValid())
        return QStringLiteral("no runtime directory");
    const QString config = m_runtime.filePath(QStringLiteral("phoc.ini"));
    QFile file(config);
    if (!file.open(QIODevice::WriteOnly))
        return file.errorString();
    // A phone's shell runs no X server; its programs speak Wayland.
    file.write(QStringLiteral("[core]\nxwayland = false\n[output:%1]\nmode = %2x%3\nscale = %4\n")
                   .arg(QLatin1String(kOutput))
                   .arg(m_pixels.width())
                   .arg(m_pixels.height())
                   .arg(m_scale)
                   .toUtf8());
    file.close();
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_runtime.path());
    environment.insert(QStringLiteral("WLR_BACKENDS"), QStringLiteral("headless"));
    environment.insert(QStringLiteral("WLR_RENDERER"), QStringLiteral("pixman"));
    environment.insert(QStringLiteral("GSETTINGS_BACKEND"), QStringLiteral("memory"));
    m_phoc.setProcessEnvironment(environment);
    m_phoc.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_phoc.start(QStringLiteral("phoc"), { QStringLiteral("-C"), config });
    if (!m_phoc.waitForStarted())
        return QStringLiteral("cannot start phoc: %1").arg(m_phoc.errorString());
    const QDeadlineTimer deadline(kStartMilliseconds);
    while (!QFile::exists(m_runtime.filePath(QStringLiteral("wayland-0")))) {
        if (deadline.hasExpired() || m_phoc.state() != QProcess::Running)
            return QStringLiteral("phoc made no display socket");
        QThread::msleep(20);
    }
    return {};
}

QProcessEnvironment PhoneCompositor::environment() const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_runtime.path());
    environment.insert(QStringLiteral("WAYLAND_DISPLAY"), QStringLiteral("wayland-0"));
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("wayland"));
    environment.remove(QStringLiteral("DISPLAY"));
    return environment;
}

QImage PhoneCompositor::capture() const
{
    const QString path = m_runtime.filePath(QStringLiteral("screen.png"));
    bool ok = false;
    TestSupport::output(QStringLiteral("grim"), { path }, environment(), &ok);
    return ok ? QImage(path) : QImage();
}

QStringList PhoneCompositor::windows() const
{
    QStringList windows;
    for (const QString &line :
         TestSupport::output(QString::fromLatin1(kForeignToplevel), {}, environment())
             .split(u'\n')) {
        if (const qsizetype title = line.indexOf(QLatin1String("title=")); title >= 0)
            windows << line.mid(title);
    }
    return windows;
}

bool PhoneCompositor::closeFirstWindow()
{
    m_closer.setProcessEnvironment(environment());
    m_closer.setStandardOutputFile(QProcess::nullDevice());
    m_closer.start(QString::fromLatin1(kForeignToplevel),
                   { QStringLiteral("-m"), QStringLiteral("-c"), QStringLiteral("0") });
    return m_closer.waitForStarted();
}

bool PhoneCompositor::rotate(int degrees) const
{
    bool ok = false;
    TestSupport::output(QStringLiteral("wlr-randr"),
                        { QStringLiteral("--output"), QString::fromLatin1(kOutput),
                          QStringLiteral("--transform"),
                          degrees ? QString::number(degrees) : QStringLiteral("normal") },
                        environment(), &ok);
    return ok;
}
