#include "FirstFrameCapture.h"

#include <QCoreApplication>
#include <QEvent>
#include <QImageWriter>
#include <QPixmap>
#include <QTimer>
#include <cstdio>

FirstFrameCapture::FirstFrameCapture(QWidget *window, const QString &path, QObject *parent)
    : QObject(parent), m_window(window), m_path(path)
{
    window->installEventFilter(this);
}

bool FirstFrameCapture::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_window && event->type() == QEvent::Paint && !m_scheduled) {
        // Capture once the paint that is under way, and whatever it posted, has finished.
        m_scheduled = true;
        QTimer::singleShot(0, this, &FirstFrameCapture::capture);
    }
    return QObject::eventFilter(watched, event);
}

void FirstFrameCapture::capture()
{
    if (!m_window) {
        std::fprintf(stderr, "vantrel: cannot write screenshot %s: the window is gone\n",
                     qPrintable(m_path));
        QCoreApplication::exit(1);
        return;
    }
    QImageWriter writer(m_path, "png");
    if (!writer.write(m_window->grab().toImage())) {
        std::fprintf(stderr, "vantrel: cannot write screenshot %s: %s\n", qPrintable(m_path),
                     qPrintable(writer.errorString()));
        QCoreApplication::exit(1);
        return;
    }
    QCoreApplication::exit(0);
}
