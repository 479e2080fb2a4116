#pragma once

/// The test's side of the AppleScript that AppleScriptModule.mm plays; found in it by name.
extern "C" {
const char* scriptTakeRun();
/// From now on scripts fail as where no application of the name runs.
void scriptFail();
}
