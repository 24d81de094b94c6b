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
    const auto run = [&](const char *tag, const QStringList &arguments,
                         const QStringList &environment = {}, const QString &directory = {},
                         const QString &contacts = "", QSize size = {}) {
        QTest::newRow(tag) << arguments << environment << int(Action::Run)
                           << (directory.isNull() ? standard : directory) << contacts << size << "";
    };
    const auto fail = [&](const QString &tag, const QStringList &arguments, const QString &error) {
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
    QTest::newRow("help") << QStringList { "--help" } << QStringList {} << int(Action::ShowHelp)
                          << standard << "" << QSize() << "";
    fail("unknown", { "--colour" }, "unknown option '--colour' (see --help)");
    fail("stray argument", { "inbox" }, "unexpected argument 'inbox' (see --help)");
    fail("missing value", { "--messages-dir" }, "Missing value after '--messages-dir'.");
    fail("empty value", { "--contacts=" }, "option '--contacts' needs a non-empty value");
    fail("value for a flag", { "--demo=yes" }, "Unexpected value after '--demo'.");
    for (const char *bad : { "375", "0x667", "375x", "-5x10", "375x667x2", "99999x2" })
        fail(QStringLiteral("size %1").arg(bad), { "--size", bad },
             QStringLiteral("invalid value '%1' for --size (expected WxH, such as 375x667)")
                 .arg(bad));
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
