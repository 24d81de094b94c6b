#pragma once

#include <QObject>
#include <QSocketNotifier>
#include <memory>

// Ends the event loop on SIGTERM, SIGINT and SIGHUP as a closed window would, so that a
// session's own files (the demo's copy of the recordings among them) are removed on the way
// out: the signal handler only writes a byte to a pipe that the event loop reads.
class QuitOnSignal : public QObject
{
    Q_OBJECT
public:
    explicit QuitOnSignal(QObject *parent = nullptr);
    ~QuitOnSignal() override;

private:
    static void handle(int signal);

    std::unique_ptr<QSocketNotifier> m_notifier;
};
