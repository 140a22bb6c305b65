#pragma once
// Ports and services of the command-protocol units (nested in
// CKVX_HdwKvxCommandDevice): thin subclasses of the generic bus classes that
// turn their operations into unit commands and take the unit's events.
// Included by KvxCommandDevice.h.
//
// Ports configure their channel on the unit when they open (OnOpening, under
// the device lock) and wait, without the lock, for the unit to confirm it;
// they switch the channel off when they close. Input services append what the
// unit's events carry under the device lock (the tick holds it while it
// dispatches) with the event's time stamp. Output services queue the
// application's data in their own buffer; every tick SendImmediate turns as
// much of it into push commands as the unit's transmit FIFO and the frame's
// payload limit take. Transmit events (ARINC 429 type 3, CAN type 7) confirm
// that a word or frame left the FIFO; periodic status requests correct the
// count should a confirmation be lost with a damaged frame.
//
// A critical-failure event sets every service of the unit to failed.

// The template these classes are nested in (which includes this file at its end).
#include <HdwLib/units/KvxCommandDevice.h>

#include <HdwLib/bus/HdwArinc429InBufferService.h>
#include <HdwLib/bus/HdwArinc429OutBufferService.h>
#include <HdwLib/bus/HdwArinc429RxPort.h>
#include <HdwLib/bus/HdwArinc429TxPort.h>
#include <HdwLib/bus/HdwByteInBufferService.h>
#include <HdwLib/bus/HdwByteOutBufferService.h>
#include <HdwLib/bus/HdwCanInBufferService.h>
#include <HdwLib/bus/HdwCanOutBufferService.h>
#include <HdwLib/bus/HdwCanPort.h>
#include <HdwLib/bus/HdwSignalService.h>
#include <HdwLib/bus/HdwUartPort.h>

#include <cstdint>
#include <deque>

// Limits of the unit's transmit FIFOs.
inline constexpr unsigned KvxArinc429TxFifoWords = 512;
inline constexpr unsigned KvxCanTxFifoFrames = 64;
// Ticks between two status requests that re-synchronise the count of words
// or frames waiting in a transmit FIFO, while some are outstanding.
inline constexpr unsigned KvxFifoStatusPollTicks = 250;

// ---- ports --------------------------------------------------------------------

template <class B>
class HDWLIB_EXPORT CKVX_HdwKvxCommandDevice<B>::CUartPort : public CKVX_HdwUartPort {
public:
    CUartPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    ~CUartPort() override;

    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned OnOpening(CKVX_HdwPort::CParameters* params) override;
    unsigned Close() override;
    unsigned EnableService(unsigned serviceType, CKVX_HdwService** service,
                           CKVX_HdwService::CParameters* params) override;

    unsigned GetChannel() const { return m_Channel; }
    // Attaches the channel's configuration (caller holds the device lock).
    unsigned AttachConfiguration(bool enable);

protected:
    unsigned m_Channel;
};

template <class B>
class HDWLIB_EXPORT CKVX_HdwKvxCommandDevice<B>::CArinc429TxPort : public CKVX_HdwArinc429TxPort {
public:
    CArinc429TxPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    ~CArinc429TxPort() override;

    // 2 for a rate the unit cannot run or a word gap of 0.
    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned OnOpening(CKVX_HdwPort::CParameters* params) override;
    unsigned Close() override;
    unsigned EnableService(unsigned serviceType, CKVX_HdwService** service,
                           CKVX_HdwService::CParameters* params) override;

    unsigned GetChannel() const { return m_Channel; }
    unsigned AttachConfiguration(bool enable);

protected:
    unsigned m_Channel;
};

template <class B>
class HDWLIB_EXPORT CKVX_HdwKvxCommandDevice<B>::CArinc429RxPort : public CKVX_HdwArinc429RxPort {
public:
    CArinc429RxPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    ~CArinc429RxPort() override;

    // 2 for a rate other than 12500 and 100000 bit/s.
    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned OnOpening(CKVX_HdwPort::CParameters* params) override;
    unsigned Close() override;
    unsigned EnableService(unsigned serviceType, CKVX_HdwService** service,
                           CKVX_HdwService::CParameters* params) override;

    unsigned GetChannel() const { return m_Channel; }
    // Receive configuration with the label table of the port's input
    // service (all labels when it has none). Caller holds the device lock.
    unsigned AttachConfiguration(bool enable);

protected:
    unsigned m_Channel;
};

