#pragma once

// What the program sets up once, before its first window, for every screen it builds: the
// roles a screen reader meets on the kit's views and the scrub bar, and the phone's own
// speaker switch for the audio session. Safe to call more than once.
namespace Services {
void install();
}
