#pragma once

#include <QImage>
#include <QProcess>
#include <QSize>
#include <QString>
#include <QTemporaryDir>

// Phosh's compositor, phoc, run headless with one output the size and scale of a phone's
// screen, and read from outside as a phone's shell reads it: what it shows (grim), the windows
// it knows with their app ids (wlroots' foreign-toplevel client), and the output turned as a
// rotated phone turns it (wlr-randr). Programs run in it with environment().
class PhoneCompositor
{
public:
    // The programs this needs, or an empty string when all are installed.
    static QString missingPrograms();

    PhoneCompositor(const QSize &pixels, int scale);
    ~PhoneCompositor();

    // Starts it; an empty string when its socket is ready, else what went wrong.
    QString start();
    // The environment in which a Qt program opens its windows here.
    QProcessEnvironment environment() const;
    // The screen as shown, in pixels; null when it could not be read.
    QImage capture() const;
    // One line per window: "title=... app_id=... no parent maximized ... inactive".
    QStringList windows() const;
    // Asks the first window to close, as a shell's close button does.
    bool closeFirstWindow();
    // Turns the output by degrees (0, 90, 180, 270).
    bool rotate(int degrees) const;

private:
    QSize m_pixels;
    int m_scale;
    QTemporaryDir m_runtime;
    QProcess m_phoc;
    // A close request reaches the compositor only from a client that stays connected after
    // sending it: this one watches the window list until the compositor goes.
    QProcess m_closer;
};
