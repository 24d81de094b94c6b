#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QWidget>

// Waits for the window's first paint, then writes what it shows as PNG and ends the event
// loop: with 0 when the file was written, 1 otherwise (with the reason on standard error).
class FirstFrameCapture : public QObject
{
    Q_OBJECT
public:
    FirstFrameCapture(QWidget *window, const QString &path, QObject *parent = nullptr);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void capture();

    QPointer<QWidget> m_window;
    QString m_path;
    bool m_scheduled { false };
};
