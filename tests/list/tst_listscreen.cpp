#include "ListScreen.h"
#include "TestSupport.h"
#include "playback/VantrelPlayer.h"
#include "toolkit/Label.h"
#include "toolkit/NavigationBar.h"
#include "toolkit/View.h"

#include <QDir>
#include <QLabel>
#include <QTest>
#include <cmath>
#include <unistd.h>

// Whether white is drawn in the area of the widget: white text on this dark screen.
static bool drawsWhite(QWidget *widget, const QRect &area)
{
    return TestSupport::draws(widget, area, [](const QColor &c) { return qGray(c.rgb()) > 220; });
}

// What the list shows of the Messages directory, and how it follows it.
class TestListScreen : public QObject
{
    Q_OBJECT
private slots:
    void init() { m_screen = std::make_unique<ListScreen>(); }
    void cleanup() { m_screen.reset(); }

    void rowsShowCallersNewestFirst()
    {
        m_screen->addRecording("TEL", "+15557654321", "09-Nov-2026-08-45-30");
        m_screen->addRecording("TEL", "+15551234567", "15-Nov-2026-22-10-07");
        m_screen->addRecording("TEL", "PRIVATE", "12-Nov-2026-11-20-03");
        m_screen->addRecording("FT", "someone@example.com", "not-a-time");
        m_screen->open();

        QCOMPARE(m_screen->navigation()->navigationBar()->title(), "Vantrel Plus");
        QCOMPARE(m_screen->shownNames(),
                 QStringList({ "Daniel Reyes", "PRIVATE", "+15557654321", "someone@example.com" }));
        VTCell *first = m_screen->cell(0);
        QCOMPARE(first->detailTextLabel()->text(), "Nov 15 2026 - 22:10:07 - Telephony");
        const QRect name = first->textLabel()->geometry();
        QVERIFY(drawsWhite(first, QRect(name.topLeft(), QSize(60, name.height()))));
        // White initials on a grey disc at better than 3:1, as drawn.
        const QImage disc = first->imageView()->pixmap().toImage();
        const auto luminance = [](QColor c) { // relative luminance, as contrast ratios take it
            const auto linear = [](double v) {
                return v <= 0.03928 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
            };
            return 0.2126 * linear(c.redF()) + 0.7152 * linear(c.greenF()) +
                   0.0722 * linear(c.blueF());
        };
        QVERIFY(TestSupport::draws(first->imageView(), first->imageView()->rect(),
                                   [](const QColor &c) { return c == Qt::white; }));
        const QColor grey = disc.pixelColor(disc.width() / 8, disc.height() / 2);
        const double contrast = (luminance(Qt::white) + 0.05) / (luminance(grey) + 0.05);
        QVERIFY2(contrast >= 3, qPrintable(QString::number(contrast)));
        QCOMPARE(m_screen->cell(3)->detailTextLabel()->text(), "(null) - FaceTime");
        // A withheld caller cannot be called back.
        QVERIFY(first->phoneButton()->isVisible());
        QVERIFY(!m_screen->cell(1)->phoneButton()->isVisible());
    }

    void longTextsEndBeforeTheButtons_data()
    {
        QTest::addColumn<QString>("address");
        QTest::newRow("a number, named in the contacts") << "+15551234567";
        QTest::newRow("a handle longer than the row")
            << "maximilian.alexander.featherstonehaugh-worthington@example.com";
    }

    void longTextsEndBeforeTheButtons()
    {
        QFETCH(QString, address);
        TestSupport::writeFile(
            m_screen->root() + "/contacts.vcf",
            "BEGIN:VCARD\r\nVERSION:3.0\r\nFN:Maximilian Alexander \"Max\" Featherstonehaugh-"
            "Worthington\\nof Leamington Spa\r\nTEL:+15551234567\r\nEND:VCARD\r\n");
        m_screen->addRecording("FaceTimeAudioGroupCall", address, "09-Nov-2026-08-45-30");
        m_screen->open(QString(), 360); // the narrowest phone

        VTCell *cell = m_screen->cell(0);
        QVERIFY(cell);
        const int phone = cell->phoneButton()->geometry().left();
        for (QLabel *label : { cell->textLabel(), cell->detailTextLabel() }) {
            const auto *line = qobject_cast<Label *>(label);
            QVERIFY(line);
            QVERIFY2(label->geometry().right() < phone, qPrintable(label->text()));
            // Cut short with an ellipsis, on one line; screen readers still get the whole text.
            QVERIFY2(line->shownText().endsWith(QChar(0x2026)), qPrintable(line->shownText()));
            QVERIFY(!line->shownText().contains(u'\n'));
            QVERIFY(label->fontMetrics().horizontalAdvance(line->shownText()) <= label->width());
        }
        QVERIFY(cell->accessibleName().size() > cell->textLabel()->width() / 4);
    }

    void aListWithoutRowsSaysWhy_data()
    {
        QTest::addColumn<QString>("directory");
        QTest::addColumn<QString>("says");
        QTest::addColumn<QString>("logged"); // empty: nothing
        const auto row = [](const char *tag, const char *directory, const char *logged = "") {
            QTest::newRow(tag) << QString(directory)
                               << (*logged ? "The voicemail folder cannot be read."
                                           : "No voicemails")
                               << QString(logged);
        };
        row("empty", "empty");
        // The recording side has not made its directory yet, or has taken it away.
        row("not made yet", "missing");
        row("removed while shown", "removed");
        row("a file in its place", "file", "Not a directory");
        if (geteuid() != 0) // permissions do not hold root back
            row("no permission", "locked", "Permission denied");
    }

