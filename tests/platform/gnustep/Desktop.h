#pragma once

#include <functional>
#include <string>

/// AppKit's application in this process.
namespace gnustep {

/// Runs it, does the work in it and ends it. REQUIRES the main thread and a display.
void inApplication(const std::function<void()>& work);

/// From the next modal panel on: what it shows is put into `shown`, as "text, text [button]", and its default
/// button is pressed.
void pressDefaultButton(std::string& shown);

}  // namespace gnustep
