#include "PulseConnection.h"

#include <pulse/error.h>
#include <pulse/proplist.h>

bool PulseConnection::open(pa_context_notify_cb_t stateChanged,
                           pa_context_subscribe_cb_t subscribed, void *owner, QString *error)
{
    close();
    loop = pa_threaded_mainloop_new();
    pa_proplist *application = pa_proplist_new();
    pa_proplist_sets(application, PA_PROP_APPLICATION_NAME, kApplicationName);
    pa_proplist_sets(application, PA_PROP_APPLICATION_ID, kApplicationId);
    pa_proplist_sets(application, PA_PROP_APPLICATION_ICON_NAME, kApplicationId);
    context = pa_context_new_with_proplist(pa_threaded_mainloop_get_api(loop),
                                           kApplicationName, application);
    pa_proplist_free(application);
    pa_context_set_state_callback(context, stateChanged, owner);
    if (subscribed)
        pa_context_set_subscribe_callback(context, subscribed, owner);
    if (pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        if (error)
            *error = QStringLiteral("cannot connect to the audio server: %1")
                         .arg(QString::fromUtf8(pa_strerror(pa_context_errno(context))));
        close();
        return false;
    }
    pa_threaded_mainloop_start(loop);
    return true;
}

void PulseConnection::close(const std::function<void()> &detach)
{
    if (!loop)
        return;
    pa_threaded_mainloop_lock(loop);
    if (detach)
        detach();
    pa_context_set_state_callback(context, nullptr, nullptr);
    pa_context_set_subscribe_callback(context, nullptr, nullptr);
    pa_context_disconnect(context);
    pa_context_unref(context);
    context = nullptr;
    pa_threaded_mainloop_unlock(loop);
    pa_threaded_mainloop_stop(loop);
    pa_threaded_mainloop_free(loop);
    loop = nullptr;
}
