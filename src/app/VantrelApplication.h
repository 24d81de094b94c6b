#pragma once

#include <QApplication>
#include <QPointer>
#include <QWidget>
#include <memory>

class RootViewController;
class TableController;

// The application object and its own delegate: builds the window and the list at launch,
// exchanges named notifications with the recording component, and follows the application
// to the foreground and back.
class VantrelApplication : public QApplication
{
    Q_OBJECT
public:
    VantrelApplication(int &argc, char **argv);
    ~VantrelApplication() override;

    static VantrelApplication *sharedApplication();

    // Must be set before launching; every path of the program is formed from it.
    void setMessagesDirectory(const QString &directory) { m_messagesDirectory = directory; }
    QString messagesDirectory() const { return m_messagesDirectory; }

    // The launching sequence: runs once, before the event loop.
    void applicationDidFinishLaunching();

    QWidget *window() const { return _window.get(); }
    void setWindow(std::unique_ptr<QWidget> window) { _window = std::move(window); }
    RootViewController *rootController() const { return _viewController.get(); }
    TableController *tableController() const { return _tableController; }

public slots:
    // Tells the recording component the viewer is visible, and leaves edit mode.
    void appBecameForeground();
    // Clears the badge and rebuilds the list.
    void reloadEntriesInTable();
    // Proximity monitoring is on exactly while the shared player plays into the receiver.
    void audioRouteChanged();
    // What the platform reports of the application's state, turned into foreground and
    // activation: see willEnterForeground and didBecomeActive.
    void applicationStateDidChange(Qt::ApplicationState state);

signals:
    // The application came back after its window was hidden, minimised or suspended.
    void willEnterForeground();
    // The application became the active one (also after a mere loss of focus).
    void didBecomeActive();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private slots:
    // Observer of "net.zorvath.vantrel.updateApplicationTable".
    void updateCallback();

private:
    void applyBackgroundStyle();

    QString m_messagesDirectory;
    // Declared in this order so that the navigation controller goes before the window.
    std::unique_ptr<QWidget> _window;
    std::unique_ptr<RootViewController> _viewController;
    // A child of the application object, so it lives as long as the process does: the
    // destructor never releases it itself.
    TableController *_tableController { nullptr };

    bool m_hasBeenActive { false };
    bool m_wentToBackground { false };
};
