#pragma once

#include <QObject>
#include <QPointer>

class QProximitySensor;
class QWidget;

// The device the application runs on. While proximity monitoring is enabled and a proximity
// sensor reports something near (the phone held to the ear), the window goes black and
// ignores touches; on a machine without such a sensor the flag is kept and nothing happens.
class Device : public QObject
{
    Q_OBJECT
public:
    static Device *currentDevice();

    bool isProximityMonitoringEnabled() const { return m_proximityMonitoringEnabled; }
    void setProximityMonitoringEnabled(bool enabled);

    // The window that is blanked while the sensor reports something near.
    void setWindow(QWidget *window);

signals:
    void proximityMonitoringChanged(bool enabled);

private:
    using QObject::QObject;
    void applyProximity(bool near);

    bool m_proximityMonitoringEnabled { false };
    QProximitySensor *m_sensor { nullptr }; // a child, made when first enabled
    QPointer<QWidget> m_window;
    QPointer<QWidget> m_blank;
};
