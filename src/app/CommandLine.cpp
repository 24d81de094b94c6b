#include "CommandLine.h"

#include <QCommandLineParser>
#include <QFile>
#include <QRegularExpression>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int kMaxWindowSide = 10000;

// Qt reads these itself, and may be given them on any program's command line; the first take a
// value.
const QStringList kQtOptionsWithValue = { QStringLiteral("platform"),
                                          QStringLiteral("platformpluginpath"),
                                          QStringLiteral("platformtheme"),
                                          QStringLiteral("plugin"),
                                          QStringLiteral("qwindowgeometry"),
                                          QStringLiteral("qwindowtitle"),
                                          QStringLiteral("qwindowicon"),
                                          QStringLiteral("style"),
                                          QStringLiteral("stylesheet"),
                                          QStringLiteral("session"),
                                          QStringLiteral("display"),
                                          QStringLiteral("geometry"),
                                          QStringLiteral("name") };
const QStringList kQtFlags = { QStringLiteral("reverse"), QStringLiteral("nograb"),
                               QStringLiteral("dograb"), QStringLiteral("sync"),
                               QStringLiteral("widgetcount") };

CommandLine failure(const QString &message)
{
    CommandLine result;
    result.action = CommandLine::Action::Fail;
    result.error = QStringLiteral("vantrel: ") + message;
    return result;
}

// The argument as typed that named an option the parser did not know.
QString typedArgument(const QStringList &arguments, const QString &name)
{
    for (const QString &argument : arguments.mid(1)) {
        QString bare = argument.section(u'=', 0, 0);
        while (bare.startsWith(u'-'))
            bare.remove(0, 1);
        if (argument.startsWith(u'-') && bare == name)
            return argument;
    }
    return name;
}

} // namespace

CommandLine CommandLine::parse(const QStringList &arguments, const QProcessEnvironment &environment)
{
    QCommandLineParser parser;
    // Qt's own options come with one dash and whole words (-platform offscreen).
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    const QCommandLineOption messagesDirectory(QStringLiteral("messages-dir"), QString(),
                                               QStringLiteral("DIR"));
    const QCommandLineOption contacts(QStringLiteral("contacts"), QString(), QStringLiteral("PATH"));
    const QCommandLineOption demo(QStringLiteral("demo"));
    const QCommandLineOption size(QStringLiteral("size"), QString(), QStringLiteral("WxH"));
    const QCommandLineOption screenshot(QStringLiteral("screenshot"), QString(),
                                       QStringLiteral("FILE"));
    const QCommandLineOption help(QStringLiteral("help"));
    const QCommandLineOption version(QStringLiteral("version"));
    parser.addOptions({ messagesDirectory, contacts, demo, size, screenshot, help, version });
    for (const QString &name : kQtOptionsWithValue)
        parser.addOption(QCommandLineOption(name, QString(), QStringLiteral("value")));
    for (const QString &name : kQtFlags)
        parser.addOption(QCommandLineOption(name));

    if (!parser.parse(arguments)) {
        if (!parser.unknownOptionNames().isEmpty())
            return failure(QStringLiteral("unknown option '%1' (see --help)")
                               .arg(typedArgument(arguments, parser.unknownOptionNames().first())));
        return failure(parser.errorText());
    }
    if (!parser.positionalArguments().isEmpty())
        return failure(QStringLiteral("unexpected argument '%1' (see --help)")
                           .arg(parser.positionalArguments().first()));

    CommandLine result;
    LaunchOptions &options = result.options;
    for (const QCommandLineOption *option : { &messagesDirectory, &contacts, &size, &screenshot }) {
        if (parser.isSet(*option) && parser.value(*option).isEmpty())
            return failure(QStringLiteral("option '--%1' needs a non-empty value")
                               .arg(option->names().first()));
    }
    options.messagesDirectory = parser.value(messagesDirectory);
    if (options.messagesDirectory.isEmpty())
        options.messagesDirectory = environment.value(QStringLiteral("VANTREL_MESSAGES_DIR"));
    if (options.messagesDirectory.isEmpty())
        options.messagesDirectory = LaunchOptions::kDefaultMessagesDirectory;
    options.contactsPath = parser.isSet(contacts)
                               ? parser.value(contacts)
                               : environment.value(QStringLiteral("VANTREL_CONTACTS"));
    options.demo = parser.isSet(demo);
    options.screenshotPath = parser.value(screenshot);
    if (parser.isSet(size)) {
        static const QRegularExpression sizePattern(QStringLiteral("^([0-9]{1,5})x([0-9]{1,5})$"));
        const QString given = parser.value(size);
        const QRegularExpressionMatch match = sizePattern.match(given);
        const int width = match.hasMatch() ? match.captured(1).toInt() : 0;
        const int height = match.hasMatch() ? match.captured(2).toInt() : 0;
        if (width < 1 || height < 1 || width > kMaxWindowSide || height > kMaxWindowSide)
            return failure(QStringLiteral("invalid value '%1' for --size "
                                          "(expected WxH, such as 375x667)")
                               .arg(given));
        options.windowSize = QSize(width, height);
    }
    if (parser.isSet(help))
        result.action = Action::ShowHelp;
    else if (parser.isSet(version))
        result.action = Action::ShowVersion;
    return result;
}

QString CommandLine::helpText()
{
    return QStringLiteral(
               "Usage: vantrel [--messages-dir DIR] [--contacts PATH] [--demo] [--size WxH] "
               "[--screenshot FILE]\n"
               "Shows the voicemails and call recordings in the Messages directory, newest first.\n"
               "\n"
               "  --messages-dir DIR  the Messages directory (default %1;\n"
               "                      also VANTREL_MESSAGES_DIR)\n"
               "  --contacts PATH     a vCard file or a folder of them (also VANTREL_CONTACTS;\n"
               "                      default: the .vcf files under $XDG_DATA_HOME/contacts and\n"
               "                      $XDG_DATA_HOME/kpeoplevcard)\n"
               "  --demo              copy the bundled demo recordings and contacts into a fresh\n"
               "                      temporary directory and show them\n"
               "  --size WxH          window size in points (default: a 375x667 phone screen)\n"
               "  --screenshot FILE   write the first painted screen as PNG to FILE and exit\n"
               "  --help              show this help\n"
               "  --version           show the version\n")
        .arg(LaunchOptions::kDefaultMessagesDirectory);
}

QString CommandLine::contactsProblem(const QString &path)
{
    // Opened as the address book will open it: a file or a folder, for reading.
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return QString::fromLocal8Bit(strerror(errno));
    ::close(fd);
    return QString();
}
