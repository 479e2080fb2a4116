#pragma once

#include <cstdio>
#include <string>
#include <vector>

/// The program, given its arguments, the program's own path first: a Qmaster sharing command, a repair
/// without a window, or the desktop application. Answers the exit status: 0 for everything but the desktop
/// application, which answers its own.
///
/// Arguments are compared without regard to case and taken in their order. "-help" prints the help to
/// `output` and the sharing commands ("-stopsharing", "-startsharing", "-restartsharing") do their work, each
/// at once, and nothing behind them is looked at; "-repair" (or "-auto"), "-silent", "-trash", "-trashprefs"
/// and
/// "-trashlayout" are flags of a repair that begins behind the last argument. Without "-repair" the flags
/// mean nothing. No argument is ever refused.
///
/// A repair ends at its next step when the process gets SIGTERM, SIGINT or SIGHUP; the process then ends by
/// that signal instead of coming back from here, so that a scheduler sees it.
///
/// Help needs nothing of the platform: no service is made and no log begun.
int runCommandLine(const std::vector<std::string>& arguments, std::FILE* output);
