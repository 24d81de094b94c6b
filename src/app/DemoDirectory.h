#pragma once

#include <QDir>
#include <QString>
#include <QTemporaryDir>
#include <memory>
#include <optional>

// A fresh temporary copy of the bundled demo recordings and contacts, removed when it goes,
// so that whatever the user deletes in the demo, nothing of the installed samples is lost.
class DemoDirectory
{
public:
    // Copies the samples; sets error and answers null when they cannot be found or copied.
    static std::unique_ptr<DemoDirectory> create(QString *error);

    QString messagesDirectory() const;
    QString contactsPath() const;

    // Where the bundled samples are: installed beside the program, else in the source tree.
    static std::optional<QString> samplesDirectory();

private:
    DemoDirectory() = default;
    QTemporaryDir m_root { QStringLiteral("%1/vantrel-demo-XXXXXX").arg(QDir::tempPath()) };
};
