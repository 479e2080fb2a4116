// The compiler names it in every block that holds nothing; nobody reads it here.
extern "C" void* const _NSConcreteGlobalBlock[32];  // NOLINT: the name is the compiler's
void* const _NSConcreteGlobalBlock[32] = {};
