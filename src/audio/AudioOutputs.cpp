#include "AudioOutputs.h"

#include "PulseOutput.h"

#include <memory>
#include <pulse/pulseaudio.h>

namespace {
constexpr int kRetryMs = 2000;
// The role a phone gives its call's audio; the server's policy (module-role-cork) corks music
// while such a stream plays.
constexpr const char *kCallRole = "phone";
} // namespace

// One reading of the server's outputs, gathered across the answers of three requests.
struct AudioOutputs::Listing
{
    AudioOutputs *owner { nullptr };
    QList<Output> outputs;
    QString defaultName;
    bool callActive { false };
    int pending { 3 };
    void finishOne()
    {
        if (--pending > 0)
            return;
        QMetaObject::invokeMethod(
            owner,
            [owner = owner, outputs = outputs, name = defaultName, call = callActive] {
                owner->apply(outputs, name, call);
            },
            Qt::QueuedConnection);
        std::erase_if(owner->m_listings,
                      [this](const auto &listing) { return listing.get() == this; });
    }
};

AudioOutputs::AudioOutputs(QObject *parent) : QObject(parent)
{
    m_retry.setSingleShot(true);
    m_retry.setInterval(kRetryMs);
    connect(&m_retry, &QTimer::timeout, this, &AudioOutputs::connectToServer);
    connectToServer();
}

AudioOutputs::~AudioOutputs()
{
    disconnectFromServer();
}

bool AudioOutputs::contains(const QString &name) const
{
    return std::any_of(m_outputs.begin(), m_outputs.end(),
                       [&](const Output &output) { return output.name == name; });
}

void AudioOutputs::connectToServer()
{
    disconnectFromServer();
    const auto subscribed = [](pa_context *, pa_subscription_event_type_t, uint32_t, void *self) {
        static_cast<AudioOutputs *>(self)->refresh();
    };
    if (!m_connection.open(&AudioOutputs::contextStateChanged, subscribed, this, nullptr))
        m_retry.start();
}

void AudioOutputs::disconnectFromServer()
{
    m_connection.close();
    m_listings.clear();
}

void AudioOutputs::contextStateChanged(pa_context *context, void *self)
{
    auto *outputs = static_cast<AudioOutputs *>(self);
    switch (pa_context_get_state(context)) {
    case PA_CONTEXT_READY:
        if (pa_operation *operation = pa_context_subscribe(
                context,
                pa_subscription_mask_t(PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SERVER |
                                       PA_SUBSCRIPTION_MASK_SINK_INPUT),
                nullptr, nullptr))
            pa_operation_unref(operation);
        outputs->refresh();
        break;
    case PA_CONTEXT_FAILED:
    case PA_CONTEXT_TERMINATED:
        // The server went away, or never was: no outputs until it is back.
        QMetaObject::invokeMethod(
            outputs,
            [outputs] {
                outputs->apply({}, {}, false);
                outputs->m_retry.start();
            },
            Qt::QueuedConnection);
        break;
    default:
        break;
    }
}

void AudioOutputs::refresh()
{
    // On the server thread, with its lock held.
    // Kept here rather than by the requests: a server that goes away drops them unanswered.
    auto *listing = m_listings.emplace_back(std::make_unique<Listing>()).get();
    listing->owner = this;
    pa_operation *sinks = pa_context_get_sink_info_list(
        m_connection.context,
        [](pa_context *, const pa_sink_info *info, int last, void *data) {
            auto *listing = static_cast<Listing *>(data);
            if (last)
                listing->finishOne();
            else if (info)
                listing->outputs.append(
                    { QString::fromUtf8(info->name), QString::fromUtf8(info->description) });
        },
        listing);
    if (sinks)
        pa_operation_unref(sinks);
    else
        listing->finishOne();
    pa_operation *server = pa_context_get_server_info(
        m_connection.context,
        [](pa_context *, const pa_server_info *info, void *data) {
            auto *listing = static_cast<Listing *>(data);
            if (info && info->default_sink_name)
                listing->defaultName = QString::fromUtf8(info->default_sink_name);
            listing->finishOne();
        },
        listing);
    if (server)
        pa_operation_unref(server);
    else
        listing->finishOne();
    pa_operation *streams = pa_context_get_sink_input_info_list(
        m_connection.context,
        [](pa_context *, const pa_sink_input_info *info, int last, void *data) {
            auto *listing = static_cast<Listing *>(data);
            if (last) {
                listing->finishOne();
                return;
            }
            const char *role =
                info ? pa_proplist_gets(info->proplist, PA_PROP_MEDIA_ROLE) : nullptr;
            if (role && qstrcmp(role, kCallRole) == 0 && !info->corked)
                listing->callActive = true;
        },
        listing);
    if (streams)
        pa_operation_unref(streams);
    else
        listing->finishOne();
}

void AudioOutputs::apply(const QList<Output> &outputs, const QString &defaultName, bool callActive)
{
    if (std::exchange(m_callActive, callActive) != callActive)
        emit callActiveChanged(callActive);
    if (outputs == m_outputs && defaultName == m_defaultName)
        return;
    m_outputs = outputs;
    m_defaultName = defaultName;
    emit changed();
}
