#pragma once

#include <QWidget>
#include <atomic>
#include <memory>

class QLabel;
class QListWidget;
class QPushButton;

// A sheet over the whole window that shows what one file holds without handing it to another
// application: an archive's members (never unpacked, and with no way offered to unpack them), a
// recording's name and length, or the path of a file that could not be read. Done and Share are
// left to whoever shows it; Escape is Done.
class DocumentPreview : public QWidget
{
    Q_OBJECT
public:
    DocumentPreview(const QString &path, QWidget *window);
    ~DocumentPreview() override;

    QPushButton *doneButton() const { return m_done; }
    QPushButton *shareButton() const { return m_share; }
    // The body's lines as shown: a summary, then an archive's members.
    QStringList lines() const;

signals:
    void doneClicked();
    void shareClicked();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void showArchive(const QString &path);
    void showRecording(const QString &path);

    QPushButton *m_done { nullptr };
    QPushButton *m_share { nullptr };
    QLabel *m_summary { nullptr };
    QListWidget *m_members { nullptr };
    // Raised when the sheet goes, to cut short a length still being worked out.
    std::shared_ptr<std::atomic<bool>> m_abort { std::make_shared<std::atomic<bool>>(false) };
};
