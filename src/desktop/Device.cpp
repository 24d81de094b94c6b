#include "Device.h"

#include <QCoreApplication>
#include <QProximitySensor>
#include <QWidget>

Device *Device::currentDevice()
{
    // A child of the application object, like the sensor and the sheet it makes.
    static QPointer<Device> device;
    if (!device)
        device = new Device(QCoreApplication::instance());
    return device;
}

void Device::setWindow(QWidget *window)
{
    m_window = window;
}

void Device::setProximityMonitoringEnabled(bool enabled)
{
    if (m_proximityMonitoringEnabled == enabled)
        return;
    m_proximityMonitoringEnabled = enabled;
    if (enabled && !m_sensor) {
        m_sensor = new QProximitySensor(this);
        connect(m_sensor, &QSensor::readingChanged, this, [this] {
            if (m_proximityMonitoringEnabled && m_sensor->reading())
                applyProximity(m_sensor->reading()->close());
        });
    }
    if (m_sensor) {
        if (enabled)
            m_sensor->start(); // answers false where there is no sensor; the flag stays
        else
            m_sensor->stop();
    }
    if (!enabled)
        applyProximity(false);
    emit proximityMonitoringChanged(enabled);
}

void Device::applyProximity(bool near)
{
    if (near && m_window && !m_blank) {
        // A black sheet over the whole window takes every touch while the ear is on it.
        m_blank = new QWidget(m_window);
        m_blank->setStyleSheet(QStringLiteral("background: black;"));
        m_blank->setGeometry(m_window->rect());
        m_blank->show();
        m_blank->raise();
    } else if (!near && m_blank) {
        m_blank->deleteLater();
        m_blank = nullptr;
    }
}
