#include "VTCell.h"

#include "TableController.h"
#include "playback/VantrelProgressView.h"
#include "toolkit/Screen.h"
#include "toolkit/View.h"

#include <QEvent>
#include <QPainter>
#include <QTimer>
#include <algorithm>

namespace {
// The phone's frames, in points.
constexpr int kButtonTop = 8;
constexpr int kReadButtonRightInset = 43;
constexpr int kPhoneButtonRightInset = 86;
constexpr int kReaderRightInset = 37;
constexpr int kReaderBottomInset = 17;
constexpr int kReaderGap = 5;
constexpr int kTextRightMargin = 15;
constexpr int kTextTop = 10;
constexpr double kDetailTop = 30.5;
constexpr int kImageTop = 6;
constexpr double kPlayerTop = 56.5;
constexpr double kPlayerHeight = 53.5;
constexpr int kReaderFontSize = 13;
// A cell is made at the size the phone gives a new cell, and laid out again once placed.
constexpr int kInitialCellHeight = 44;
constexpr int kDotSize = 8;
constexpr int kDotGap = 2; // between the dot and the monogram
// The phone's own blue for what is new; brighter than the focus ring, which it never touches.
const QColor kDotColor { 10, 132, 255 };

// The unheard mark: a round dot in the margin before the monogram.
class UnheardDot : public QWidget
{
public:
    explicit UnheardDot(QWidget *parent) : QWidget(parent)
    {
        setFixedSize(kDotSize, kDotSize);
        setAttribute(Qt::WA_TransparentForMouseEvents);
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
        painter.setBrush(kDotColor);
        painter.drawEllipse(QRectF(rect()));
    }
};
} // namespace

VTCell::VTCell(Style style, const QString &reuseIdentifier, TableController *target,
               QWidget *parent)
    : TableViewCell(style, reuseIdentifier, parent), m_readButton(new Button(contentView())),
      m_phoneButton(new Button(contentView())), m_playerView(new QWidget(contentView())),
      m_unheardDot(new UnheardDot(contentView()))
{
    m_unheardDot->hide();
    resize(Screen::mainScreenBounds().width(), kInitialCellHeight);
    TableViewCell::layoutSubviews();
    const QWidget *content = contentView();

    m_readButton->setObjectName(QStringLiteral("reader"));
    m_readButton->setBackgroundImage(QStringLiteral("reader"), Button::State::Normal);
    m_readButton->setBackgroundImage(QStringLiteral("reader-selected"), Button::State::Selected);
    m_readButton->setGeometry(content->width() - kReadButtonRightInset, kButtonTop,
                              kButtonSize.width(), kButtonSize.height());
    m_readButton->setAccessibleName(QStringLiteral("Transcript"));
    m_readButton->setCheckable(false);
    m_readButton->setSelected(false);

    m_phoneButton->setObjectName(QStringLiteral("PhoneHandleAnswer"));
    m_phoneButton->setBackgroundImage(QStringLiteral("PhoneHandleAnswer"), Button::State::Normal);
    m_phoneButton->setGeometry(content->width() - kPhoneButtonRightInset, kButtonTop,
                               kButtonSize.width(), kButtonSize.height());
    m_phoneButton->setAccessibleName(QStringLiteral("Call back"));
    // The row is the Tab stop; its buttons are reached with Right and Left from it.
    m_readButton->setFocusPolicy(Qt::NoFocus);
    m_phoneButton->setFocusPolicy(Qt::NoFocus);

    if (target) {
        connect(m_readButton, &QAbstractButton::clicked, target,
                [target, button = m_readButton] { target->readerViewTapped(button); });
        connect(m_phoneButton, &QAbstractButton::clicked, target,
                [target, button = m_phoneButton] { target->dialButtonTapped(button); });
    }

    m_playerView->setGeometry(
        QRectF(0, kPlayerTop, Screen::mainScreenBounds().width(), kPlayerHeight).toRect());
    m_playerView->setAccessibleName(QStringLiteral("Player"));
    // The player's controls come and go; the cell lays itself out again when they do.
    m_playerView->installEventFilter(this);
}

VTCell::~VTCell()
{
    // What the player put into this row is the player's: handed back, never destroyed here.
    for (QWidget *controls : m_playerView->findChildren<QWidget *>(Qt::FindDirectChildrenOnly))
        controls->setParent(nullptr);
}

QTextBrowser *VTCell::readerView() const
{
    if (m_readerView)
        return m_readerView;
    // Made on first use: most rows never show a transcript, and a text view is by far the
    // dearest part of a row to build while the list scrolls.
    const QRect text = textLabel()->geometry();
    const QWidget *content = contentView();
    m_readerView = new QTextBrowser(contentView());
    m_readerView->setGeometry(text.x(), text.y(), content->width() - text.x() - kReaderRightInset,
                              content->height() - kReaderBottomInset);
    m_readerView->setFrameShape(QFrame::NoFrame);
    m_readerView->setOpenLinks(false);
    m_readerView->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    useOverlayScrollBars(m_readerView);
    m_readerView->setFocusPolicy(Qt::NoFocus);
    m_readerView->viewport()->setAutoFillBackground(false);
    QPalette palette = m_readerView->palette();
    palette.setColor(QPalette::Base, Qt::transparent);
    palette.setColor(QPalette::Text, QColor(255, 255, 255, 204));
    m_readerView->setPalette(palette);
    QFont readerFont = m_readerView->font();
    readerFont.setPixelSize(kReaderFontSize);
    m_readerView->setFont(readerFont);
    m_readerView->setAccessibleName(QStringLiteral("Transcript"));
    setAlpha(m_readerView, 0.0);
    return m_readerView;
}

