#pragma once

#include <QTextCursor>

namespace window {

class ConsoleView;

/// Has assistive programs see a console as what it is: a text of many lines, with the links in it as objects
/// of their own below it (role "link"), which can be given the keyboard and be pressed. Offsets are the
/// document's characters; a very long line's pieces are lines to them.
void describeConsoles();

/// Tells assistive programs that the keyboard has gone to a link.
void announceLink(ConsoleView& console, const QTextCursor& link);

}  // namespace window
