#pragma once
// Root of every class of the library: gives each object a virtual destructor
// so that it can be destroyed through a base pointer.

#include <HdwLib/HdwLibExport.h>

class HDWLIB_EXPORT CKVX_Object {
public:
    CKVX_Object() = default;
    CKVX_Object(const CKVX_Object&) = default;
    CKVX_Object(CKVX_Object&&) = default;
    CKVX_Object& operator=(const CKVX_Object&) = default;
    CKVX_Object& operator=(CKVX_Object&&) = default;
    virtual ~CKVX_Object();
};
