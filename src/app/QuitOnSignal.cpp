#include "QuitOnSignal.h"

#include "core/Log.h"

#include <QCoreApplication>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {
// The pipe's two ends: the handler writes to [0], the event loop reads [1].
std::array<int, 2> s_pipe { -1, -1 };
constexpr std::array kSignals { SIGTERM, SIGINT, SIGHUP };
} // namespace

QuitOnSignal::QuitOnSignal(QObject *parent) : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, s_pipe.data()) != 0) {
        mylog(QStringLiteral("cannot follow SIGTERM and SIGINT: socketpair: %1")
                  .arg(QString::fromLocal8Bit(strerror(errno))));
        return;
    }
    m_notifier = std::make_unique<QSocketNotifier>(s_pipe[1], QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, [] {
        char signal = 0;
        while (::read(s_pipe[1], &signal, 1) > 0) {
        }
        QCoreApplication::quit();
    });
    struct sigaction action = {};
    action.sa_handler = &QuitOnSignal::handle;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signal : kSignals)
        sigaction(signal, &action, nullptr);
}

QuitOnSignal::~QuitOnSignal()
{
    // From here on a signal ends the process as it would have without us.
    for (const int signal : kSignals)
        std::signal(signal, SIG_DFL);
    m_notifier.reset();
    for (int &end : s_pipe) {
        if (end >= 0)
            ::close(std::exchange(end, -1));
    }
}

void QuitOnSignal::handle(int signal)
{
    const int saved = errno;
    const char byte = char(signal);
    // A full pipe already holds a request to quit.
    [[maybe_unused]] const ssize_t written = ::write(s_pipe[0], &byte, 1);
    errno = saved;
}
