#include "ZipMembers.h"

#include <QFile>
#include <QStringDecoder>
#include <array>

namespace {

constexpr quint32 kEndSignature = 0x06054b50;
constexpr quint32 kZip64EndSignature = 0x06064b50;
constexpr quint32 kZip64LocatorSignature = 0x07064b50;
constexpr quint32 kCentralSignature = 0x02014b50;
constexpr int kEndSize = 22;
constexpr int kZip64LocatorSize = 20;
constexpr int kZip64EndSize = 56;
constexpr int kCentralSize = 46;
constexpr int kMaxCommentSize = 0xffff;
// Names are UTF-8 when this general-purpose flag is set.
constexpr quint16 kUtf8Flag = 0x0800;
// Info-ZIP's extra field holding a UTF-8 name beside a name in the local code page.
constexpr quint16 kUnicodePathField = 0x7075;
// A directory of 65,535 entries with long names is a few megabytes; more than this is damage.
constexpr qint64 kMaxDirectorySize = 256LL * 1024 * 1024;

quint16 le16(const char *p)
{
    return quint16(uchar(p[0]) | uchar(p[1]) << 8);
}

quint32 le32(const char *p)
{
    return quint32(le16(p)) | quint32(le16(p + 2)) << 16;
}

quint64 le64(const char *p)
{
    return quint64(le32(p)) | quint64(le32(p + 4)) << 32;
}

quint32 crc32(QByteArrayView data)
{
    quint32 crc = 0xffffffff;
    for (const char byte : data) {
        crc ^= uchar(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xedb88320 & (0 - (crc & 1)));
    }
    return ~crc;
}

QString fromCodePage437(QByteArrayView bytes)
{
    static const QString upper =
        QString::fromUtf8("ÇüéâäàåçêëèïîìÄÅÉæÆôöòûùÿÖÜ¢£¥₧ƒáíóúñÑªº¿⌐¬½¼¡«»░▒▓│┤╡╢╖╕╣║╗╝╜╛┐"
                          "└┴┬├─┼╞╟╚╔╩╦╠═╬╧╨╤╥╙╘╒╓╫╪┘┌█▄▌▐▀αßΓπΣσµτΦΘΩδ∞φε∩≡±≥≤⌠⌡÷≈°∙·√ⁿ²■\u00a0");
    QString name;
    name.reserve(bytes.size());
    for (const char byte : bytes)
        name += uchar(byte) < 0x80 ? QChar(uchar(byte)) : upper[uchar(byte) - 0x80];
    return name;
}

// The UTF-8 name of an Info-ZIP Unicode path field, if it is there and still matches the
// stored name (a tool that renamed the entry without updating the field leaves a stale one).
QString unicodePath(QByteArrayView extra, QByteArrayView storedName)
{
    while (extra.size() >= 4) {
        const quint16 tag = le16(extra.data());
        const quint16 size = le16(extra.data() + 2);
        if (size > extra.size() - 4)
            break;
        const QByteArrayView field = extra.sliced(4, size);
        if (tag == kUnicodePathField && size > 5 && field[0] == 1 &&
            le32(field.data() + 1) == crc32(storedName))
            return QString::fromUtf8(field.sliced(5));
        extra = extra.sliced(4 + size);
    }
    return QString();
}

// Archivers on MS-DOS, OS/2 and Windows file systems store names in code page 437; elsewhere
// (Info-ZIP's zip on Linux among them) they store the system's bytes, UTF-8 nowadays.
bool isDosHost(int host)
{
    constexpr int kFat = 0, kHpfs = 6, kNtfs = 11, kVfat = 14;
    return host == kFat || host == kHpfs || host == kNtfs || host == kVfat;
}

bool isUtf8(QByteArrayView bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    [[maybe_unused]] const QString text = decoder.decode(bytes);
    return !decoder.hasError();
}

QString memberName(QByteArrayView name, QByteArrayView extra, quint16 flags, int host)
{
    if (flags & kUtf8Flag)
        return QString::fromUtf8(name);
    if (const QString unicode = unicodePath(extra, name); !unicode.isEmpty())
        return unicode;
    if (!isDosHost(host) && isUtf8(name))
        return QString::fromUtf8(name);
    return fromCodePage437(name);
}

ZipMembers failure(const QString &reason)
{
    return ZipMembers { {}, reason };
}

} // namespace

