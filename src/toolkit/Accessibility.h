#pragma once

// Gives the project's own views the roles a screen reader expects: the table reads as a
// list, each cell as a list item named after its text (with its detail line as description),
// and an alert as a dialog. Safe to call more than once.
namespace Accessibility {
void install();
}
