#pragma once

#include <QString>
#include <QUrl>
#include <optional>

namespace Url {

// A URL for text made only of characters that URLs allow, with every "%" starting a
// two-digit escape; nothing for anything else (a space, a quote, a non-ASCII letter ...).
// Tolerant otherwise: "tel://+15551234567" is a URL.
std::optional<QUrl> urlWithString(const QString &text);

// Whether some application is registered for the URL's scheme (xdg-mime).
bool canOpenURL(const QUrl &url);

// Hands the URL to the desktop; answers whether that succeeded.
bool openURL(const QUrl &url);

} // namespace Url
