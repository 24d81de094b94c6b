#pragma once

#include "PulseConnection.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>
#include <memory>
#include <vector>

// The audio server's output devices as they come and go: their names, descriptions and the
// default one, and whether a call is under way (a stream of the phone role plays). Reads them on a
// thread of libpulse's own and tells the thread that made it; without an audio server the list is
// empty, and it is tried again now and then.
class AudioOutputs : public QObject
{
    Q_OBJECT
public:
    struct Output
    {
        QString name;
        QString description;
        friend bool operator==(const Output &, const Output &) = default;
    };

    explicit AudioOutputs(QObject *parent = nullptr);
    ~AudioOutputs() override;

    QList<Output> outputs() const { return m_outputs; }
    QString defaultName() const { return m_defaultName; }
    bool contains(const QString &name) const;
    // A stream of the phone role (a call's audio) plays on the server.
    bool callActive() const { return m_callActive; }

signals:
    // The list or the default changed.
    void changed();
    // A call began or ended.
    void callActiveChanged(bool active);

private:
    struct Listing;
    void connectToServer();
    void disconnectFromServer();
    void refresh();
    void apply(const QList<Output> &outputs, const QString &defaultName, bool callActive);
    static void contextStateChanged(pa_context *context, void *self);

    PulseConnection m_connection;
    QList<Output> m_outputs;
    QString m_defaultName;
    bool m_callActive { false };
    QTimer m_retry;
    // The readings under way; touched only on the server thread while it runs.
    std::vector<std::unique_ptr<Listing>> m_listings;
};
