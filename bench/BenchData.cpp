#include "BenchData.h"

#include <QDir>
#include <QFile>
#include <QLocale>
#include <QSet>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <ctime>
#include <dirent.h>
#include <sys/stat.h>
#include <vector>
#include <random>

namespace {

constexpr int kUsCallers = 2700;
constexpr int kUkCallers = 240;
constexpr int kHandleCallers = 60;

const char *const kGivenNames[] = { "Daniel", "Priya",  "Oliver", "Anna",   "Mateo", "Chloe",
                                    "Kenji",  "Amara",  "Lukas",  "Sofia",  "Noah",  "Ines",
                                    "Farah",  "George", "Hana",   "Ibrahim" };
const char *const kFamilyNames[] = { "Reyes",  "Natarajan", "Hughes", "Berg",   "Okafor",
                                     "Dubois", "Tanaka",    "Novak",  "Rossi",  "Larsen",
                                     "Silva",  "Moreau",    "Khan",   "Walker", "Ito" };

// A phone number of the pool as people write it in an address book; variant picks the form.
QString writtenForm(const QString &address, int variant)
{
    if (address.startsWith(QLatin1String("+1"))) {
        const QString area = address.mid(2, 3), exchange = address.mid(5, 3), line = address.mid(8);
        switch (variant % 4) {
        case 0:
            return QStringLiteral("(%1) %2-%3").arg(area, exchange, line);
        case 1:
            return QStringLiteral("+1 %1-%2-%3").arg(area, exchange, line);
        case 2:
            return QStringLiteral("%1.%2.%3").arg(area, exchange, line);
        default:
            return QStringLiteral("+1 (%1) %2-%3").arg(area, exchange, line);
        }
    }
    const QString national = address.mid(3); // "+44" 7700 NNNNNN
    return variant % 2 ? QStringLiteral("+44 %1 %2").arg(national.left(4), national.mid(4))
                       : QStringLiteral("+44-%1-%2-%3")
                             .arg(national.left(4), national.mid(4, 3), national.mid(7));
}

QStringList makeCallers(std::mt19937 &random)
{
    QSet<QString> seen;
    QStringList callers;
    const auto addUnique = [&](const QString &address) {
        if (!seen.contains(address)) {
            seen.insert(address);
            callers << address;
        }
    };
    // Exchanges start at 2, as real ones do; the address book's extra numbers use 0xx and so
    // never match a caller by accident.
    std::uniform_int_distribution<int> exchange(200, 999), line(0, 9999), mobile(0, 999999);
    while (callers.size() < kUsCallers)
        addUnique(QStringLiteral("+1555%1%2")
                      .arg(exchange(random))
                      .arg(line(random), 4, 10, QLatin1Char('0')));
    while (callers.size() < kUsCallers + kUkCallers)
        addUnique(QStringLiteral("+447700%1").arg(mobile(random), 6, 10, QLatin1Char('0')));
    for (int i = 0; i < kHandleCallers; ++i)
        addUnique(QStringLiteral("%1.%2%3@example.com")
                      .arg(QString::fromLatin1(kGivenNames[i % 16]).toLower(),
                           QString::fromLatin1(kFamilyNames[i % 15]).toLower())
                      .arg(i));
    std::shuffle(callers.begin(), callers.end(), random);
    return callers;
}

QByteArray makeContacts(const QStringList &callers, int contacts)
{
    // Every other caller of the (shuffled) pool belongs to the address book, spread over the
    // contacts; a third of the contacts also have a number nobody calls from.
    QList<QStringList> owned(contacts);
    for (qsizetype i = 0; i < callers.size(); i += 2)
        owned[(i / 2) % contacts] << callers[i];

    QByteArray vcf;
    for (int c = 0; c < contacts; ++c) {
        const QString given = QLatin1String(kGivenNames[c % 16]);
        const QString family = QLatin1String(kFamilyNames[(c / 16) % 15]) + QString::number(c);
        QString card = QStringLiteral("BEGIN:VCARD\r\nVERSION:3.0\r\nFN:%1 %2\r\nN:%2;%1;;;\r\n")
                           .arg(given, family);
        if (c % 7 == 0)
            card += QStringLiteral("ORG:%1 & Partners\r\n").arg(family);
        for (qsizetype n = 0; n < owned[c].size(); ++n) {
            const QString &address = owned[c][n];
            if (address.contains(u'@')) // the book keeps the case the person typed
                card += QStringLiteral("EMAIL;TYPE=home:%1\r\n")
                            .arg(address.left(1).toUpper() + address.mid(1));
            else
                card += QStringLiteral("TEL;TYPE=CELL:%1\r\n").arg(writtenForm(address, c + n));
        }
        if (c % 3 == 0)
            card += QStringLiteral("TEL;TYPE=WORK:(555) 0%1-%2\r\n")
                        .arg(c % 100, 2, 10, QLatin1Char('0'))
                        .arg(c, 4, 10, QLatin1Char('0'));
        card += QLatin1String("END:VCARD\r\n");
        vcf += card.toUtf8();
    }
    return vcf;
}

} // namespace

