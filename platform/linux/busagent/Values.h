#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include "platform/foundation/PropertyList.h"

namespace busagent {

/// Appends a value in its own D-Bus type: string s, dictionary a{sv}, array av, data ay, boolean b, whole
/// number x, unsigned and reference t, real d, date s ("2011-01-01T10:00:00Z").
void append(sdbus::Message& message, const foundation::PropertyList& value);

/// The same inside a variant.
void appendVariant(sdbus::Message& message, const foundation::PropertyList& value);

}  // namespace busagent
