#pragma once

/// The test's side of the bridge to Growl that GrowlModule.mm plays; found in it by name.
extern "C" {
const char* growlTakeCalls();
void growlClick();
void growlTimeOut();
void growlRaise();  ///< the next notification raises an exception
}
