#pragma once
// One CAN frame. A new message is an extended (29-bit identifier) data frame
// with no data; copies always carry all eight data bytes, whatever Dlc says.

#include <HdwLib/core/KvxList.h>
#include <HdwLib/core/KvxObject.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwCanMessage : public CKVX_Object {
public:
    CKVX_HdwCanMessage() = default;
    CKVX_HdwCanMessage(const CKVX_HdwCanMessage&) = default;
    CKVX_HdwCanMessage& operator=(const CKVX_HdwCanMessage&) = default;
    ~CKVX_HdwCanMessage() override;

    uint8_t Extended = 1; // 1: 29-bit identifier, 0: 11-bit
    uint32_t Identifier = 0; // right-aligned
    uint8_t Dlc = 0; // data length code as received, 0-15
    uint8_t Data[8] = {}; // first byte first
    uint8_t Rtr = 0; // 1: remote transmission request
    uint64_t TimeStamp = 0; // event time of the unit event that delivered it
};

class HDWLIB_EXPORT CKVX_HdwCanMessageList : public CKVX_List<CKVX_HdwCanMessage> {
public:
    CKVX_HdwCanMessageList() = default;
    CKVX_HdwCanMessageList(const CKVX_HdwCanMessageList&) = default;
    CKVX_HdwCanMessageList(CKVX_HdwCanMessageList&&) = default;
    CKVX_HdwCanMessageList& operator=(const CKVX_HdwCanMessageList&) = default;
    CKVX_HdwCanMessageList& operator=(CKVX_HdwCanMessageList&&) = default;
    ~CKVX_HdwCanMessageList() override;
};