template <class B>
class HDWLIB_EXPORT CKVX_HdwKvxCommandDevice<B>::CCanPort : public CKVX_HdwCanPort {
public:
    CCanPort(CKVX_HdwObject* device, unsigned deviceInstance, const CKVX_String& channelId);
    ~CCanPort() override;

    // 2 when BitRate and SamplePoint give no bit timing.
    unsigned Open(CKVX_HdwPort::CParameters* params) override;
    unsigned OnOpening(CKVX_HdwPort::CParameters* params) override;
    unsigned Close() override;
    unsigned EnableService(unsigned serviceType, CKVX_HdwService** service,
                           CKVX_HdwService::CParameters* params) override;
    // Polls the controller's status now and then, then ticks the services.
    unsigned HdwTimerHandler(uint64_t ticks) override;
    // Status events update the fault status (and signal its changes).
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;

    unsigned GetChannel() const { return m_Channel; }
    // Caller holds the device lock.
    unsigned AttachConfiguration(bool enable);
    // Status request of `kind` (2 status, 3 transmit state), both answered
    // with a kind-2 status event; the output service's transmit count is
    // marked so that the answer can correct it. Caller holds the lock.
    unsigned AttachStatusRequest(unsigned kind);
    // Mark of the status request the last status event answered (valid
    // while a status event is being dispatched).
    bool TakeStatusMark(uint64_t& mark);

protected:
    unsigned m_Channel;
    uint64_t m_LastPollTick = 0;
    // One entry per outstanding status request: the output service's push
    // count when it was attached.
    std::deque<uint64_t> m_StatusMarks;
    bool m_HaveCurrentMark = false;
    uint64_t m_CurrentMark = 0;
};

// ---- UART services ------------------------------------------------------------

template <class B>
class HDWLIB_EXPORT CKVX_HdwKvxCommandDevice<B>::CUartByteInBufferService : public CKVX_HdwByteInBufferService {
public:
    explicit CUartByteInBufferService(CKVX_HdwObject* port);
    ~CUartByteInBufferService() override;

    unsigned Start() override;
    unsigned Stop() override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
    unsigned Read(unsigned char* bytes, unsigned int maxCount, unsigned int& readCount) override;
    unsigned GetReadBufferBytes(unsigned int& count) override;
    unsigned ResetReadBuffer() override;

    // Bytes lost because the buffer was full, since Start.
    uint64_t GetDroppedCount();

protected:
    std::deque<uint8_t> m_Bytes;
    uint64_t m_Dropped = 0;
};

template <class B>
class HDWLIB_EXPORT CKVX_HdwKvxCommandDevice<B>::CUartByteOutBufferService : public CKVX_HdwByteOutBufferService {
public:
    explicit CUartByteOutBufferService(CKVX_HdwObject* port);
    ~CUartByteOutBufferService() override;

    unsigned Start() override;
    unsigned Stop() override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
    unsigned HdwTimerHandler(uint64_t ticks) override;
    // Queues the bytes (option 0; other options answer 2). 2 when they do
    // not fit the buffer (BufferSize, 0 = no bound).
    unsigned Write(unsigned char* bytes, unsigned int count, unsigned int option) override;
    // Bytes queued here plus bytes sent and not yet confirmed by the unit.
    unsigned GetBytesToBeWritten(unsigned int& count) override;
    unsigned ResetWriteBuffer() override;

    // Turns queued bytes into transmit records, as many as the frame takes.
    unsigned SendImmediate();

protected:
    std::deque<uint8_t> m_Bytes;
    uint64_t m_InFlight = 0;
};

// ---- ARINC 429 services -------------------------------------------------------

template <class B>
class HDWLIB_EXPORT CKVX_HdwKvxCommandDevice<B>::CArinc429InBufferService
    : public CKVX_HdwArinc429InBufferService {
public:
    explicit CArinc429InBufferService(CKVX_HdwObject* port);
    ~CArinc429InBufferService() override;

    unsigned Start() override;
    unsigned Stop() override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;

protected:
    unsigned char ApplyFilter(CKVX_HdwArinc429Message& message, unsigned short* filter) override;

public:
    unsigned GetReadMessagesNumber(unsigned int& count) override;
    unsigned Read(CKVX_HdwArinc429Message* messages, unsigned int maxCount, unsigned int& readCount) override;
    // The filter changes reach the unit's label table while the service runs.
    unsigned AcceptAllMessages() override;
    unsigned DiscardAllMessages() override;
    unsigned AcceptMessage(unsigned char label, unsigned char sdiMask, unsigned char ssmMask) override;
    unsigned EnableRx() override;
    unsigned DisableRx() override;
    unsigned ResetRx() override;

    // The unit's label table for this filter: label flagged when any SDI/SSM
    // combination of it is accepted. Caller holds the device lock.
    void GetLabelTable(uint8_t* flags) const;

protected:
    unsigned ReconfigureChannel(bool enable);
};

