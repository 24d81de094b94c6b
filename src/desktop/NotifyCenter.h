#pragma once

#include <QObject>
#include <QString>

// System-wide named notifications shared with the recording component, carried as D-Bus
// signals on the session bus: "net.zorvath.vantrel.updateApplicationTable" is the signal
// updateApplicationTable of interface net.zorvath.vantrel on object /net/zorvath/vantrel.
// Without a session bus, posting and observing do nothing.
namespace NotifyCenter {

inline constexpr const char *kObjectPath = "/net/zorvath/vantrel";

// Posts the notification; answers whether it went onto a bus.
bool notify_post(const QString &name);

// Calls receiver's slot (no arguments) for every posting of name, from anyone on the bus.
bool addObserver(const QString &name, QObject *receiver, const char *slot);

} // namespace NotifyCenter
