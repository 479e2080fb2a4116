#pragma once

/// The names under which the maker's programs know each other.
namespace identifiers {

/// The maker's reverse-domain prefix; preferences files are named by it.
inline constexpr const char* kVendorPrefix = "com.vordenworks.";

/// The property list in the user's Preferences folder that all of the maker's applications share.
inline constexpr const char* kGlobalPreferencesFile = "com.vordenworks.global.plist";

/// The property list in the same folder that holds all of their keyboard shortcuts.
inline constexpr const char* kShortcutKeysFile = "com.vordenworks.shortcutkeys.plist";

inline constexpr const char* kApplication = "com.vordenworks.Quillmend";
inline constexpr const char* kCrashAnalysisApplication = "com.vordenworks.StellateToolbox";
inline constexpr const char* kBugReporterApplication = "com.vordenworks.BugReporter";

/// The maker's web site, without a slash at its end; the build says which (QUILLMEND_WEB_SITE).
extern const char* const kWebSite;

}  // namespace identifiers
