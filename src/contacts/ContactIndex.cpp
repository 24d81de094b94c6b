#include "ContactIndex.h"

#include "VCardReader.h"
#include "core/Log.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <phonenumbers/phonenumberutil.h>
#include <set>
#include <thread>
#include <vector>

namespace {

using i18n::phonenumbers::PhoneNumber;
using i18n::phonenumbers::PhoneNumberUtil;

// Address books are small; anything larger than this is not one, and reading it whole
// would only stall the list.
constexpr qint64 kMaxVCardFileSize = 16 * 1024 * 1024;
// Below this many numbers a second thread costs more than it saves.
constexpr size_t kNumbersWorthAThread = 256;

const std::set<int> &callingCodes()
{
    static const std::set<int> codes = [] {
        std::set<int> all;
        PhoneNumberUtil::GetInstance()->GetSupportedCallingCodes(&all);
        return all;
    }();
    return codes;
}

bool isInternationalDigits(const QString &text)
{
    if (text.size() < 4 || text.size() > 16 || text[0] != u'+')
        return false;
    for (qsizetype i = 1; i < text.size(); ++i) {
        if (text[i] < u'0' || text[i] > u'9')
            return false;
    }
    return true;
}

QString digitsOnly(const QString &text)
{
    QString digits;
    for (const QChar c : text) {
        if (c >= u'0' && c <= u'9')
            digits += c;
    }
    return digits;
}

} // namespace

ContactIndex::ContactIndex(const QStringList &sources, const QString &region,
                           const std::atomic<bool> *cancelled)
    : m_region(region.toStdString())
{
    const auto isCancelled = [cancelled] { return cancelled && cancelled->load(); };
    for (const QString &source : sources) {
        const QFileInfo info(source);
        if (info.isDir()) {
            QDirIterator files(source, { QStringLiteral("*.vcf") }, QDir::Files | QDir::Readable,
                               QDirIterator::Subdirectories | QDirIterator::FollowSymlinks);
            while (files.hasNext() && !isCancelled())
                loadFile(files.next());
        } else if (info.exists() && !isCancelled()) {
            loadFile(source);
        }
    }
    if (!isCancelled())
        index();
}

void ContactIndex::loadFile(const QString &path)
{
    QFile file(path);
    if (file.size() > kMaxVCardFileSize) {
        mylog(QStringLiteral("ContactStore: skipped %1: larger than %2 bytes")
                  .arg(path)
                  .arg(kMaxVCardFileSize));
        return;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        mylog(QStringLiteral("ContactStore: skipped %1: %2").arg(path, file.errorString()));
        return;
    }
    VCardReader::Result result = VCardReader::read(file.readAll());
    if (!result.error.isEmpty()) {
        mylog(QStringLiteral("ContactStore: skipped %1: %2").arg(path, result.error));
        return;
    }
    for (Contact &contact : result.contacts)
        m_contacts.push_back(std::move(contact));
}

void ContactIndex::index()
{
    struct Number
    {
        const Contact *contact;
        QString text;
        std::optional<PhoneKey> key;
    };
    std::vector<Number> numbers;
    for (const Contact &contact : m_contacts) {
        for (const QString &text : contact.phoneNumbers())
            numbers.push_back({ &contact, text, std::nullopt });
    }
    // Reading a number written nationally is libphonenumber's full parse, most of the time
    // an address book takes to build, and the list's first frame waits for it: a second
    // core reads half of them.
    const auto keyRange = [this, &numbers](size_t first, size_t last) {
        for (size_t i = first; i < last; ++i)
            numbers[i].key = phoneKey(numbers[i].text);
    };
    const size_t half = numbers.size() / 2;
    if (numbers.size() >= kNumbersWorthAThread && std::thread::hardware_concurrency() > 1) {
        std::thread helper(keyRange, half, numbers.size());
        keyRange(0, half);
        helper.join();
    } else {
        keyRange(0, numbers.size());
    }
    // Filed in the order read, as the look-up's rules expect.
    for (const Number &number : numbers) {
        if (number.key)
            m_byNationalNumber[number.key->nationalNumber].append(
                { number.key->countryCode, number.contact });
    }
    for (const Contact &contact : m_contacts) {
        for (const QString &handle : contact.handles())
            m_byHandle.insert(handle.toLower(), &contact);
    }
}

std::optional<ContactIndex::PhoneKey> ContactIndex::phoneKey(const QString &text) const
{
    const QString trimmed = text.trimmed();
    // The recording side writes international numbers as "+" and digits; splitting off the
    // calling code by hand spares libphonenumber's full parse for the common case.
    if (isInternationalDigits(trimmed)) {
        for (int length = 1; length <= 3 && length < trimmed.size() - 1; ++length) {
            const int code = QStringView(trimmed).mid(1, length).toInt();
            if (callingCodes().count(code))
                return PhoneKey { code, trimmed.mid(1 + length) };
        }
    }
    PhoneNumber number;
    const auto *util = PhoneNumberUtil::GetInstance();
    if (util->Parse(trimmed.toStdString(), m_region, &number) ==
        PhoneNumberUtil::NO_PARSING_ERROR) {
        std::string national;
        util->GetNationalSignificantNumber(number, &national);
        if (!national.empty())
            return PhoneKey { int(number.country_code()), QString::fromStdString(national) };
    }
    // Written nationally with no region to read it in: match on the digits alone, without
    // the trunk prefix.
    if (trimmed.startsWith(u'+'))
        return std::nullopt;
    QString digits = digitsOnly(trimmed);
    while (digits.startsWith(u'0'))
        digits.remove(0, 1);
    if (digits.size() < 3)
        return std::nullopt;
    return PhoneKey { 0, digits };
}

const Contact *ContactIndex::contactForDestinationId(const QString &address) const
{
    if (address.isEmpty())
        return nullptr;
    // Most addresses are numbers, already in lower case: looked up without a copy.
    const auto handle = m_byHandle.constFind(address.isLower() ? address : address.toLower());
    if (handle != m_byHandle.cend())
        return *handle;
    if (address.contains(u'@'))
        return nullptr;
    const auto key = phoneKey(address);
    if (!key)
        return nullptr;
    const auto owners = m_byNationalNumber.constFind(key->nationalNumber);
    if (owners == m_byNationalNumber.cend())
        return nullptr;
    // The same national number in another country is another line; a number whose country
    // is unknown on either side matches on the national number alone.
    const PhoneOwner *unknownCountry = nullptr;
    for (const PhoneOwner &owner : *owners) {
        if (owner.countryCode == key->countryCode)
            return owner.contact;
        if (!unknownCountry && (owner.countryCode == 0 || key->countryCode == 0))
            unknownCountry = &owner;
    }
    return unknownCountry ? unknownCountry->contact : nullptr;
}
