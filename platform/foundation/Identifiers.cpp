#include "platform/foundation/Identifiers.h"

namespace identifiers {

const char* const kWebSite = QUILLMEND_WEB_SITE;

}  // namespace identifiers
