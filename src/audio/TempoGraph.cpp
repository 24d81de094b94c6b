#include "audio/TempoGraph.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/frame.h>
}

#include <cstring>
#include <memory>
#include <utility>

namespace {

QString reasonFor(int averror)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(averror, text, sizeof text);
    return QString::fromLocal8Bit(text);
}

class AtempoGraph final : public TempoGraph
{
public:
    explicit AtempoGraph(const AudioDecoder::OutputFormat &format)
        : m_sampleFormat(format.sampleFormat == AudioDecoder::SampleFormat::Float
                             ? AV_SAMPLE_FMT_FLT
                             : AV_SAMPLE_FMT_S16),
          m_sampleRate(format.sampleRate), m_channels(format.channels),
          m_frameBytes(format.channels * av_get_bytes_per_sample(m_sampleFormat))
    {}

    ~AtempoGraph() override
    {
        av_frame_free(&m_frame);
        avfilter_graph_free(&m_graph);
    }

    int build(double rate)
    {
        if (!m_graph || !m_frame)
            return AVERROR(ENOMEM);
        AVChannelLayout layout {};
        av_channel_layout_default(&layout, m_channels);
        char layoutName[64] = {};
        av_channel_layout_describe(&layout, layoutName, sizeof layoutName);
        av_channel_layout_uninit(&layout);
        const QByteArray sampleFormat = av_get_sample_fmt_name(m_sampleFormat);
        const QByteArray sampleRate = QByteArray::number(m_sampleRate);
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
                return AVERROR_FILTER_NOT_FOUND;
            AVFilterContext *filter = nullptr;
            int result = avfilter_graph_create_filter(
                &filter, kind, name, arguments.isEmpty() ? nullptr : arguments.constData(),
                nullptr, m_graph);
            if (result < 0)
                return result;
            if (previous && (result = avfilter_link(previous, 0, filter, 0)) < 0)
                return result;
            if (!previous)
                m_source = filter;
            previous = filter;
        }
        m_sink = previous;
        return avfilter_graph_config(m_graph, nullptr);
    }

    bool write(const void *data, qint64 frames, QString *reason) override
    {
        int result = 0;
        if (!data) {
            result = av_buffersrc_add_frame(m_source, nullptr);
        } else {
            m_frame->nb_samples = int(frames);
            m_frame->format = m_sampleFormat;
            m_frame->sample_rate = m_sampleRate;
            av_channel_layout_default(&m_frame->ch_layout, m_channels);
            m_frame->pts = m_written;
            result = av_frame_get_buffer(m_frame, 0);
            if (result >= 0) {
                std::memcpy(m_frame->data[0], data, std::size_t(frames) * m_frameBytes);
                m_written += frames;
                // The source takes the frame's buffer over and leaves the frame blank.
                result = av_buffersrc_add_frame(m_source, m_frame);
            }
            av_frame_unref(m_frame);
        }
        if (result < 0)
            *reason = reasonFor(result);
        return result >= 0;
    }

    bool read(std::vector<char> &out, QString *reason) override
    {
        for (;;) {
            const int result = av_buffersink_get_frame(m_sink, m_frame);
            if (result == AVERROR(EAGAIN))
                return true;
            if (result == AVERROR_EOF) {
                m_drained = true;
                return true;
            }
            if (result < 0) {
                *reason = reasonFor(result);
                return false;
            }
            const auto *bytes = reinterpret_cast<const char *>(m_frame->data[0]);
            out.insert(out.end(), bytes, bytes + std::size_t(m_frame->nb_samples) * m_frameBytes);
            av_frame_unref(m_frame);
        }
    }

    bool drained() const override { return m_drained; }

private:
    AVFilterGraph *m_graph = avfilter_graph_alloc();
    AVFilterContext *m_source = nullptr;
    AVFilterContext *m_sink = nullptr;
    AVFrame *m_frame = av_frame_alloc();
    const AVSampleFormat m_sampleFormat;
    const int m_sampleRate;
    const int m_channels;
    const int m_frameBytes;
    qint64 m_written = 0; // frames so far, the next one's timestamp
    bool m_drained = false;
};

} // namespace

extern "C" Q_DECL_EXPORT TempoGraph *
vantrel_open_tempo_graph(const AudioDecoder::OutputFormat &format, double rate, QString *reason)
{
    static_assert(std::is_same_v<decltype(&vantrel_open_tempo_graph), OpenTempoGraph>);
    auto graph = std::make_unique<AtempoGraph>(format);
    if (const int result = graph->build(rate); result < 0) {
        *reason = reasonFor(result);
        return nullptr;
    }
    return graph.release();
}
