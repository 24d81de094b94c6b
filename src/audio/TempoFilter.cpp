#include "audio/TempoFilter.h"

#include "core/Module.h"

#include <cstring>
#include <utility>

namespace {

// The module's entry, looked for once, at the first speed other than the recording's own.
OpenTempoGraph moduleEntry()
{
    static const auto entry = reinterpret_cast<OpenTempoGraph>(
        Module::resolve("vantrel-tempo", kOpenTempoGraph, QStringLiteral("AudioPlayer: speed")));
    return entry;
}

} // namespace

bool TempoFilter::isAvailable()
{
    return moduleEntry() != nullptr;
}

TempoFilter::TempoFilter(const AudioDecoder::OutputFormat &format)
    : m_format(format), m_frameBytes(format.bytesPerFrame())
{}

TempoFilter::~TempoFilter() = default;

bool TempoFilter::fail(const QString &operation, const QString &reason)
{
    m_error = QStringLiteral("Cannot %1 at %2 times the speed: %3")
                  .arg(operation, QString::number(m_rate), reason);
    m_graph.reset();
    return false;
}

bool TempoFilter::reset(double rate)
{
    m_graph.reset();
    m_pending.clear();
    m_pendingOffset = 0;
    m_finished = m_atEnd = m_drained = false;
    m_error.clear();
    m_rate = rate;
    if (rate == 1)
        return true;

    const OpenTempoGraph open = moduleEntry();
    if (!open)
        return fail(QStringLiteral("play"), QStringLiteral("the speed module is missing"));
    QString reason;
    m_graph.reset(open(m_format, rate, &reason));
    return m_graph || fail(QStringLiteral("build the filter"), reason);
}

bool TempoFilter::write(const void *data, qint64 frames)
{
    if (frames <= 0 || hasError() || m_finished)
        return !hasError();
    const std::size_t bytes = std::size_t(frames) * m_frameBytes;
    if (!m_graph) {
        dropRead();
        const char *bytesIn = static_cast<const char *>(data);
        m_pending.insert(m_pending.end(), bytesIn, bytesIn + bytes);
        return true;
    }
    QString reason;
    if (!m_graph->write(data, frames, &reason))
        return fail(QStringLiteral("play"), reason);
    return takeOutput();
}

bool TempoFilter::finish()
{
    if (std::exchange(m_finished, true) || !m_graph)
        return !hasError();
    QString reason;
    if (!m_graph->write(nullptr, 0, &reason))
        return fail(QStringLiteral("play"), reason);
    if (!takeOutput())
        return false;
    // Once its input has ended the sink hands out all it holds at once: nothing comes later.
    m_drained = true;
    return true;
}

void TempoFilter::dropRead()
{
    // What was read already goes, so that the buffer holds only what is still to come.
    m_pending.erase(m_pending.begin(), m_pending.begin() + std::ptrdiff_t(m_pendingOffset));
    m_pendingOffset = 0;
}

bool TempoFilter::takeOutput()
{
    dropRead();
    QString reason;
    if (!m_graph->read(m_pending, &reason))
        return fail(QStringLiteral("play"), reason);
    m_drained = m_drained || m_graph->drained();
    return true;
}

qint64 TempoFilter::read(void *data, qint64 maxFrames)
{
    const std::size_t available = m_pending.size() - m_pendingOffset;
    const std::size_t bytes = std::min(available, std::size_t(maxFrames) * m_frameBytes);
    if (bytes > 0)
        std::memcpy(data, m_pending.data() + m_pendingOffset, bytes);
    m_pendingOffset += bytes;
    if (m_pendingOffset == m_pending.size()) {
        m_pending.clear();
        m_pendingOffset = 0;
        m_atEnd = m_finished && (!m_graph || m_drained);
    }
    return qint64(bytes) / m_frameBytes;
}
