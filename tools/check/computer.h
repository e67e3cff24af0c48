// What a check leaves: nothing. The computer's state before is written down where an interrupted
// run's successor finds it, and everything that a check makes is taken away again.
#pragma once

#include <string>
#include <vector>

#include "platform/codes.h"
#include "tools/check/report.h"

namespace kestrelon::check {

// Why no check can be made here, in a sentence for people; empty when one can.
[[nodiscard]] std::wstring WhyNotHere();

// Whether a check began on this computer and did not come to its end.
[[nodiscard]] bool WasInterrupted();

// Writes down that a check begins, and what of the computer's it may change. Gives the error's
// code.
[[nodiscard]] platform::Code RememberComputer();

// Takes the product off the computer: processes, service, filters, files, registry values.
void RemoveProduct();

// Removes all that a check has made and looks whether it is gone.
[[nodiscard]] std::vector<Finding> RestoreComputer();

}  // namespace kestrelon::check