void VTCell::closeTranscript()
{
    m_readButton->setSelected(false);
    m_readerText.clear();
    if (m_readerView)
        m_readerView->clear();
    layoutSubviews();
}

bool VTCell::hasPlayer() const
{
    return !m_playerView->findChildren<QWidget *>(Qt::FindDirectChildrenOnly).isEmpty();
}

QList<QWidget *> VTCell::rowControls() const
{
    return { m_phoneButton, m_readButton };
}

QList<QWidget *> VTCell::followingControls() const
{
    QList<QWidget *> controls;
    for (QWidget *child : m_playerView->findChildren<QWidget *>()) {
        if ((child->focusPolicy() & Qt::TabFocus) && child->isVisibleTo(m_playerView))
            controls << child;
    }
    std::sort(controls.begin(), controls.end(), [this](const QWidget *a, const QWidget *b) {
        return a->mapTo(m_playerView, QPoint()).x() < b->mapTo(m_playerView, QPoint()).x();
    });
    return controls;
}

QList<QWidget *> VTCell::touchTargets() const
{
    QList<QWidget *> targets = rowControls();
    for (QWidget *control : followingControls()) {
        const auto *bar = qobject_cast<VantrelProgressView *>(control);
        targets << (bar ? bar->grip() : control);
    }
    return targets;
}

bool VTCell::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_playerView &&
        (event->type() == QEvent::ChildAdded || event->type() == QEvent::ChildRemoved) &&
        !m_layoutPending) {
        m_layoutPending = true;
        QTimer::singleShot(0, this, [this] {
            m_layoutPending = false;
            layoutSubviews();
            emit controlsChanged();
        });
    }
    return TableViewCell::eventFilter(watched, event);
}

bool VTCell::isUnheard() const
{
    return !m_unheardDot->isHidden();
}

void VTCell::setUnheard(bool unheard)
{
    m_unheardDot->setVisible(unheard);
}

void VTCell::layoutSubviews()
{
    TableViewCell::layoutSubviews();
    const QWidget *content = contentView();
    QLabel *text = textLabel();
    QLabel *detail = detailTextLabel();

    text->move(text->x(), kTextTop);
    detail->move(detail->x(), qRound(kDetailTop));
    imageView()->move(imageView()->x(), kImageTop);
    m_unheardDot->move(imageView()->x() - kDotSize - kDotGap,
                       kImageTop + (imageView()->height() - kDotSize) / 2);

    m_playerView->setGeometry(QRectF(0, kPlayerTop, width(), kPlayerHeight).toRect());
    setAlpha(m_playerView, hasPlayer() ? 1.0 : 0.0);

    if (alpha(m_playerView) == 0.0) {
        const bool reading = m_readButton->isSelected();
        setAlpha(text, reading ? 0.0 : 1.0);
        setAlpha(detail, reading ? 0.0 : 1.0);
        if (reading || m_readerView)
            setAlpha(readerView(), reading ? 1.0 : 0.0);
    } else {
        // A player always wins over an open transcript.
        m_playerView->setGeometry(0, height() / 2, width(), height() / 2);
        // The player's controls take the row's whole width, as wide as the window is.
        for (QWidget *controls : m_playerView->findChildren<QWidget *>(Qt::FindDirectChildrenOnly))
            controls->resize(width(), controls->height());
        setAlpha(m_readerView, 0.0); // null (no transcript view yet) is ignored
        m_readButton->setSelected(false);
        setAlpha(text, 1.0);
        setAlpha(detail, 1.0);
    }

    setAlpha(m_readButton, m_hasText ? 1.0 : 0.0);

    m_readButton->setGeometry(content->width() - kReadButtonRightInset, kButtonTop,
                              kButtonSize.width(), kButtonSize.height());
    m_phoneButton->setGeometry(content->width() - kPhoneButtonRightInset, kButtonTop,
                               kButtonSize.width(), kButtonSize.height());

    const int phoneX = m_phoneButton->x();
    if (m_readerView) {
        m_readerView->setGeometry(text->x(), text->y(), phoneX - text->x() - kReaderGap,
                                  content->height() - kReaderBottomInset);
    }
    // Neither the name nor the detail line runs under a button that shows; both use all the
    // width up to the first one, or to the row's margin where there is none.
    int textEnd = content->width() - kTextRightMargin;
    for (const Button *button : { m_phoneButton, m_readButton }) {
        if (!button->isHidden())
            textEnd = qMin(textEnd, button->x() - kReaderGap);
    }
    text->resize(qMax(0, textEnd - text->x()), text->height());
    detail->resize(qMax(0, textEnd - detail->x()), detail->height());
}
