#pragma once

#include <QString>
#include <functional>
#include <pulse/context.h>
#include <pulse/subscribe.h>
#include <pulse/thread-mainloop.h>

// A connection to the audio server on a libpulse thread of its own, named to the server as
// the application (its name, id and icon), as the playing stream and the list of outputs
// both need. It never starts a server: without one there is no sound, and the owner says so.
struct PulseConnection
{
    // What the connection tells the server about the application, for the desktop's sound
    // settings and a phone's audio policy.
    static constexpr const char *kApplicationName = "Vantrel Plus";
    static constexpr const char *kApplicationId = "net.zorvath.vantrel";

    pa_threaded_mainloop *loop { nullptr };
    pa_context *context { nullptr };

    // Starts connecting, with the loop running; the callbacks run on its thread. False, with
    // nothing left open, when connecting cannot even begin.
    bool open(pa_context_notify_cb_t stateChanged, pa_context_subscribe_cb_t subscribed,
              void *owner, QString *error);
    // Stops the loop and lets go of the server. detach runs first, under the loop's lock, for
    // whatever the owner hung on the context.
    void close(const std::function<void()> &detach = {});
};