    void aListWithoutRowsSaysWhy()
    {
        QFETCH(QString, directory);
        QFETCH(QString, says);
        QFETCH(QString, logged);
        const QString messages = m_screen->messages();
        if (directory == "missing" || directory == "file")
            QVERIFY(QDir(messages).removeRecursively());
        if (directory == "file")
            QVERIFY(TestSupport::writeFile(messages, "not a folder"));
        else if (directory == "locked" || directory == "removed")
            m_screen->addRecording("TEL", "+15551234567", "15-Nov-2026-22-10-07");
        if (directory == "locked")
            QVERIFY(QFile::setPermissions(messages, {}));
        const qint64 logStart = TestSupport::logSize();
        m_screen->open();
        QFile::setPermissions(messages, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        if (directory == "removed") {
            QCOMPARE(m_screen->shownNames(), QStringList { "Daniel Reyes" });
            QVERIFY(QDir(messages).removeRecursively());
        }

        // Said in the middle of the list, in grey, never as a black screen; no Edit is drawn or
        // can be clicked, however often edit mode came and went.
        auto *label = m_screen->table()->findChild<QLabel *>("EmptyState");
        QTRY_VERIFY(label->isVisible());
        QVERIFY(m_screen->shownNames().isEmpty());
        QVERIFY2(label->text().startsWith(says), qPrintable(label->text()));
        const QRect list = m_screen->table()->viewport()->geometry();
        QVERIFY(qAbs(label->geometry().center().y() - list.center().y()) < 2);
        QVERIFY(TestSupport::draws(m_screen->table(), list, [](const QColor &c) {
            return qGray(c.rgb()) > 100 && qGray(c.rgb()) < 200;
        }));
        const QString log = TestSupport::logLinesSince(logStart).join('\n');
        if (logged.isEmpty())
            QVERIFY(!log.contains("cannot read the Messages directory"));
        else
            QVERIFY2(log.contains("cannot read the Messages directory " + messages + ": " + logged),
                     qPrintable(log));
        for (int i = 0; i < 20; ++i)
            m_screen->list()->setEditing(i % 2 == 0, false);
        QVERIFY(!editDrawn());
        QVERIFY(!clickOnEditEntersEditMode());

        // A recording arriving puts the list in its place, with its Edit.
        if (directory == "file")
            QVERIFY(QFile::remove(messages));
        QDir().mkpath(messages);
        m_screen->addRecording("TEL", "+15557654321", "16-Nov-2026-10-00-00");
        QTRY_COMPARE(m_screen->list()->numberOfRowsInSection(0), directory == "locked" ? 2 : 1);
        QVERIFY(!label->isVisible());
        QVERIFY(editDrawn());
        QCOMPARE(m_screen->navigation()->navigationBar()->leftButton()->text(), "Edit");
        QVERIFY(clickOnEditEntersEditMode());
    }

    void rowsUseTheWidthTheyGet_data()
    {
        QTest::addColumn<int>("width");
        QTest::addColumn<int>("resizedTo");
        QTest::newRow("the narrowest phone") << 360 << 1200;
        QTest::newRow("a desktop window made narrow") << 1200 << 360;
    }

    void rowsUseTheWidthTheyGet()
    {
        QFETCH(int, width);
        QFETCH(int, resizedTo);
        QVERIFY(m_screen->useSample(
            TestSupport::recordingName("TEL", "+15551234567", "15-Nov-2026-22-10-07")));
        m_screen->addRecording("TEL", "PRIVATE", "04-Nov-2026-11-20-03");
        m_screen->open(QString(), width);
        m_screen->tapRow(0);
        QVERIFY(m_screen->waitForHeights({ 108, 54 }));
        for (const int now : { width, resizedTo }) {
            m_screen->window()->resize(now, 667);
            QTRY_COMPARE(m_screen->cell(0)->width(), now);
            // A withheld caller's row has no buttons: its date and kind are never cut short.
            auto *detail = qobject_cast<Label *>(m_screen->cell(1)->detailTextLabel());
            QCOMPARE(detail->shownText(), "Nov 04 2026 - 11:20:03 - Telephony");
            // The open row's controls span the row: the speaker at its right edge, the speed
            // beside it, the scrub bar up to that.
            VTCell *open = m_screen->cell(0);
            const VantrelPlayer *player = m_screen->list()->playerController();
            QTRY_VERIFY(open->hasPlayer());
            const auto in = [&](QWidget *control) {
                return QRect(control->mapTo(open, QPoint()), control->size());
            };
            QTRY_COMPARE(in(player->speakerButton()).right(), now - 11);
            const QRect speaker = in(player->speakerButton()), speed = in(player->speedButton());
            QVERIFY2(speed.right() < speaker.left() && speed.right() > speaker.left() - 5,
                     qPrintable(QString::number(speed.right())));
            const int barEnd = in(player->progressView()).right() + 1;
            QVERIFY2(barEnd > speed.left() - 12 && barEnd <= speed.left(),
                     qPrintable(QString::number(barEnd)));
        }
    }

private:
    // Whether "Edit" is drawn in the bar, and whether a click where it stands enters edit mode.
    bool editDrawn() const
    {
        NavigationBar *bar = m_screen->navigation()->navigationBar();
        return drawsWhite(bar, QRect(0, 0, bar->width() / 4, bar->height()));
    }

    bool clickOnEditEntersEditMode()
    {
        NavigationBar *bar = m_screen->navigation()->navigationBar();
        QWidget *at = bar->childAt(20, bar->height() / 2);
        QTest::mouseClick(at ? at : bar, Qt::LeftButton, {}, QPoint(20, bar->height() / 2));
        const bool editing = m_screen->list()->isEditing();
        if (editing)
            m_screen->list()->setEditing(false, false);
        return editing;
    }

    std::unique_ptr<ListScreen> m_screen;
};

QTEST_MAIN(TestListScreen)
#include "tst_listscreen.moc"
