#pragma once

// The application icon's badge, shown by docks that follow the Unity launcher protocol
// (com.canonical.Unity.LauncherEntry on the session bus). Without a session bus it does nothing.
namespace LauncherBadge {
void setApplicationIconBadgeNumber(int number);
inline constexpr const char *kDesktopEntry = "application://net.zorvath.vantrel.desktop";
} // namespace LauncherBadge
