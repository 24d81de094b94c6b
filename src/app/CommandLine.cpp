#include "CommandLine.h"

#include <QFile>
#include <QRegularExpression>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int kMaxWindowSide = 10000;

// Qt reads these itself; the ones in the first list take a value.
const QStringList kQtOptionsWithValue = {
    QStringLiteral("-platform"),        QStringLiteral("-platformpluginpath"),
    QStringLiteral("-platformtheme"),   QStringLiteral("-plugin"),
    QStringLiteral("-qwindowgeometry"), QStringLiteral("-qwindowtitle"),
    QStringLiteral("-qwindowicon"),     QStringLiteral("-style"),
    QStringLiteral("-stylesheet"),      QStringLiteral("-session"),
    QStringLiteral("-display"),         QStringLiteral("-geometry")
};
const QStringList kQtFlags = { QStringLiteral("-reverse"), QStringLiteral("-nograb"),
                               QStringLiteral("-dograb"), QStringLiteral("-sync"),
                               QStringLiteral("-widgetcount") };

CommandLine failure(const QString &message)
{
    CommandLine result;
    result.action = CommandLine::Action::Fail;
    result.error = message;
    return result;
}

} // namespace

CommandLine CommandLine::parse(const QStringList &arguments, const QProcessEnvironment &environment)
{
    CommandLine result;
    LaunchOptions &options = result.options;
    if (const QString dir = environment.value(QStringLiteral("VANTREL_MESSAGES_DIR"));
        !dir.isEmpty())
        options.messagesDirectory = dir;
    options.contactsPath = environment.value(QStringLiteral("VANTREL_CONTACTS"));

    for (qsizetype i = 1; i < arguments.size(); ++i) {
        const QString &argument = arguments[i];
        if (kQtOptionsWithValue.contains(argument)) {
            ++i;
            continue;
        }
        if (kQtFlags.contains(argument))
            continue;
        if (!argument.startsWith(QLatin1String("--"))) {
            return failure(
                argument.startsWith(u'-')
                    ? QStringLiteral("vantrel: unknown option '%1' (see --help)").arg(argument)
                    : QStringLiteral("vantrel: unexpected argument '%1' (see --help)")
                          .arg(argument));
        }

        QString name = argument;
        std::optional<QString> inlineValue;
        if (const qsizetype equals = argument.indexOf(u'='); equals > 0) {
            name = argument.left(equals);
            inlineValue = argument.mid(equals + 1);
        }
        const auto value = [&]() -> std::optional<QString> {
            if (inlineValue)
                return inlineValue;
            if (i + 1 < arguments.size())
                return arguments[++i];
            return std::nullopt;
        };
        const auto flagOnly = [&]() { return !inlineValue; };

        if (name == QLatin1String("--help") && flagOnly()) {
            result.action = Action::ShowHelp;
        } else if (name == QLatin1String("--version") && flagOnly()) {
            result.action = Action::ShowVersion;
        } else if (name == QLatin1String("--demo") && flagOnly()) {
            options.demo = true;
        } else if (name == QLatin1String("--messages-dir") || name == QLatin1String("--contacts") ||
                   name == QLatin1String("--screenshot") || name == QLatin1String("--size")) {
            const std::optional<QString> given = value();
            if (!given)
                return failure(QStringLiteral("vantrel: option '%1' needs a value").arg(name));
            if (given->isEmpty())
                return failure(
                    QStringLiteral("vantrel: option '%1' needs a non-empty value").arg(name));
            if (name == QLatin1String("--messages-dir")) {
                options.messagesDirectory = *given;
            } else if (name == QLatin1String("--contacts")) {
                options.contactsPath = *given;
            } else if (name == QLatin1String("--screenshot")) {
                options.screenshotPath = *given;
            } else {
                static const QRegularExpression sizePattern(
                    QStringLiteral("^([0-9]{1,5})x([0-9]{1,5})$"));
                const QRegularExpressionMatch match = sizePattern.match(*given);
                const int width = match.hasMatch() ? match.captured(1).toInt() : 0;
                const int height = match.hasMatch() ? match.captured(2).toInt() : 0;
                if (width < 1 || height < 1 || width > kMaxWindowSide || height > kMaxWindowSide) {
                    return failure(QStringLiteral("vantrel: invalid value '%1' for --size "
                                                  "(expected WxH, such as 375x667)")
                                       .arg(*given));
                }
                options.windowSize = QSize(width, height);
            }
        } else {
            return failure(
                QStringLiteral("vantrel: unknown option '%1' (see --help)").arg(argument));
        }
    }
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
