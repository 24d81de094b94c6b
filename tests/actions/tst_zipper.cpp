#include "TestSupport.h"
#include "actions/VantrelFileZipper.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

namespace {

// What the zipper tells, in order.
struct Recorder : VantrelFileZipperDelegate
{
    void zippingDidStart() override { calls << "start"; }
    void zipProgressUpdatedWithPercent(int percent, const QString &path, int index,
                                       int total) override
    {
        calls << QString("%1% %2 %3/%4").arg(percent).arg(path).arg(index).arg(total);
    }
    void zippingDidFinishSuccessfully(bool success) override
    {
        calls << (success ? "done" : "failed");
    }
    QStringList calls;
};

} // namespace

class TestZipper : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void archivesNamesAsTheyAre();

private:
    std::unique_ptr<QTemporaryDir> m_root;
    QString m_messages;
    QString m_destination;
    Recorder m_recorder;
};

void TestZipper::init()
{
    m_root = std::make_unique<QTemporaryDir>();
    m_messages = m_root->filePath("Messages");
    QVERIFY(QDir().mkpath(m_messages));
    m_destination = m_root->filePath("Vantrel-out.zip");
    m_recorder.calls.clear();
}

void TestZipper::archivesNamesAsTheyAre()
{
    // Names a shell would take apart, and one the recorder leaves; an older archive at the
    // destination is replaced, not added to.
    const QStringList names { "msg-_TEL-_+15551234567-_15-Nov-2026-22-10-07.caf",
                              "-rf a \"quoted\" 'name'.caf", "$HOME;rm *.caf", "line\nbreak.caf" };
    for (const QString &name : names)
        QVERIFY(TestSupport::writeFile(m_messages + '/' + name, name.toUtf8()));
    QVERIFY(TestSupport::writeFile(m_destination, "an older archive"));
    const qint64 logStart = TestSupport::logSize();

    VantrelFileZipper zipper(m_messages);
    QCOMPARE(VantrelFileZipper::sharedInstance(), &zipper);
    QStringList paths;
    for (const QString &name : names)
        paths << "/elsewhere/" + name; // only the bare name counts
    QVERIFY(zipper.zipSourceFilePaths(paths, m_destination, false, &m_recorder));

    QCOMPARE(TestSupport::zipMembers(m_destination),
             QStringList(names).replaceInStrings("\n", "^J"));
    QCOMPARE(m_recorder.calls.first(), "start");
    QCOMPARE(m_recorder.calls.last(), "done");
    QCOMPARE(m_recorder.calls[2], "50% " + names[1] + " 2/4");
    // This process's lines: others may write to the same log meanwhile.
    const QStringList log = TestSupport::logLinesSince(logStart).filter(
        QString("[%1] ").arg(QCoreApplication::applicationPid()));
    QVERIFY2(log.size() >= 8, qPrintable(log.join('|')));
    QVERIFY2(log[0].endsWith("zip destination path " + m_destination + ", path " + names[0]),
             qPrintable(log[0]));
    QVERIFY2(log[1].contains(QRegularExpression("PD [1-9][0-9]* result 0$")), qPrintable(log[1]));
}

QTEST_GUILESS_MAIN(TestZipper)
#include "tst_zipper.moc"
