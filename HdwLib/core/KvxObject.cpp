#include <HdwLib/core/KvxObject.h>

// Out of line so the vtable and type information live in the library.
CKVX_Object::~CKVX_Object() = default;
