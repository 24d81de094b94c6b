#include "TimeText.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {
// From this many whole seconds on, times carry hours.
constexpr int kHourFormFrom = 3600;

bool hourForm(int total)
{
    return total >= kHourFormFrom;
}

// The elapsed form; also the duration's form, which is the elapsed form of the total.
QString clockText(int seconds, int total)
{
    if (!hourForm(total))
        return QString::asprintf("%01d:%02d", (seconds / 60) % 60, seconds % 60);
    return QString::asprintf("%d:%02d:%02d", seconds / 3600, (seconds / 60) % 60, seconds % 60);
}
} // namespace

int TimeText::wholeSeconds(double seconds)
{
    if (std::isnan(seconds))
        return 0;
    // Bounded so that the remaining time (total less elapsed) cannot overflow either.
    constexpr double kLimit = std::numeric_limits<int>::max() / 2;
    return int(std::trunc(std::clamp(seconds, -kLimit, kLimit)));
}

QString TimeText::startElapsed(double totalDuration)
{
    return hourForm(wholeSeconds(totalDuration)) ? QStringLiteral("0:00:00")
                                                 : QStringLiteral("0:00");
}

QString TimeText::startRemaining(double totalDuration)
{
    const int total = wholeSeconds(totalDuration);
    return QStringLiteral("-%1").arg(clockText(total, total));
}

QString TimeText::elapsed(double currentTime, double totalDuration)
{
    return clockText(wholeSeconds(currentTime), wholeSeconds(totalDuration));
}

QString TimeText::remaining(double currentTime, double totalDuration)
{
    const int current = wholeSeconds(currentTime);
    const int total = wholeSeconds(totalDuration);
    const int left = total - current;
    const int secondsField = total - current % 60;
    const QString text =
        hourForm(total)
            ? QString::asprintf("%d:%02d:%02d", left / 3600, (left / 60) % 60, secondsField)
            : QString::asprintf("%01d:%02d", (left / 60) % 60, secondsField);
    return left > 0 ? QStringLiteral("-%1").arg(text) : text;
}
