#pragma once

#include "core/Url.h"

#include <QObject>
#include <functional>

// Handing URLs to the desktop, which knows which application takes each scheme.
namespace UrlOpening {

// Whether some application is registered for the scheme (xdg-mime).
bool canOpenURL(const Url &url);
// The same question without waiting: answer runs later on context's thread, unless
// context is gone by then.
void canOpenURL(const Url &url, QObject *context, std::function<void(bool)> answer);
// Hands the URL to the desktop: through QDesktopServices when Qt can hold it (so that
// handlers, portals and xdg-open all apply), else straight to xdg-open. Answers whether
// it was handed on.
bool openURL(const Url &url);

} // namespace UrlOpening
