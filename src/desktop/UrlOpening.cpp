#include "UrlOpening.h"

#include <QDesktopServices>
#include <QProcess>

bool UrlOpening::canOpenURL(const Url &url)
{
    QProcess query;
    query.start(QStringLiteral("xdg-mime"), { QStringLiteral("query"), QStringLiteral("default"),
                                              QStringLiteral("x-scheme-handler/") + url.scheme() });
    if (!query.waitForFinished(2000) || query.exitCode() != 0)
        return false;
    return !query.readAllStandardOutput().trimmed().isEmpty();
}

void UrlOpening::canOpenURL(const Url &url, QObject *context, std::function<void(bool)> answer)
{
    auto *query = new QProcess(context);
    const auto finish = [query, answer = std::move(answer)](bool registered) {
        query->deleteLater();
        answer(registered);
    };
    QObject::connect(query, &QProcess::finished, context, [query, finish](int exitCode) {
        finish(exitCode == 0 && !query->readAllStandardOutput().trimmed().isEmpty());
    });
    QObject::connect(query, &QProcess::errorOccurred, context,
                     [finish](QProcess::ProcessError error) {
                         // A query that cannot start has no answer to wait for.
                         if (error == QProcess::FailedToStart)
                             finish(false);
                     });
    query->start(QStringLiteral("xdg-mime"),
                 { QStringLiteral("query"), QStringLiteral("default"),
                   QStringLiteral("x-scheme-handler/") + url.scheme() });
}

bool UrlOpening::openURL(const Url &url)
{
    if (const auto qurl = url.toQUrl(); qurl && QDesktopServices::openUrl(*qurl))
        return true;
    return QProcess::startDetached(QStringLiteral("xdg-open"), { url.toString() });
}
