#pragma once

/// The test's side of the system's notifications that UserNotificationsModule.mm plays; found in it by name.
extern "C" {
/// Grants what it is asked for at once, refuses it, decides when centerAllow is called, or is for no process
/// that is not in a bundle.
enum class CenterBehaviour { grants, refuses, waits, raises };

void centerReset();
void centerSet(CenterBehaviour behaviour);
void centerAllow();
const char* centerTakeCalls();
/// The user does that with the notification that was added last.
void centerRespond(const char* action);
}
