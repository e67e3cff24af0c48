// How an installation went, told at the next opportunity.
#pragma once

namespace kestrelon {

// Settles the installation under way, if it is over: in the registry, the state and both logs.
// While the service runs it is over once the helper has left its result; at a start in any case.
// That the build which was to be installed runs is the proof of success.
void ReportInstallOutcome(bool at_start);

// At a start: the outcome, what is known of the last installation, and no left-over files.
void FinishPastInstall();

}  // namespace kestrelon
