// What nobody has listened to yet stands out: a dot beside its row, said as "unheard" to a
// screen reader, until the recording has played for a few seconds or to its end; and the
// program remembers it across starts.
#include "ListScreen.h"
#include "TestSupport.h"
#include "playback/VantrelPlayer.h"
#include "toolkit/Button.h"

#include <QAccessible>
#include <QDir>
#include <QStandardPaths>
#include <QTest>

namespace {

const QString kDaniel = TestSupport::recordingName("TEL", "+15551234567", "15-Nov-2026-22-10-07");
const QString kAnna =
    TestSupport::recordingName("FT", "anna.berg@example.com", "02-Nov-2026-18-30-12");

// Where the program keeps what was heard: its own data folder, never the Messages directory.
QDir heardFolder()
{
    return QDir(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                QLatin1String("/net.zorvath.vantrel/heard"));
}

} // namespace

class TestUnheard : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        heardFolder().removeRecursively();
        m_screen = std::make_unique<ListScreen>();
        // Daniel's message is long: it is heard well before its end.
        QVERIFY(TestSupport::writeTone(m_screen->messages() + u'/' + kDaniel, 30, "440",
                                       { "-c:a", "pcm_s16le" }));
        QVERIFY(m_screen->useSample(kAnna));
    }

    void cleanup()
    {
        m_screen.reset();
        heardFolder().removeRecursively();
    }

    void listeningToARecordingHearsIt()
    {
        m_screen->open();
        QVERIFY(dotDrawn(0));
        QVERIFY(dotDrawn(1));
        QVERIFY(description(0).startsWith("unheard, Nov 15 2026"));

        // A moment's listen is not enough; listening on is.
        play(0);
        QTest::qWait(500);
        Button *button = m_screen->list()->playerController()->playbackButton();
        QTest::mouseClick(button, Qt::LeftButton);
        QVERIFY(!m_screen->list()->playerController()->isPlaying());
        QVERIFY(dotDrawn(0));
        QTest::mouseClick(button, Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(!dotDrawn(0), 15000);
        QCOMPARE(description(0), "Nov 15 2026 - 22:10:07 - Telephony");
        QVERIFY(dotDrawn(1));

        // The next start remembers it, from a file of the program's own that only its owner reads.
        m_screen->open();
        QVERIFY(!dotDrawn(0));
        QVERIFY(dotDrawn(1));
        const QStringList files = heardFolder().entryList(QDir::Files);
        QCOMPARE(files.size(), 1);
        const QString file = heardFolder().filePath(files.first());
        QCOMPARE(TestSupport::fileMode(file), 0600);
        QCOMPARE(QDir(m_screen->messages()).entryList(QDir::Files),
                 (QStringList { kAnna, kDaniel }));

        // Renamed, it is another recording, and the old name is not kept once anything is heard.
        const QString renamed =
            TestSupport::recordingName("TEL", "+15551234567", "16-Nov-2026-07-00-00");
        QVERIFY(QDir(m_screen->messages()).rename(kDaniel, renamed));
        QTRY_VERIFY(m_screen->cell(0) && m_screen->cell(0)->filePath() == renamed);
        QVERIFY(dotDrawn(0));
        play(1);
        QTRY_VERIFY_WITH_TIMEOUT(!dotDrawn(1), 15000);
        const QByteArray written = TestSupport::readFile(file);
        QCOMPARE(written.count('\n'), 1 + 1); // the header and Anna's

        // The file damaged in each of these ways: never a crash, and nothing counts as heard.
        for (const QByteArray &contents :
             { QByteArray(), QByteArray("[General]\nheard=all\n"), written.left(written.size() - 4),
               QByteArray("\x00\xff\xfe\x01", 4) + written }) {
            QVERIFY(TestSupport::writeFile(file, contents));
            m_screen->open();
            QVERIFY2(dotDrawn(0) && dotDrawn(1), contents.toHex().constData());
        }
    }

private:
    // The dot drawn in the row's margin, before the monogram.
    bool dotDrawn(int row) const
    {
        return TestSupport::draws(m_screen->cell(row), QRect(5, 20, 10, 14),
                                  [](const QColor &c) { return c.blue() > 200 && c.red() < 80; });
    }

    QString description(int row) const
    {
        return QAccessible::queryAccessibleInterface(m_screen->cell(row))
            ->text(QAccessible::Description);
    }

    void play(int row)
    {
        m_screen->tapRow(row);
        Button *play = m_screen->list()->playerController()->playbackButton();
        QTRY_VERIFY(play->isVisible());
        QTest::mouseClick(play, Qt::LeftButton);
        QTRY_VERIFY(m_screen->list()->playerController()->isPlaying());
    }

    std::unique_ptr<ListScreen> m_screen;
};

QTEST_MAIN(TestUnheard)
#include "tst_unheard.moc"
