#include "RecordingSearch.h"

#include "MessagesDirectory.h"
#include "Transcript.h"

#include <QMetaObject>
#include <QMutex>
#include <QThreadPool>
#include <algorithm>
#include <array>
#include <iterator>
#include <atomic>

namespace {

// Transcripts are handed over in batches of this many, so that the first are found soon.
constexpr qsizetype kBatch = 500;

// What people put between the digits of a number they type.
bool isNumberPunctuation(QChar c)
{
    return c == u' ' || c == u'+' || c == u'-' || c == u'(' || c == u')' || c == u'.' ||
           c == u'/' || c == QChar(0x00A0);
}

// Whether the digits of an address hold these digits in a row. Any address is short; one too
// long for the buffer is searched as far as the buffer reaches.
bool digitsContain(const QString &address, const QString &digits)
{
    std::array<char16_t, 64> buffer;
    std::size_t count = 0;
    for (const QChar c : address) {
        if (c.isDigit() && count < buffer.size())
            buffer[count++] = c.unicode();
    }
    return QStringView(buffer.data(), qsizetype(count)).contains(digits);
}

} // namespace

// What the background reading may touch: never the search itself, which may be gone by the
// time a batch is read.
struct RecordingSearch::Mailbox
{
    QMutex mutex;
    RecordingSearch *owner { nullptr }; // null once the search is being destroyed
    std::atomic<bool> cancelled { false };

    void close()
    {
        const QMutexLocker lock(&mutex);
        owner = nullptr;
        cancelled.store(true);
    }

    void deliver(QHash<QString, QByteArray> texts)
    {
        const QMutexLocker lock(&mutex);
        // Queued on the search's thread; dropped by Qt if the search goes first.
        if (owner)
            QMetaObject::invokeMethod(
                owner, [owner = owner, texts = std::move(texts)]() mutable { owner->adopt(std::move(texts)); },
                Qt::QueuedConnection);
    }
};

RecordingSearch::RecordingSearch(QString directory, QObject *parent)
    : QObject(parent), m_directory(std::move(directory)), m_mailbox(std::make_shared<Mailbox>())
{
    m_mailbox->owner = this;
}

RecordingSearch::~RecordingSearch()
{
    m_mailbox->close();
}

void RecordingSearch::setQuery(const QString &query)
{
    m_query = query;
    m_folded = query.trimmed().toCaseFolded();
    m_foldedUtf8 = m_folded.toUtf8();
    m_digits.clear();
    m_nationalDigits.clear();
    const bool number = !m_folded.isEmpty() && std::all_of(m_folded.cbegin(), m_folded.cend(), [](QChar c) {
                            return c.isDigit() || isNumberPunctuation(c);
                        });
    if (!number)
        return;
    for (const QChar c : std::as_const(m_folded)) {
        if (c.isDigit())
            m_digits += c;
    }
    // "020 7946 0958" is how a British caller's "+44 20 7946 0958" is written at home.
    if (m_digits.startsWith(u'0') && !m_folded.contains(u'+'))
        m_nationalDigits = m_digits.mid(1);
}

const std::vector<qsizetype> &RecordingSearch::find(const QList<Entry> &entries)
{
    if (!m_indexed)
        index(entries);
    std::vector<bool> callerFound(m_callers.size());
    for (std::size_t i = 0; i < m_callers.size(); ++i)
        callerFound[i] = m_folded.isEmpty() || matches(m_callers[i]);
    // The transcripts that hold the text, looked at once each rather than once per entry.
    QSet<QString> spoken;
    if (!m_foldedUtf8.isEmpty()) {
        for (auto text = m_texts.cbegin(); text != m_texts.cend(); ++text) {
            if (text->contains(m_foldedUtf8))
                spoken.insert(text.key());
        }
    }
    const auto found = [&](qsizetype at) {
        const Entry &entry = entries.at(at);
        return callerFound[std::size_t(m_callerOf[std::size_t(at)])] ||
               (entry.textFile && !spoken.isEmpty() && spoken.contains(*entry.textFile));
    };
    // A longer query finds no entry that a query it begins with did not, as long as the
    // numbers it looks for begin with those looked for before: "(" looks for no number at
    // all, "(5" for every 5.
    const auto extends = [](const QString &now, const QString &before) {
        return now.isEmpty() || (!before.isEmpty() && now.startsWith(before));
    };
    const bool narrowing = m_narrowable && !m_foundFor.isEmpty() &&
                           m_folded.startsWith(m_foundFor) && extends(m_digits, m_foundDigits) &&
                           extends(m_nationalDigits, m_foundNational);
    std::vector<qsizetype> result;
    if (narrowing) {
        std::copy_if(m_found.cbegin(), m_found.cend(), std::back_inserter(result), found);
    } else {
        for (qsizetype at = 0; at < entries.size(); ++at) {
            if (found(at))
                result.push_back(at);
        }
    }
    m_found = std::move(result);
    m_foundFor = m_folded;
    m_foundDigits = m_digits;
    m_foundNational = m_nationalDigits;
    m_narrowable = true;
    return m_found;
}

void RecordingSearch::index(const QList<Entry> &entries)
{
    m_callers.clear();
    m_callerOf.clear();
    m_callerOf.reserve(std::size_t(entries.size()));
    QHash<QString, int> known;
    for (const Entry &entry : entries) {
        auto caller = known.constFind(entry.address);
        if (caller == known.cend() || m_callers[std::size_t(*caller)].name != entry.name) {
            caller = known.insert(entry.address, int(m_callers.size()));
            m_callers.push_back({ entry.name, entry.address });
        }
        m_callerOf.push_back(*caller);
    }
    m_indexed = true;
}

bool RecordingSearch::matches(const Caller &caller) const
{
    if (caller.name.contains(m_folded, Qt::CaseInsensitive) ||
        caller.address.contains(m_folded, Qt::CaseInsensitive))
        return true;
    return !m_digits.isEmpty() &&
           (digitsContain(caller.address, m_digits) ||
            (!m_nationalDigits.isEmpty() && digitsContain(caller.address, m_nationalDigits)));
}

void RecordingSearch::readTranscripts(const QList<Entry> &entries)
{
    QStringList names;
    for (const Entry &entry : entries) {
        if (entry.textFile && !m_requested.contains(*entry.textFile)) {
            m_requested.insert(*entry.textFile);
            names << *entry.textFile;
        }
    }
    if (names.isEmpty())
        return;
    QThreadPool::globalInstance()->start(
        [mailbox = m_mailbox, directory = MessagesDirectory(m_directory), names] {
            QHash<QString, QByteArray> texts;
            for (const QString &name : names) {
                if (mailbox->cancelled.load())
                    return;
                const QString text = Transcript::read(directory.filePath(name));
                if (!text.isNull())
                    texts.insert(name, text.toCaseFolded().toUtf8());
                if (texts.size() == kBatch)
                    mailbox->deliver(std::exchange(texts, {}));
            }
            if (!texts.isEmpty())
                mailbox->deliver(std::move(texts));
        });
}

void RecordingSearch::adopt(QHash<QString, QByteArray> texts)
{
    m_texts.insert(texts);
    m_narrowable = false;
    emit transcriptsRead();
}
