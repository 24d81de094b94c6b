#pragma once

#include <QRect>
#include <QSize>

// The phone's main screen: a portrait screen of 375 x 667 points, where one point is one
// device-independent pixel. On a screen narrower than 500 points (a Linux phone), the
// screen's own available geometry. An explicit size (--size) overrides both.
namespace Screen {
QRect mainScreenBounds();
// A screen narrower than 500 points, where the shell gives each window the whole screen.
bool isPhone();
void setOverrideSize(const QSize &size);
inline constexpr QSize kPhoneSize { 375, 667 };
} // namespace Screen
