#pragma once

#include <QApplication>
#include <QPointer>
#include <QWidget>
#include <memory>

class MediaPlayer2;
class NewRecordingNotifier;
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
    // The vCard file or folder the user named; empty for the desktop's own address books.
    void setContactsSource(const QString &source) { m_contactsSource = source; }

    // The launching sequence: runs once, before the event loop.
    void applicationDidFinishLaunching();

    QWidget *window() const { return _window.get(); }
    void setWindow(std::unique_ptr<QWidget> window) { _window = std::move(window); }
    RootViewController *rootController() const { return _viewController; }
    TableController *tableController() const { return _tableController.get(); }

    // Brings the window to the front, as the desktop's raise does.
    void raiseWindow();

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
    // The application became active at launch, or after coming back to the foreground.
    void didBecomeActive();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private slots:
    // Observer of "net.zorvath.vantrel.updateApplicationTable".
    void updateCallback();

private:
    void applyBackgroundStyle();
    void cameBack();

    QString m_messagesDirectory;
    QString m_contactsSource;
    // The list lives as long as the application object, and so as long as the process; it
    // is declared before the window so that the window, which shows its table, goes first.
    std::unique_ptr<TableController> _tableController;
    std::unique_ptr<QWidget> _window;
    RootViewController *_viewController { nullptr }; // a child of the window
    // Media keys and panels drive the list's player; it goes before the list it reads.
    std::unique_ptr<MediaPlayer2> m_mediaPlayer;
    std::unique_ptr<NewRecordingNotifier> m_notifier;

    bool m_hasBeenActive { false };
    bool m_wentToBackground { false };
};
