#pragma once

#include <QString>
#include <QUrl>
#include <optional>

// A URL as text: made only from text that URLs allow, and kept exactly as written.
// QUrl cannot hold every such URL: it refuses "tel://+15551234567" (a "+" in the host
// place) in any mode and reads "tel://555" as an IPv4 address, while dialers take both.
class Url
{
public:
    // Nothing for text holding a character outside RFC 3986's set (a space, a quote, "<",
    // ">", "\", "^", "`", "{", "|", "}", a control or non-ASCII character) or a "%" not
    // followed by two hex digits. Text without a scheme is a relative reference, such as a
    // path, as long as no colon comes before its first slash.
    static std::optional<Url> urlWithString(const QString &text);

    QString toString() const { return m_text; }
    // Empty for a relative reference.
    QString scheme() const;
    // The file a relative reference or a file: URL names, its percent escapes decoded;
    // empty for any other URL.
    QString fileSystemPath() const;
    // The same URL as a QUrl, when Qt can hold it unchanged.
    std::optional<QUrl> toQUrl() const;

private:
    explicit Url(QString text) : m_text(std::move(text)) {}
    QString m_text;
};
