#pragma once

#include "store/MessagesDirectory.h"

#include <QString>
#include <QStringList>

// Told of an archiving run, on the thread that runs it.
class VantrelFileZipperDelegate
{
public:
    virtual ~VantrelFileZipperDelegate() = default;
    virtual void zippingDidStart() = 0;
    virtual void zipProgressUpdatedWithPercent(int percent, const QString &currentFilePath,
                                               int currentIndex, int totalFiles) = 0;
    virtual void zippingDidFinishSuccessfully(bool success) = 0;
};

// Packs recordings of the Messages directory into one zip archive with "/usr/bin/zip", one
// child process per file, each awaited before the next: the call blocks its thread for the
// whole run and must not be made on the main thread. One run at a time in the process: its
// progress is kept process-wide.
class VantrelFileZipper
{
public:
    // Becomes the shared instance, replacing any earlier one.
    explicit VantrelFileZipper(const QString &messagesDirectory);
    ~VantrelFileZipper();
    VantrelFileZipper(const VantrelFileZipper &) = delete;
    VantrelFileZipper &operator=(const VantrelFileZipper &) = delete;

    // The last zipper made while it lives, or null: making one needs the Messages directory,
    // which only the application knows.
    static VantrelFileZipper *sharedInstance();

    // Archives each file (by its bare name, or as given when preserveOriginalDirs) from the
    // Messages directory into destinationPath, which is removed first. Answers whether the
    // archive exists at the end, and tells the delegate the same.
    bool zipSourceFilePaths(const QStringList &sourceFilePaths, const QString &destinationPath,
                            bool preserveOriginalDirs, VantrelFileZipperDelegate *delegate);

    VantrelFileZipperDelegate *zipProgressDelegate() const { return m_zipProgressDelegate; }
    void setZipProgressDelegate(VantrelFileZipperDelegate *delegate)
    {
        m_zipProgressDelegate = delegate;
    }

    // The whole per cent of a run done after index of total files, truncated: 1 of 3 is 33.
    static int percentDone(int index, int total);

    static inline const char *zipExecutable = "/usr/bin/zip";

private:
    MessagesDirectory m_messagesDirectory;
    VantrelFileZipperDelegate *m_zipProgressDelegate { nullptr }; // not owned
};
