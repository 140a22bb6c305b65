#pragma once
// Base of every notification a unit sends (a received word, a transmitted
// frame, a status change). Unit drivers derive one class per kind, add the
// decoded data and a 64-bit time stamp, and hand the objects to
// CKVX_HdwDevice::ProcessEventHandlers.

#include <HdwLib/core/KvxObject.h>
#include <HdwLib/core/KvxString.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwEvent : public CKVX_Object {
public:
    // Code of an event whose raw bytes are not decoded yet.
    static constexpr unsigned EventNotDecoded = 255;

    CKVX_HdwEvent() = default;
    CKVX_HdwEvent(const CKVX_HdwEvent&) = default;
    CKVX_HdwEvent& operator=(const CKVX_HdwEvent&) = default;
    ~CKVX_HdwEvent() override;

    unsigned GetEventCode() const { return m_EventCode; }
    void SetEventCode(unsigned code) { m_EventCode = code; }
    void* GetObjectPtr() const { return m_Object; }
    void SetObjectPtr(void* object) { m_Object = object; }
    unsigned GetWord() const { return m_Word; }
    void SetWord(unsigned word) { m_Word = word; }
    // Unit-side name of the channel the event concerns.
    const CKVX_String& GetChannelId() const { return m_ChannelId; }
    void SetChannelId(const CKVX_String& id) { m_ChannelId = id; }

protected:
    unsigned m_EventCode = 0;
    void* m_Object = nullptr;
    unsigned m_Word = 0;
    CKVX_String m_ChannelId;
};
