#pragma once

#include <QProcessEnvironment>
#include <QSize>
#include <QString>
#include <QStringList>

// What the command line and the environment ask for.
struct LaunchOptions
{
    static inline const QString kDefaultMessagesDirectory =
        QStringLiteral("/var/mobile/Library/Preferences/net.zorvath.vantrel/Messages");

    QString messagesDirectory { kDefaultMessagesDirectory };
    QString contactsPath; // empty: the address book's own default sources
    bool demo { false };
    QSize windowSize; // invalid: the phone's screen
    QString screenshotPath;
};

struct CommandLine
{
    enum class Action
    {
        Run,
        ShowHelp,
        ShowVersion,
        Fail
    };

    Action action { Action::Run };
    LaunchOptions options;
    QString error; // one line naming the bad option or value, when action is Fail

    // arguments include the program name first. VANTREL_MESSAGES_DIR and VANTREL_CONTACTS do
    // what --messages-dir and --contacts do; an option wins over its variable. Qt's own
    // single-dash options (-platform NAME ...) are left for Qt. Read with QCommandLineParser,
    // which needs no application object, so that --help answers on a machine without a display.
    static CommandLine parse(const QStringList &arguments, const QProcessEnvironment &environment);
    static QString helpText();
    // Why the contacts at path cannot be read (no such file, no permission), or nothing when
    // they can. The program runs either way; it only says so.
    static QString contactsProblem(const QString &path);
};
