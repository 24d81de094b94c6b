#pragma once

#include <QList>
#include <QPointer>
#include <QString>
#include <QWidget>
#include <functional>

class QLabel;
class QPushButton;

class AlertAction
{
public:
    enum class Style
    {
        Default = 0,
        Cancel = 1,
        Destructive = 2
    };
    using Handler = std::function<void(const AlertAction &)>;

    static AlertAction actionWithTitle(const QString &title, Style style, Handler handler = {})
    {
        return AlertAction(title, style, std::move(handler));
    }

    QString title() const { return m_title; }
    Style style() const { return m_style; }
    const Handler &handler() const { return m_handler; }

private:
    AlertAction(QString title, Style style, Handler handler)
        : m_title(std::move(title)), m_style(style), m_handler(std::move(handler))
    {}
    QString m_title;
    Style m_style;
    Handler m_handler;
};

// A modal sheet inside the window: it dims the screen and shows a title, a message and its
// actions. An alert sits in the middle; an action sheet rises from the bottom, or on a
// pad-sized window (768 points or wider) is shown as a popover next to the rectangle it
// was opened from. Escape chooses the cancel action. Enter chooses the focused button: the
// first action when the sheet opens, or Cancel where an action is destructive, so that such
// an action is only ever chosen on purpose. Choosing an action closes the sheet and then runs
// its handler.
class AlertController : public QWidget
{
    Q_OBJECT
public:
    enum class Style
    {
        ActionSheet = 0,
        Alert = 1
    };

    static AlertController *alertControllerWithTitle(const QString &title, const QString &message,
                                                     Style preferredStyle);
    // An alert that tells the user something, with one "Okay" that Escape also chooses.
    static AlertController *alertWithOkay(const QString &title, const QString &message,
                                          AlertAction::Handler okay = {});

    void addAction(const AlertAction &action);
    QList<AlertAction> actions() const { return m_actions; }
    QString title() const { return m_title; }
    // Both may change while the sheet shows; the panel keeps its place and grows as needed.
    void setTitle(const QString &title);
    QString message() const { return m_message; }
    void setMessage(const QString &message);
    Style preferredStyle() const { return m_style; }

    // For action sheets on a pad-sized window: the rectangle (in window coordinates) that the
    // popover points at.
    void setSourceRect(const QRect &rect) { m_sourceRect = rect; }

    // Shows the sheet over the window that holds over; the sheet belongs to that window from
    // then on and deletes itself when dismissed.
    void presentIn(QWidget *over, bool animated);
    void dismiss(bool animated);

    // The button of an action, for keyboard and accessibility users and for tests.
    QPushButton *buttonForAction(const QString &title) const;

signals:
    void dismissed();
    // Every new title or message, also those replaced before the screen was drawn again.
    void titleChanged(const QString &title);
    void messageChanged(const QString &message);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    bool focusNextPrevChild(bool next) override;
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;

private:
    AlertController(const QString &title, const QString &message, Style style);
    void build();
    void placePanel();
    void choose(int index);
    int cancelIndex() const;
    bool hasDestructiveAction() const;

    QString m_title;
    QString m_message;
    Style m_style;
    QList<AlertAction> m_actions;
    QRect m_sourceRect;
    QWidget *m_panel { nullptr };
    QLabel *m_titleLabel { nullptr };
    QLabel *m_messageLabel { nullptr };
    QList<QPushButton *> m_buttons;
    QPointer<QWidget> m_returnFocus;
    bool m_done { false };
};