template <class B>
class HDWLIB_EXPORT CKVX_HdwKvxCommandDevice<B>::CArinc429OutBufferService
    : public CKVX_HdwArinc429OutBufferService {
public:
    explicit CArinc429OutBufferService(CKVX_HdwObject* port);
    ~CArinc429OutBufferService() override;

    unsigned Start() override;
    unsigned Stop() override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
    unsigned HdwTimerHandler(uint64_t ticks) override;
    // Queues the words (option 0; other options answer 2). 2 when they do
    // not fit the buffer (BufferSize, 0 = no bound).
    unsigned Write(CKVX_HdwArinc429Message* messages, unsigned int count, unsigned char option) override;
    unsigned ResetWriteBuffer() override;
    // Words queued here plus words in the unit's FIFO not yet on the bus.
    unsigned GetMessagesToBeWritten(unsigned int& count) override;

    // Pushes queued words, keeping at most 512 in the unit's FIFO.
    unsigned SendImmediate();

protected:
    uint64_t m_InFlight = 0;      // pushed, not yet confirmed by a transmit event
    uint64_t m_Pushed = 0;        // words pushed since Start
    bool m_StatusPending = false; // a FIFO status request is outstanding
    uint64_t m_StatusMark = 0;    // m_Pushed when it was attached
    uint64_t m_StatusTick = 0;
    uint64_t m_LastTick = 0;
};

// ---- CAN services -------------------------------------------------------------

template <class B>
class HDWLIB_EXPORT CKVX_HdwKvxCommandDevice<B>::CCanInBufferService : public CKVX_HdwCanInBufferService {
public:
    explicit CCanInBufferService(CKVX_HdwObject* port);
    ~CCanInBufferService() override;

    unsigned Start() override;
    unsigned Stop() override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
    unsigned Read(CKVX_HdwCanMessage* messages, unsigned int maxCount, unsigned int& readCount) override;
    // RxFlag 1: received frames are kept; 0: dropped.
    unsigned EnableRx() override;
    unsigned DisableRx() override;
    unsigned ResetRx() override;
};

template <class B>
class HDWLIB_EXPORT CKVX_HdwKvxCommandDevice<B>::CCanOutBufferService : public CKVX_HdwCanOutBufferService {
public:
    explicit CCanOutBufferService(CKVX_HdwObject* port);
    ~CCanOutBufferService() override;

    unsigned Start() override;
    unsigned Stop() override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
    unsigned HdwTimerHandler(uint64_t ticks) override;
    unsigned Write(CKVX_HdwCanMessage* messages, unsigned int count, unsigned char option) override;
    unsigned ResetWriteBuffer() override;
    // Frames queued here plus frames in the unit's FIFO not yet on the bus.
    unsigned GetMessagesToBeWritten(unsigned int& count) override;

    // Pushes queued frames, keeping at most 64 in the unit's FIFO.
    unsigned SendImmediate();
    // Frames pushed since Start (the mark of a status request). Caller holds the lock.
    uint64_t GetPushedCount() const { return m_Pushed; }
    // Frames pushed and not yet confirmed. Caller holds the lock.
    uint64_t GetInFlightCount() const { return m_InFlight; }

protected:
    uint64_t m_InFlight = 0;
    uint64_t m_Pushed = 0;
    uint64_t m_LastTick = 0;
};

// ---- signals ------------------------------------------------------------------

template <class B>
class HDWLIB_EXPORT CKVX_HdwKvxCommandDevice<B>::CSignalService : public CKVX_HdwSignalService {
public:
    explicit CSignalService(CKVX_HdwObject* port);
    ~CSignalService() override;

    // On a transmitter or CAN port, Start also makes sure the channel is
    // configured so that the unit reports what it sends.
    unsigned Start() override;
    unsigned Stop() override;
    // ARINC 429 words received and sent, CAN frames received and sent (CAN
    // status changes come through the port's fault status).
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
};
