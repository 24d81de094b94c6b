#include "audio/TempoFilter.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/frame.h>
}

#include <cstring>
#include <utility>

namespace {

QString reasonFor(int averror)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(averror, text, sizeof text);
    return QString::fromLocal8Bit(text);
}

} // namespace

struct TempoFilter::Graph
{
    AVFilterGraph *graph = avfilter_graph_alloc();
    AVFilterContext *source = nullptr;
    AVFilterContext *sink = nullptr;
    AVFrame *frame = av_frame_alloc();
    bool drained = false; // the sink has said it has nothing more

    ~Graph()
    {
        av_frame_free(&frame);
        avfilter_graph_free(&graph);
    }
};

TempoFilter::TempoFilter(const AudioDecoder::OutputFormat &format)
    : m_format(format), m_frameBytes(format.bytesPerFrame())
{}

TempoFilter::~TempoFilter() = default;

bool TempoFilter::fail(const QString &operation, int averror)
{
    m_error = QStringLiteral("Cannot %1 at %2 times the speed: %3")
                  .arg(operation, QString::number(m_rate), reasonFor(averror));
    m_graph.reset();
    return false;
}

bool TempoFilter::reset(double rate)
{
    m_graph.reset();
    m_pending.clear();
    m_pendingOffset = 0;
    m_written = 0;
    m_finished = m_atEnd = false;
    m_error.clear();
    m_rate = rate;
    if (rate == 1)
        return true;

    auto graph = std::make_unique<Graph>();
    if (!graph->graph || !graph->frame)
        return fail(QStringLiteral("play"), AVERROR(ENOMEM));
    AVChannelLayout layout {};
    av_channel_layout_default(&layout, m_format.channels);
    char layoutName[64] = {};
    av_channel_layout_describe(&layout, layoutName, sizeof layoutName);
    av_channel_layout_uninit(&layout);
    const QByteArray sampleFormat =
        m_format.sampleFormat == AudioDecoder::SampleFormat::Float ? "flt" : "s16";
    const QByteArray sampleRate = QByteArray::number(m_format.sampleRate);
    // atempo may hand out another sample layout than it was given (planar, say); aformat
    // turns it back into what the stream plays.
    const std::pair<const char *, QByteArray> filters[] = {
        { "abuffer", "time_base=1/" + sampleRate + ":sample_rate=" + sampleRate +
                         ":sample_fmt=" + sampleFormat + ":channel_layout=" + layoutName },
        { "atempo", "tempo=" + QByteArray::number(rate, 'g', 6) },
        { "aformat", "sample_fmts=" + sampleFormat + ":sample_rates=" + sampleRate +
                         ":channel_layouts=" + layoutName },
        { "abuffersink", {} },
    };
    AVFilterContext *previous = nullptr;
    for (const auto &[name, arguments] : filters) {
        const AVFilter *kind = avfilter_get_by_name(name);
        if (!kind)
            return fail(QStringLiteral("build the filter"), AVERROR_FILTER_NOT_FOUND);
        AVFilterContext *filter = nullptr;
        int result = avfilter_graph_create_filter(
            &filter, kind, name, arguments.isEmpty() ? nullptr : arguments.constData(), nullptr,
            graph->graph);
        if (result < 0)
            return fail(QStringLiteral("build the filter"), result);
        if (previous && (result = avfilter_link(previous, 0, filter, 0)) < 0)
            return fail(QStringLiteral("build the filter"), result);
        if (!previous)
            graph->source = filter;
        previous = filter;
    }
    graph->sink = previous;
    if (const int result = avfilter_graph_config(graph->graph, nullptr); result < 0)
        return fail(QStringLiteral("build the filter"), result);
    m_graph = std::move(graph);
    return true;
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
    AVFrame *frame = m_graph->frame;
    frame->nb_samples = int(frames);
    frame->format = m_format.sampleFormat == AudioDecoder::SampleFormat::Float ? AV_SAMPLE_FMT_FLT
                                                                               : AV_SAMPLE_FMT_S16;
    frame->sample_rate = m_format.sampleRate;
    av_channel_layout_default(&frame->ch_layout, m_format.channels);
    frame->pts = m_written;
    int result = av_frame_get_buffer(frame, 0);
    if (result >= 0) {
        std::memcpy(frame->data[0], data, bytes);
        m_written += frames;
        // The source takes the frame's buffer over and leaves the frame blank.
        result = av_buffersrc_add_frame(m_graph->source, frame);
    }
    av_frame_unref(frame);
    if (result < 0)
        return fail(QStringLiteral("play"), result);
    return takeOutput();
}

bool TempoFilter::finish()
{
    if (std::exchange(m_finished, true) || !m_graph)
        return !hasError();
    const int result = av_buffersrc_add_frame(m_graph->source, nullptr);
    if (result < 0)
        return fail(QStringLiteral("play"), result);
    if (!takeOutput())
        return false;
    // Once its input has ended the sink hands out all it holds at once: nothing comes later.
    m_graph->drained = true;
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
    AVFrame *frame = m_graph->frame;
    for (;;) {
        const int result = av_buffersink_get_frame(m_graph->sink, frame);
        if (result == AVERROR(EAGAIN))
            return true;
        if (result == AVERROR_EOF) {
            m_graph->drained = true;
            return true;
        }
        if (result < 0)
            return fail(QStringLiteral("play"), result);
        const auto *bytes = reinterpret_cast<const char *>(frame->data[0]);
        m_pending.insert(m_pending.end(), bytes,
                         bytes + std::size_t(frame->nb_samples) * m_frameBytes);
        av_frame_unref(frame);
    }
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
        m_atEnd = m_finished && (!m_graph || m_graph->drained);
    }
    return qint64(bytes) / m_frameBytes;
}
