#pragma once

#include <QObject>
#include <QPointer>
#include <QRect>
#include <QUrl>
#include <QVariantMap>
#include <functional>
#include <memory>

class AlertController;
class DesktopApplication;
class DocumentInteractionController;
class DocumentPreview;
class QDBusPendingCallWatcher;
class QFileDialog;

// Told when the sheets of a DocumentInteractionController end. Not owned by the controller.
// Each callback may release the controller; it then hears nothing more from it.
class DocumentInteractionControllerDelegate
{
public:
    virtual ~DocumentInteractionControllerDelegate() = default;
    // The widget over whose window a preview is shown.
    virtual QWidget *documentInteractionControllerViewControllerForPreview(
        DocumentInteractionController *controller) = 0;
    virtual void documentInteractionControllerDidEndPreview(DocumentInteractionController *) {}
    // The file was handed to an application: its desktop id, or empty when the desktop's own
    // chooser picked it without saying which.
    virtual void
    documentInteractionControllerDidEndSendingToApplication(DocumentInteractionController *,
                                                            const QString & /*application*/)
    {}
    virtual void documentInteractionControllerDidDismissOptionsMenu(DocumentInteractionController *)
    {}
    virtual void documentInteractionControllerDidDismissOpenInMenu(DocumentInteractionController *)
    {}
};

// The share sheet for one file, inside the window. The options menu rises from the bottom with
// the file's name and offers Open (the default application), Open With… (the desktop portal's
// chooser, or else the open-in menu), Save a Copy…, Copy (as a file URI), Show in Files, Mail
// (xdg-email) and Cancel. The open-in menu lists the applications for the file's type; the
// preview shows what the file holds. None of them ever offers to unpack an archive.
//
// Every menu that closes, however it closes, is reported once, and after what it led to: a
// file handed to an application first, then the open-in menu, then the options menu it was
// opened from. A menu whose action opens something more (a file chooser, a question, an alert
// that says what went wrong) ends when that is answered. Only Open and Open With… hand the file
// to an application; the other actions end with the menu's dismissal alone. While a preview is
// up its Share button opens the options menu again, as often as the user likes. Sheets still up
// when the controller is destroyed go with it, unreported.
class DocumentInteractionController : public QObject
{
    Q_OBJECT
public:
    static std::unique_ptr<DocumentInteractionController>
    interactionControllerWithURL(const QUrl &fileUrl);
    ~DocumentInteractionController() override;

    QUrl URL() const { return m_url; }
    // A type identifier such as "public.video"; kept for the caller, the file's own type is
    // read from its name and contents.
    QString UTI() const { return m_uti; }
    void setUTI(const QString &uti) { m_uti = uti; }
    QString name() const;
    // A file that goes when its sheet ends (an archive made only to be shared) is handed to
    // other programs as a copy of its own, since they read it after the sheet has ended: one
    // copy per controller, readable by its owner only, in the "Shared" folder of the user's
    // cache, where copies older than a week go.
    bool handsOverCopy() const { return m_handsOverCopy; }
    void setHandsOverCopy(bool copy) { m_handsOverCopy = copy; }
    DocumentInteractionControllerDelegate *delegate() const { return m_delegate; }
    void setDelegate(DocumentInteractionControllerDelegate *delegate) { m_delegate = delegate; }

    // rect is in inView's coordinates; on a pad-sized window the menus point at it. Each answers
    // false when nothing was shown: no view, a menu already up, or (for the open-in menu) no
    // application for the file's type.
    bool presentOptionsMenuFromRect(const QRect &rect, QWidget *inView, bool animated);
    bool presentOpenInMenuFromRect(const QRect &rect, QWidget *inView, bool animated);
    // Over the window of the delegate's viewControllerForPreview widget.
    bool presentPreviewAnimated(bool animated);
    void dismissMenuAnimated(bool animated);
    void dismissPreviewAnimated(bool animated);

    // Whether anything of this controller is still up: the preview, or a menu with whatever
    // its action opened. Once it is not, the controller has reported its last end.
    bool isShowing() const;

    // What is on screen, for keyboard users' helpers and tests.
    AlertController *currentMenu() const;
    DocumentPreview *preview() const;

private slots:
    void portalResponse(uint response, const QVariantMap &results);

private:
    using PortalAnswer = std::function<void(uint response, const QVariantMap &results)>;

    explicit DocumentInteractionController(const QUrl &url);
    QString filePath() const { return m_url.toLocalFile(); }
    // The path to give another program: the file itself, or its hand-over copy.
    QString handedOverPath();
    QString mimeType() const;
    void showOptionsMenu();
    void showOpenInMenu(const QList<DesktopApplication> &applications);
    // Ends whatever menus are up: reports a hand-over to an application when sent, then the
    // open-in menu, then the options menu, each only if it was up.
    void endMenus(bool sent, QString application = QString());
    void closeMenus();
    void cancel() { endMenus(false); }
    // Calls a method of the desktop portal that answers with a Response signal on a request
    // object; its options gain the request's token. answered runs from the event loop with
    // the response; unavailable runs at once when no portal takes the call.
    void askPortal(const QString &interface, const QString &method, QVariantList arguments,
                   QVariantMap options, PortalAnswer answered,
                   const std::function<void()> &unavailable);
    void listenToPortalRequest(const QString &path, bool listen);

    // The actions of the options menu (DocumentInteractionController+Actions.cpp).
    void openWithDefaultApplication();
    void openWithChooser();
    void saveCopy();
    void saveCopyWithDialog();
    void saveCopyTo(const QString &destination, bool replace);
    // Says in the window what went wrong, with "Okay"; the menus end once it is answered.
    void alertThenEnd(const QString &title, const QString &message);
    // The same in a "Vantrel" alert: our own words to the user, the reason to the log.
    void tellThenEnd(const QString &message, const QString &reason);
    // A file that no application took.
    void notOpened(const QString &reason);
    void copyToClipboard();
    void showInFiles();
    void mail();

    QUrl m_url;
    QString m_uti;
    bool m_handsOverCopy { false };
    DocumentInteractionControllerDelegate *m_delegate { nullptr }; // not owned
    QPointer<QWidget> m_window;
    QRect m_sourceRect;
    bool m_optionsMenuUp { false };
    bool m_openInMenuUp { false };
    QPointer<AlertController> m_sheet;
    QPointer<QFileDialog> m_saveDialog;
    QPointer<QDBusPendingCallWatcher> m_portalCall;
    QString m_portalRequest;
    PortalAnswer m_portalAnswer;
    QString m_handOverCopy; // made on the first hand-over, then given every time
    QPointer<DocumentPreview> m_preview;
};
