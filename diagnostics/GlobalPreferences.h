#pragma once

#include <optional>
#include <string_view>

#include "platform/foundation/PropertyList.h"

/// The preferences file that all of the maker's applications share, in the user's Preferences folder (as
/// root: of the user at the console). Read afresh at each question. A missing, unreadable or malformed file
/// holds nothing. Nothing here throws.

/// The value of a key; nullopt when there is none. As root no more of it than a yes or no may reach what
/// others can read: the user may have put a link there to a file that only root may read.
[[nodiscard]] std::optional<foundation::PropertyList> globalPreference(std::string_view key);

/// Whether a switch stands at on: the string "1", true, or the number 1.
[[nodiscard]] bool isSwitchedOnInGlobalPreferences(std::string_view key);
