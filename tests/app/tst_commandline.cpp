#include "TestSupport.h"
#include "app/CommandLine.h"

#include <QImage>
#include <QProcess>
#include <QTest>

using Action = CommandLine::Action;

class TestCommandLine : public QObject
{
    Q_OBJECT
private slots:
    void parse_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QStringList>("environment");
        QTest::addColumn<int>("action");
        QTest::addColumn<QString>("messagesDirectory");
        QTest::addColumn<QString>("contacts");
        QTest::addColumn<QSize>("size");
        QTest::addColumn<QString>("error");

        const QString standard = LaunchOptions::kDefaultMessagesDirectory;
        const auto run = [&](const char *tag, const QStringList &arguments,
                             const QStringList &environment = {}, const QString &directory = {},
                             const QString &contacts = "", QSize size = {}) {
            QTest::newRow(tag) << arguments << environment << int(Action::Run)
                               << (directory.isNull() ? standard : directory) << contacts << size
                               << "";
        };
        const auto fail = [&](const QString &tag, const QStringList &arguments,
                              const QString &error) {
            QTest::newRow(qPrintable(tag)) << arguments << QStringList() << int(Action::Fail)
                                           << standard << "" << QSize() << "vantrel: " + error;
        };
        const QStringList environment { "VANTREL_MESSAGES_DIR=/env/dir",
                                        "VANTREL_CONTACTS=/env/c.vcf" };
        run("defaults", {});
        run("environment", {}, environment, "/env/dir", "/env/c.vcf");
        run("option wins", { "--messages-dir", "/opt/dir", "--contacts=/opt/c.vcf" }, environment,
            "/opt/dir", "/opt/c.vcf");
        run("size", { "--size", "720x1440" }, {}, {}, "", QSize(720, 1440));
        run("qt's own options pass", { "-platform", "offscreen", "-reverse" });
        fail("stray argument", { "inbox" }, "unexpected argument 'inbox' (see --help)");
        fail("missing value", { "--messages-dir" }, "Missing value after '--messages-dir'.");
        fail("empty value", { "--contacts=" }, "option '--contacts' needs a non-empty value");
        fail("value for a flag", { "--demo=yes" }, "Unexpected value after '--demo'.");
        for (const char *bad : { "375", "0x667", "375x", "-5x10", "375x667x2", "99999x2" })
            fail(QStringLiteral("size %1").arg(bad), { "--size", bad },
                 QStringLiteral("invalid value '%1' for --size (expected WxH, such as 375x667)")
                     .arg(bad));
    }

    void parse()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QStringList, environment);
        QFETCH(int, action);
        QFETCH(QString, messagesDirectory);
        QFETCH(QString, contacts);
        QFETCH(QSize, size);
        QFETCH(QString, error);

        QProcessEnvironment env;
        for (const QString &pair : environment)
            env.insert(pair.section(u'=', 0, 0), pair.section(u'=', 1));
        const CommandLine result = CommandLine::parse(QStringList { "vantrel" } + arguments, env);
        QCOMPARE(int(result.action), action);
        QCOMPARE(result.error, error);
        if (result.action == Action::Run) {
            QCOMPARE(result.options.messagesDirectory, messagesDirectory);
            QCOMPARE(result.options.contactsPath, contacts);
            QCOMPARE(result.options.windowSize, size);
        }
    }

    void exitCodes_data()
    {
        QTest::addColumn<QStringList>("arguments"); // %1: a folder of the test's own
        QTest::addColumn<bool>("sessionBus");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("said"); // on standard error after "vantrel: "; %1 as above
        const QStringList shot { "--messages-dir", "%1/Messages", "--screenshot", "%1/shot.png" };
        QTest::newRow("version") << QStringList { "--version" } << true << 0 << QString();
        QTest::newRow("help") << QStringList { "--help" } << true << 0 << QString();
        QTest::newRow("unknown option")
            << QStringList { "--nope" } << true << 2 << "unknown option '--nope' (see --help)";
        QTest::newRow("unwritable screenshot")
            << QStringList { "--messages-dir", "%1/Messages", "--screenshot",
                             "/nonexistent/shot.png" }
            << true << 1
            << "cannot write screenshot /nonexistent/shot.png: Cannot open device for writing: No "
               "such file or directory";
        // From launch to exit: the first screen drawn, status 0, and not one warning.
        QTest::newRow("on a session bus") << shot << true << 0 << QString();
        QTest::newRow("without a session bus") << shot << false << 0 << QString();
        // The program still runs and draws its list; one line says what it could not read, also in
        // the log.
        QTest::newRow("contacts that cannot be read")
            << shot + QStringList { "--contacts", "%1/no such folder/contacts.vcf" } << true << 0
            << "cannot read contacts %1/no such folder/contacts.vcf: No such file or directory";
    }

    void exitCodes()
    {
        QFETCH(QStringList, arguments);
        QFETCH(bool, sessionBus);
        QFETCH(int, exitCode);
        QFETCH(QString, said);
        QTemporaryDir root;
        for (const char *time : { "15-Nov-2026-22-10-07", "14-Nov-2026-09-00-00" })
            QVERIFY(TestSupport::writeFile(root.filePath(
                "Messages/" + TestSupport::recordingName("TEL", "+15551234567", time))));
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        if (!sessionBus)
            environment.insert("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus");
        QProcess vantrel;
        vantrel.setProcessEnvironment(environment);
        const qint64 logStart = TestSupport::logSize();
        vantrel.start(QStringLiteral(VANTREL_EXECUTABLE),
                      arguments.replaceInStrings("%1", root.path()));
        QVERIFY(vantrel.waitForFinished(30000));
        QCOMPARE(vantrel.exitStatus(), QProcess::NormalExit);
        said.replace("%1", root.path());
        QCOMPARE(QString::fromLocal8Bit(vantrel.readAllStandardError()),
                 said.isEmpty() ? QString() : "vantrel: " + said + u'\n');
        QVERIFY(said.isEmpty() || exitCode != 0 ||
                TestSupport::logLinesSince(logStart).join('\n').contains(said));
        QCOMPARE(vantrel.exitCode(), exitCode);
        QCOMPARE(QImage(root.filePath("shot.png")).isNull(),
                 !arguments.contains(root.filePath("shot.png")));
    }
};

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_commandline.moc"
