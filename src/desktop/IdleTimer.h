#pragma once

// Keeps the screen from locking while a long task runs, through the desktop's screen saver
// service (org.freedesktop.ScreenSaver) on the session bus; without one it does nothing.
// Safe to call from any thread.
namespace IdleTimer {
void setIdleTimerDisabled(bool disabled);
bool isIdleTimerDisabled();
} // namespace IdleTimer
