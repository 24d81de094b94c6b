#include "TestSupport.h"
#include "desktop/ZipMembers.h"

#include <QDir>
#include <QProcess>
#include <QTest>

namespace {

struct Member
{
    QByteArray name;
    quint16 flags = 0;
    quint8 host = 3; // 3 is Unix, 0 MS-DOS, 11 NTFS
    QByteArray extra {};
};

// A number as zip stores it: in size bytes, the least significant first.
QByteArray le(quint32 value, int size)
{
    QByteArray out;
    for (int i = 0; i < size; ++i)
        out += char(value >> 8 * i);
    return out;
}

// An archive of central directory entries only: all that a listing reads.
QByteArray archive(const QList<Member> &members)
{
    QByteArray out("local headers would be here");
    const quint32 offset = quint32(out.size());
    for (const Member &m : members) // method, time, date, crc, sizes; comment, disk, attributes
        out += le(0x02014b50, 4) + le(m.host << 8 | 20, 2) + le(20, 2) + le(m.flags, 2) +
               QByteArray(18, 0) + le(m.name.size(), 2) + le(m.extra.size(), 2) +
               QByteArray(14, 0) + m.name + m.extra;
    const quint32 count = members.size();
    return out + le(0x06054b50, 4) + le(0, 4) + le(count, 2) + le(count, 2) +
           le(out.size() - offset, 4) + le(offset, 4) + le(0, 2);
}

// Info-ZIP's UTF-8 name beside a stored one, vouched for by the stored name's CRC-32.
QByteArray unicodePathField(const QString &name, quint32 crc)
{
    const QByteArray utf8 = name.toUtf8();
    return le(0x7075, 2) + le(5 + utf8.size(), 2) + '\x01' + le(crc, 4) + utf8;
}

// Made by the system's zip, as the archiver makes the shared archives.
QByteArray zipped(const QStringList &names)
{
    QTemporaryDir dir;
    for (const QString &name : names)
        TestSupport::writeFile(dir.filePath(name), name.toUtf8());
    QProcess zip;
    zip.setWorkingDirectory(dir.path());
    zip.start("/usr/bin/zip", QStringList { "-q", "out.zip" } + names);
    zip.waitForFinished();
    return TestSupport::readFile(dir.filePath("out.zip"));
}

} // namespace

// Listing archives, whole and damaged, without unpacking them.
class TestZipMembers : public QObject
{
    Q_OBJECT
private slots:
    void listing_data()
    {
        QTest::addColumn<QByteArray>("contents"); // null: no such file
        QTest::addColumn<QStringList>("names");   // empty and invalid: no listing
        QTest::addColumn<bool>("valid");

        const QStringList recordings { "msg-_TEL-_+15551234567-_15-Nov-2026-22-10-07.caf",
                                       "msg-_FT-_anna.berg@example.com-_02-Nov-2026-18-30-12.caf",
                                       "Søren – café.caf" };
        // What the listing adds to the library that reads the archive: names decoded as the
        // archivers that wrote them meant, and none from what is no archive.
        QTest::newRow("made by zip") << zipped(recordings) << recordings << true;
        QTest::newRow("not a zip")
            << QByteArray("Hi, it's Daniel. Call me back.\n") << QStringList() << false;
        QTest::newRow("no such file") << QByteArray() << QStringList() << false;
        QTest::newRow("empty archive") << archive({}) << QStringList() << true;
        QTest::newRow("UTF-8 flag from Windows")
            << archive({ { "Søren.caf", 0x0800, 11 } }) << QStringList { "Søren.caf" } << true;
        QTest::newRow("code page 437 from DOS")
            << archive({ { "\x82t\x82 \x9b.caf", 0, 0 } }) << QStringList { "été ¢.caf" } << true;
        const quint32 crc = 0x739a7e32; // CRC-32 of "Soren.caf"
        QTest::newRow("Unicode path field")
            << archive({ { "Soren.caf", 0, 0, unicodePathField("Søren.caf", crc) } })
            << QStringList { "Søren.caf" } << true;
    }

    void listing()
    {
        QFETCH(QByteArray, contents);
        QFETCH(QStringList, names);
        QFETCH(bool, valid);
        QTemporaryDir dir;
        const QString path =
            dir.filePath("Vantrel-Nov 14 2026 - 09:00:00-Nov 15 2026 - 22:10:07.zip");
        QVERIFY(contents.isNull() || TestSupport::writeFile(path, contents));
        const ZipMembers members = zipMemberNames(path);
        QCOMPARE(members.isValid(), valid);
        QCOMPARE(members.names, names);
    }
};

QTEST_GUILESS_MAIN(TestZipMembers)
#include "tst_zipmembers.moc"
