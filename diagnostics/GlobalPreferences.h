#pragma once

#include <string_view>

/// Whether a switch stands at on in the preferences file that all of the maker's applications share, in the
/// user's Preferences folder (as root: of the user at the console): the string "1", true, or the number 1.
/// Read afresh. A missing, unreadable or malformed file has no switch set. Never throws.
[[nodiscard]] bool isSwitchedOnInGlobalPreferences(std::string_view key);