BenchData::BenchData(int recordings, int contacts) : m_recordings(recordings)
{
    if (!m_root.isValid() || !QDir().mkpath(messagesDirectory()))
        return;
    std::mt19937 random(20261115);
    m_callers = makeCallers(random);
    if (!writeFile(contactsFile(), makeContacts(m_callers, contacts)))
        return;

    // Some callers call far more often than others; calls fall in waking hours, which also
    // keeps every time clear of daylight-saving gaps. A heavy user's few calls a day; more
    // than ten thousand are a lifetime's, about eighteen a day over fourteen years.
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::uniform_int_distribution<int> gapMinutes(7, recordings > 10000 ? 90 : 300);
    QDateTime time(QDate(2021, 1, 1), QTime(8, 0, 13));
    const QString directory = messagesDirectory();
    for (int i = 0; i < recordings; ++i) {
        time = time.addSecs(gapMinutes(random) * 60 + i % 60);
        if (time.time().hour() < 7 || time.time().hour() > 22)
            time = QDateTime(time.date().addDays(time.time().hour() > 22 ? 1 : 0), QTime(7, 0, 0))
                       .addSecs(i % 3600);
        const double u = unit(random);
        const QString &caller = m_callers[qsizetype(u * u * double(m_callers.size()))];
        const bool faceTime = caller.contains(u'@') || i % 10 == 0;
        const QString name = recordingName(caller, time, faceTime);
        if (!writeFile(directory + u'/' + name))
            return;
        if (i % 3 == 0 &&
            !writeFile(directory + u'/' +
                           QString(name).replace(QLatin1String(".caf"), QLatin1String(".txt")),
                       "Hi, it's me. Call me back when you get this.\n"))
            return;
    }
    m_newest = time;
    m_valid = true;
}

QString BenchData::recordingName(const QString &address, const QDateTime &time, bool faceTime)
{
    return QStringLiteral("msg-_%1-_%2-_%3.caf")
        .arg(faceTime ? QLatin1String("FT") : QLatin1String("TEL"), address,
             QLocale::c().toString(time, QStringLiteral("dd-MMM-yyyy-HH-mm-ss")));
}

bool BenchData::writeFile(const QString &path, const QByteArray &data)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(data) == data.size();
}

void BenchData::setUpEnvironment()
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("TZ", "America/New_York");
    qputenv("LANG", "en_US.UTF-8");
    qputenv("LC_ALL", "en_US.UTF-8");
    tzset();
}

std::size_t BenchData::directoryFloor(const std::string &directory)
{
    std::size_t recordings = 0;
    DIR *dir = opendir(directory.c_str());
    if (!dir)
        return 0;
    std::vector<std::string> parts;
    while (const dirent *item = readdir(dir)) {
        const std::string name = item->d_name;
        if (name.size() < 3 || name.compare(name.size() - 3, 3, "caf") != 0)
            continue;
        parts.clear();
        for (std::size_t start = 0;;) {
            const std::size_t end = name.find("-_", start);
            parts.push_back(name.substr(start, end - start));
            if (end == std::string::npos)
                break;
            start = end + 2;
        }
        if (parts.size() != 4 || parts[0] != "msg")
            continue;
        std::string transcript = directory + '/' + name;
        transcript.replace(transcript.size() - 4, 4, ".txt");
        struct stat info
        {
        };
        benchmark::DoNotOptimize(::stat(transcript.c_str(), &info));
        ++recordings;
    }
    closedir(dir);
    return recordings;
}

double BenchData::cpuSeconds()
{
    timespec now {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

int BenchData::runBenchmarks(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
