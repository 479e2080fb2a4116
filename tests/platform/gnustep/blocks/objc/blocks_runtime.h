// GNUstep's headers ask for the runtime's blocks where the compiler has blocks; this runtime has none. Blocks
// that hold nothing are static data, and need no runtime.
#pragma once
