#include "Transcript.h"

#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>

QString Transcript::read(const QString &path)
{
    // Only a regular file: opening a pipe named like a transcript would wait for a writer.
    if (!QFileInfo(path).isFile())
        return {};
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    // Stateless: a file cut inside its last character is not UTF-8, rather than text whose
    // last character is quietly held back for bytes that never come.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringConverter::Flag::Stateless);
    QString text = decoder(file.readAll());
    if (decoder.hasError())
        return {};
    return text;
}

// A text view lays a paragraph out whole, which for megabytes on one line takes seconds.
QString Transcript::forDisplay(const QString &text)
{
    constexpr qsizetype kParagraph = 4096;
    if (text.size() <= kParagraph)
        return text;
    QString shown;
    shown.reserve(text.size() + text.size() / kParagraph);
    qsizetype start = 0;
    while (start < text.size()) {
        qsizetype end = text.indexOf(u'\n', start);
        if (end < 0)
            end = text.size();
        if (end - start <= kParagraph) {
            shown += QStringView(text).mid(start, end - start + (end < text.size() ? 1 : 0));
            start = end + 1;
            continue;
        }
        qsizetype cut = text.lastIndexOf(u' ', start + kParagraph);
        if (cut <= start) {
            // Never between the two halves of a character outside the basic plane (an emoji).
            qsizetype length = kParagraph;
            if (text.at(start + length - 1).isHighSurrogate())
                --length;
            shown += QStringView(text).mid(start, length);
            shown += u'\n';
            start += length;
        } else {
            shown += QStringView(text).mid(start, cut - start);
            shown += u'\n';
            start = cut + 1;
        }
    }
    return shown;
}