ZipMembers zipMemberNames(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return failure(file.errorString());
    const qint64 fileSize = file.size();
    if (fileSize < kEndSize)
        return failure(QStringLiteral("not a zip archive"));

    // The end record is the last thing in the file but for a comment of up to 64 kB.
    const qint64 tailSize = qMin<qint64>(fileSize, kEndSize + kMaxCommentSize);
    file.seek(fileSize - tailSize);
    const QByteArray tail = file.read(tailSize);
    if (tail.size() != tailSize)
        return failure(file.errorString());
    qint64 end = -1;
    for (qint64 at = tail.size() - kEndSize; at >= 0; --at) {
        if (le32(tail.data() + at) == kEndSignature &&
            at + kEndSize + le16(tail.data() + at + 20) == tail.size()) {
            end = at;
            break;
        }
    }
    if (end < 0)
        return failure(QStringLiteral("not a zip archive, or cut short"));
    const char *record = tail.data() + end;
    quint64 count = le16(record + 10);
    quint64 directorySize = le32(record + 12);
    quint64 directoryOffset = le32(record + 16);

    // Too many entries or too large an archive for the classic record: zip64 has the figures.
    if (count == 0xffff || directorySize == 0xffffffff || directoryOffset == 0xffffffff) {
        const qint64 endPosition = fileSize - tailSize + end;
        if (endPosition < kZip64LocatorSize ||
            le32(tail.data() + end - kZip64LocatorSize) != kZip64LocatorSignature)
            return failure(QStringLiteral("zip64 end record missing"));
        const quint64 zip64End = le64(tail.data() + end - kZip64LocatorSize + 8);
        if (zip64End > quint64(fileSize - kZip64EndSize) || !file.seek(qint64(zip64End)))
            return failure(QStringLiteral("zip64 end record out of place"));
        const QByteArray zip64 = file.read(kZip64EndSize);
        if (zip64.size() != kZip64EndSize || le32(zip64.data()) != kZip64EndSignature)
            return failure(QStringLiteral("zip64 end record damaged"));
        count = le64(zip64.data() + 32);
        directorySize = le64(zip64.data() + 40);
        directoryOffset = le64(zip64.data() + 48);
    }
    if (directoryOffset > quint64(fileSize) ||
        directorySize > quint64(fileSize) - directoryOffset ||
        directorySize > quint64(kMaxDirectorySize) || count > directorySize / kCentralSize)
        return failure(QStringLiteral("central directory out of place"));
    file.seek(qint64(directoryOffset));
    const QByteArray directory = file.read(qint64(directorySize));
    if (directory.size() != qint64(directorySize))
        return failure(file.errorString());

    ZipMembers members;
    members.names.reserve(qsizetype(count));
    qsizetype at = 0;
    for (quint64 i = 0; i < count; ++i) {
        if (directory.size() - at < kCentralSize ||
            le32(directory.data() + at) != kCentralSignature)
            return failure(QStringLiteral("central directory damaged at entry %1").arg(i + 1));
        const char *header = directory.data() + at;
        const int host = uchar(header[5]);
        const quint16 flags = le16(header + 8);
        const qsizetype nameSize = le16(header + 28);
        const qsizetype extraSize = le16(header + 30);
        const qsizetype commentSize = le16(header + 32);
        if (directory.size() - at - kCentralSize < nameSize + extraSize + commentSize)
            return failure(QStringLiteral("central directory damaged at entry %1").arg(i + 1));
        const QByteArrayView name(header + kCentralSize, nameSize);
        members.names << memberName(name, QByteArrayView(name.end(), extraSize), flags, host);
        at += kCentralSize + nameSize + extraSize + commentSize;
    }
    return members;
}
