#pragma once

#include "store/Entry.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QTimer>
#include <functional>

// Tells the desktop of each recording that arrives while the window is not the active one:
// a "New voicemail" notification (org.freedesktop.Notifications) with the caller and the
// time (and how many are unheard, when others wait too) and the actions "Play" and "Call
// back", and the launcher badge counting what is unheard. It hears of arrivals from the list,
// which knows what it listed before. A burst is shown one notification at a time, a few a
// second at most. Without a notification server only the badge counts.
class NewRecordingNotifier : public QObject
{
    Q_OBJECT
public:
    // Notifications shown per second at most, so that a burst does not flood the screen.
    static constexpr int kPaceMs = 350;

    // unheard answers how many listed recordings nobody has listened to: the badge's number.
    NewRecordingNotifier(QWidget *window, std::function<qsizetype()> unheard,
                         QObject *parent = nullptr);
    ~NewRecordingNotifier() override;

signals:
    // The person chose an action of a recording's notification.
    void playRequested(const QString &filename);
    void callBackRequested(const QString &address);

public slots:
    // These recordings were not listed before, newest first.
    void recordingsArrived(const QList<Entry> &entries);

private slots:
    void actionInvoked(uint id, const QString &action);
    void notificationClosed(uint id, uint reason);

private:
    void showNext();

    QPointer<QWidget> m_window;
    QList<Entry> m_waiting;     // arrived, not yet shown
    QHash<uint, Entry> m_shown; // by notification id, until it closes
    QTimer m_pace;
    std::function<qsizetype()> m_unheard;
    bool m_serverMissingLogged { false };
};
