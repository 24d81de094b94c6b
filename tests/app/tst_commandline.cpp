#include "app/CommandLine.h"

#include <QProcess>
#include <QTest>

class TestCommandLine : public QObject
{
    Q_OBJECT
private slots:
    void parse_data();
    void parse();
    void exitCodes_data();
    void exitCodes();
};

using Action = CommandLine::Action;

void TestCommandLine::parse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("environment");
    QTest::addColumn<int>("action");
    QTest::addColumn<QString>("messagesDirectory");
    QTest::addColumn<QString>("contacts");
    QTest::addColumn<QSize>("size");
    QTest::addColumn<QString>("error");

    const QString standard = LaunchOptions::kDefaultMessagesDirectory;
    QTest::newRow("defaults") << QStringList {} << QStringList {} << int(Action::Run) << standard
                              << "" << QSize() << "";
    QTest::newRow("environment") << QStringList {}
                                 << QStringList { "VANTREL_MESSAGES_DIR=/env/dir",
                                                  "VANTREL_CONTACTS=/env/c.vcf" }
                                 << int(Action::Run) << "/env/dir"
                                 << "/env/c.vcf" << QSize() << "";
    QTest::newRow("option wins") << QStringList { "--messages-dir", "/opt/dir",
                                                  "--contacts=/opt/c.vcf" }
                                 << QStringList { "VANTREL_MESSAGES_DIR=/env/dir",
                                                  "VANTREL_CONTACTS=/env/c.vcf" }
                                 << int(Action::Run) << "/opt/dir"
                                 << "/opt/c.vcf" << QSize() << "";
    QTest::newRow("size") << QStringList { "--size", "720x1440" } << QStringList {}
                          << int(Action::Run) << standard << "" << QSize(720, 1440) << "";
    QTest::newRow("qt's own options pass")
        << QStringList { "-platform", "offscreen", "-reverse" } << QStringList {}
        << int(Action::Run) << standard << "" << QSize() << "";
    QTest::newRow("help") << QStringList { "--help" } << QStringList {} << int(Action::ShowHelp)
                          << standard << "" << QSize() << "";
    QTest::newRow("unknown") << QStringList { "--colour" } << QStringList {} << int(Action::Fail)
                             << standard << "" << QSize()
                             << "vantrel: unknown option '--colour' (see --help)";
    QTest::newRow("stray argument")
        << QStringList { "inbox" } << QStringList {} << int(Action::Fail) << standard << ""
        << QSize() << "vantrel: unexpected argument 'inbox' (see --help)";
    QTest::newRow("missing value")
        << QStringList { "--messages-dir" } << QStringList {} << int(Action::Fail) << standard << ""
        << QSize() << "vantrel: Missing value after '--messages-dir'.";
    QTest::newRow("empty value")
        << QStringList { "--contacts=" } << QStringList {} << int(Action::Fail) << standard << ""
        << QSize() << "vantrel: option '--contacts' needs a non-empty value";
    QTest::newRow("value for a flag")
        << QStringList { "--demo=yes" } << QStringList {} << int(Action::Fail) << standard << ""
        << QSize() << "vantrel: Unexpected value after '--demo'.";
    for (const char *bad : { "375", "0x667", "375x", "-5x10", "375x667x2", "99999x2" }) {
        QTest::newRow(qPrintable(QStringLiteral("size %1").arg(bad)))
            << QStringList { "--size", bad } << QStringList {} << int(Action::Fail) << standard
            << "" << QSize()
            << QStringLiteral(
                   "vantrel: invalid value '%1' for --size (expected WxH, such as 375x667)")
                   .arg(bad);
    }
}

void TestCommandLine::parse()
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

void TestCommandLine::exitCodes_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("stderrLine");
    QTest::newRow("version") << QStringList { "--version" } << 0 << "";
    QTest::newRow("help") << QStringList { "--help" } << 0 << "";
    QTest::newRow("unknown option")
        << QStringList { "--nope" } << 2 << "vantrel: unknown option '--nope' (see --help)";
    QTest::newRow("bad size") << QStringList {
        "--size", "big"
    } << 2 << "vantrel: invalid value 'big' for --size (expected WxH, such as 375x667)";
    QTest::newRow("unwritable screenshot")
        << QStringList { "--messages-dir", "/nonexistent", "--screenshot",
                         "/nonexistent/dir/shot.png" }
        << 1 << "";
}

void TestCommandLine::exitCodes()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QString, stderrLine);
    QProcess vantrel;
    vantrel.start(QStringLiteral(VANTREL_EXECUTABLE), arguments);
    QVERIFY(vantrel.waitForFinished(30000));
    QCOMPARE(vantrel.exitStatus(), QProcess::NormalExit);
    QCOMPARE(vantrel.exitCode(), exitCode);
    const QString errors = QString::fromLocal8Bit(vantrel.readAllStandardError());
    if (!stderrLine.isEmpty())
        QCOMPARE(errors, stderrLine + u'\n');
    if (exitCode == 1)
        QVERIFY2(
            errors.contains(QLatin1String("cannot write screenshot /nonexistent/dir/shot.png")),
            qPrintable(errors));
}

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_commandline.moc"
