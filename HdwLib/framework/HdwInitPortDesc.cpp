#include <HdwLib/framework/HdwInitPortDesc.h>

CKVX_HdwInitPortDesc::~CKVX_HdwInitPortDesc() = default;
