#include "CommandLine.h"
#include "DemoDirectory.h"
#include "FirstFrameCapture.h"
#include "QuitOnSignal.h"
#include "VantrelApplication.h"
#include "core/Log.h"
#include "toolkit/Screen.h"

#include <QProcessEnvironment>
#include <cstdio>
#include <vector>

int main(int argc, char *argv[])
{
    // Read before the application object exists, so that --help and a bad option answer on a
    // machine without a display.
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    const CommandLine commandLine =
        CommandLine::parse(arguments, QProcessEnvironment::systemEnvironment());
    switch (commandLine.action) {
    case CommandLine::Action::Fail:
        std::fprintf(stderr, "%s\n", qPrintable(commandLine.error));
        return 2;
    case CommandLine::Action::ShowHelp:
        std::fputs(qPrintable(CommandLine::helpText()), stdout);
        return 0;
    case CommandLine::Action::ShowVersion:
        std::printf("vantrel %s\n", VANTREL_VERSION);
        return 0;
    case CommandLine::Action::Run:
        break;
    }

    LaunchOptions options = commandLine.options;
    // Asked for by name: a path that cannot be read is worth a word, though the list still
    // shows every caller by number.
    QString contactsProblem;
    if (!options.contactsPath.isEmpty()) {
        contactsProblem = CommandLine::contactsProblem(options.contactsPath);
        if (!contactsProblem.isEmpty())
            std::fprintf(stderr, "vantrel: cannot read contacts %s: %s\n",
                         qPrintable(options.contactsPath), qPrintable(contactsProblem));
    }
    std::unique_ptr<DemoDirectory> demo;
    if (options.demo) {
        QString error;
        demo = DemoDirectory::create(&error);
        if (!demo) {
            std::fprintf(stderr, "%s\n", qPrintable(error));
            return 1;
        }
        options.messagesDirectory = demo->messagesDirectory();
        if (options.contactsPath.isEmpty())
            options.contactsPath = demo->contactsPath();
    }
    if (options.windowSize.isValid())
        Screen::setOverrideSize(options.windowSize);

    // Window managers on X11 know the window by WM_CLASS; "-name" sets its instance part to the
    // app id (Qt's X11 platform takes the option out again; others leave it unread).
    std::vector<char *> qtArguments(argv, argv + argc);
    char nameOption[] = "-name";
    char appId[] = "net.zorvath.vantrel";
    qtArguments.insert(qtArguments.begin() + 1, { nameOption, appId });
    int qtArgumentCount = int(qtArguments.size());
    qtArguments.push_back(nullptr);
    VantrelApplication application(qtArgumentCount, qtArguments.data());
    if (!contactsProblem.isEmpty())
        mylog(QStringLiteral("cannot read contacts %1: %2")
                  .arg(options.contactsPath, contactsProblem));
    // Stopped from outside, it ends as a closed window does, and takes its files with it.
    const QuitOnSignal quitOnSignal;
    application.setMessagesDirectory(options.messagesDirectory);
    application.setContactsSource(options.contactsPath);
    application.applicationDidFinishLaunching();
    std::unique_ptr<FirstFrameCapture> capture;
    if (!options.screenshotPath.isEmpty())
        capture = std::make_unique<FirstFrameCapture>(application.window(), options.screenshotPath);
    return application.exec();
}
