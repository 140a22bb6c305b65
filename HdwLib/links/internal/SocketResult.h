#pragma once
// Result code of a platform socket status, shared by the socket classes.

#include <HdwLib/framework/HdwObject.h>
#include <HdwLib/links/internal/PlatformSocket.h>

namespace hdw::links {

inline unsigned ToResult(hdw::platform::SocketStatus status)
{
    using hdw::platform::SocketStatus;
    switch (status) {
    case SocketStatus::Ok: return HDW_OK;
    case SocketStatus::WouldBlock: return HDW_ERR_NOTHING_TO_READ;
    case SocketStatus::AddressInUse: return HDW_ERR_NO_LOCAL_PORT;
    default: return HDW_ERR_SYSTEM_CALL;
    }
}

} // namespace hdw::links
