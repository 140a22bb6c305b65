#include "Channel.h"

#include "Cli.h"
#include "Mil1553Text.h"
#include "Session.h"

#include <type_traits>

namespace hdwtool {

namespace {

template <class S>
bool Enable(CKVX_HdwPort* port, unsigned type, CKVX_HdwService::CParameters* params, S*& out, const std::string& name,
    const char* what, std::string& error)
{
    CKVX_HdwService* s = nullptr;
    const unsigned rc = port->EnableService(type, &s, params);
    out = dynamic_cast<S*>(s);
    if (rc != 0 || !out) {
        error = std::string("cannot ") + what + " on " + name + ": " + ResultText(rc ? rc : HDW_ERR_WRONG_STATE);
        return false;
    }
    return true;
}

bool ParityCode(const std::string& text, bool uart, uint8_t& code)
{
    if (text == "odd")
        code = uart ? CKVX_HdwUartPort::CParameters::ParityOdd : 0;
    else if (text == "even")
        code = uart ? CKVX_HdwUartPort::CParameters::ParityEven : 1;
    else if (text == "none")
        code = uart ? CKVX_HdwUartPort::CParameters::ParityNone : 2;
    else if (uart && text == "mark")
        code = CKVX_HdwUartPort::CParameters::ParityMark;
    else if (uart && text == "space")
        code = CKVX_HdwUartPort::CParameters::ParitySpace;
    else
        return false;
    return true;
}

// Rate and parity of an ARINC 429 receiver or transmitter; a transmitter's
// word gap follows its rate. False (with a reason) for a parity it has no code for.
template <class P>
bool OpenArinc429(P* port, const PortOptions& options, unsigned& rc, std::string& error)
{
    typename P::CParameters p;
    port->GetParameters(&p);
    if (options.Rate) {
        p.BaudRate = *options.Rate;
        if constexpr (std::is_same_v<P, CKVX_HdwArinc429TxPort>) {
            p.WordIntergap = CKVX_HdwArinc429TxPort::CalcWordIntergap(p.BaudRate, 4);
            if (p.WordIntergap == 0)
                p.WordIntergap = 1;
        }
    }
    uint8_t parity = 0;
    if (options.Parity) {
        if (!ParityCode(*options.Parity, false, parity)) {
            error = "ARINC 429 parity is odd, even or none, not " + *options.Parity;
            return false;
        }
        p.Parity = parity;
    }
    if (options.OpenTimeoutMs)
        p.Timeout = *options.OpenTimeoutMs;
    rc = port->Open(&p);
    return true;
}

} // namespace

bool ParsePortOptions(const ParsedArgs& args, PortOptions& options, std::string& error)
{
    PortOptions o;
    if (args.Has("rate")) {
        uint32_t r = 0;
        if (!ParseBitRate(args.Get("rate"), r, error))
            return false;
        o.Rate = r;
    }
    if (args.Has("parity")) {
        const std::string p = args.Get("parity");
        if (p != "odd" && p != "even" && p != "none" && p != "mark" && p != "space") {
            error = "parity \"" + p + "\" is not odd, even, none, mark or space";
            return false;
        }
        o.Parity = p;
    }
    if (args.Has("bitrate")) {
        uint32_t r = 0;
        if (!ParseBitRate(args.Get("bitrate"), r, error))
            return false;
        o.BitRate = r;
    }
    if (args.Has("sample-point")) {
        double sp = 0;
        if (!ParseSamplePoint(args.Get("sample-point"), sp, error))
            return false;
        o.SamplePoint = sp;
    }
    for (const auto& a : args.All("accept")) {
        LabelAccept la;
        if (!ParseLabelAccept(a, la, error))
            return false;
        o.Accepts.push_back(la);
    }
    options = std::move(o);
    return true;
}

bool ParseValueFor(unsigned portType, const std::string& text, Item& item, std::string& error)
{
    Item it;
    it.PortType = portType;
    bool ok = false;
    switch (portType) {
    case HDW_PORT_ARINC429_TX: ok = ParseArinc429(text, it.Word, error); break;
    case HDW_PORT_CAN: ok = ParseCanFrame(text, it.Frame, error); break;
    case HDW_PORT_UART: ok = ParseUartBytes(text, it.Bytes, error); break;
    case HDW_PORT_DISCRETE_OUT:
        ok = ParseDiscrete(text, it.Discrete, error);
        it.Outgoing = true;
        break;
    case HDW_PORT_MILSTD1553: {
        std::vector<CKVX_HdwMilStd1553Message> transfers;
        ok = ParseMil1553Transfers(text, transfers, error);
        if (ok && transfers.size() != 1) {
            error = "\"" + text + "\" is " + std::to_string(transfers.size()) + " transfers, not one";
            ok = false;
        }
        if (ok)
            it.Transfer = transfers.front();
        break;
    }
    case HDW_PORT_DISCRETE_IN: error = "a discrete input cannot send: use its output bank (dout:N)"; break;
    case HDW_PORT_ARINC429_RX: error = "an ARINC 429 receiver cannot send: use its transmitter (a429tx:N)"; break;
    default: error = "the tool cannot send on a port of type " + std::to_string(portType); break;
    }
    if (ok)
        item = std::move(it);
    return ok;
}

const Columns& ColumnsFor(unsigned portType)
{
    switch (portType) {
    case HDW_PORT_CAN: return CanColumns();
    case HDW_PORT_UART: return UartColumns();
    case HDW_PORT_MILSTD1553: return Mil1553Columns();
    case HDW_PORT_DISCRETE_IN:
    case HDW_PORT_DISCRETE_OUT: return DiscreteColumns();
    default: return Arinc429Columns();
    }
}

Fields ItemFields(const Item& item, const std::string& portName, LabelOrder order)
{
    switch (item.PortType) {
    case HDW_PORT_CAN: return CanFields(item.TimeUs, portName, item.Frame);
    case HDW_PORT_UART: return UartFields(item.TimeUs, portName, item.Bytes);
    case HDW_PORT_MILSTD1553: return Mil1553Fields(item.TimeUs, portName, item.Transfer);
    case HDW_PORT_DISCRETE_IN:
    case HDW_PORT_DISCRETE_OUT:
        if (item.Outgoing)
            return {FormatTime(item.TimeUs), portName, "", "", DiscreteText(item.Discrete)};
        return DiscreteFields(item.TimeUs, portName, item.Value, item.Aux);
    default: return Arinc429Fields(item.TimeUs, portName, item.Word, item.ParityError, order);
    }
}

Channel::Channel(CKVX_HdwPort* port, std::string name) : m_Port(port), m_Name(std::move(name)) {}

Channel::~Channel()
{
    Close();
}

bool Channel::EnableReceive(const PortOptions& options, std::string& error)
{
    switch (PortType()) {
    case HDW_PORT_ARINC429_RX: {
        if (!Enable(m_Port, HDW_SERVICE_ARINC429_IN_BUFFER, nullptr, m_A429In, m_Name, "receive", error))
            return false;
        m_Accepts = options.Accepts;
        if (!m_Accepts.empty()) {
            // The unit filters per label on the union of the wanted SDI and
            // SSM values; the exact combinations are checked in Poll.
            m_A429In->DiscardAllMessages();
            uint8_t sdi[256] = {}, ssm[256] = {};
            for (const auto& a : m_Accepts) {
                sdi[a.Label] |= uint8_t(a.Sdi < 0 ? 0x0F : 1 << a.Sdi);
                ssm[a.Label] |= uint8_t(a.Ssm < 0 ? 0x0F : 1 << a.Ssm);
            }
            for (unsigned l = 0; l < 256; ++l)
                if (sdi[l])
                    m_A429In->AcceptMessage(uint8_t(l), sdi[l], ssm[l]);
        }
        return true;
    }
    case HDW_PORT_ARINC429_TX: {
        CKVX_HdwSignalService::CParameters p;
        p.BufferSize = 100000;
        p.SignalMask = 1u << (HDW_SIGNAL_ARINC429_SENT - 1);
        m_Accepts = options.Accepts;
        return Enable(m_Port, HDW_SERVICE_SIGNAL, &p, m_Signals, m_Name, "watch the words sent", error);
    }
    case HDW_PORT_CAN: return Enable(m_Port, HDW_SERVICE_CAN_IN_BUFFER, nullptr, m_CanIn, m_Name, "receive", error);
    case HDW_PORT_UART: return Enable(m_Port, HDW_SERVICE_BYTE_IN_BUFFER, nullptr, m_ByteIn, m_Name, "receive", error);
    case HDW_PORT_MILSTD1553: return EnableMil1553(false, error);
    case HDW_PORT_DISCRETE_IN:
    case HDW_PORT_DISCRETE_OUT: {
        CKVX_HdwSignalService::CParameters p;
        p.BufferSize = 100000;
        p.SignalMask =
            1u << ((PortType() == HDW_PORT_DISCRETE_IN ? HDW_SIGNAL_DISCRETE_INPUT : HDW_SIGNAL_DISCRETE_OUTPUT) - 1);
        return Enable(m_Port, HDW_SERVICE_SIGNAL, &p, m_Signals, m_Name, "watch the lines", error);
    }
    default: error = "the tool cannot monitor " + m_Name; return false;
    }
}

bool Channel::EnableTransmit(std::string& error)
{
    switch (PortType()) {
    case HDW_PORT_ARINC429_TX: {
        CKVX_HdwArinc429OutBufferService::CParameters p;
        p.BufferSize = 100000;
        return Enable(m_Port, HDW_SERVICE_ARINC429_OUT_BUFFER, &p, m_A429Out, m_Name, "send", error);
    }
    case HDW_PORT_CAN: {
        CKVX_HdwCanOutBufferService::CParameters p;
        p.BufferSize = 100000;
        return Enable(m_Port, HDW_SERVICE_CAN_OUT_BUFFER, &p, m_CanOut, m_Name, "send", error);
    }
    case HDW_PORT_UART: {
        CKVX_HdwByteOutBufferService::CParameters p;
        p.BufferSize = 65536;
        return Enable(m_Port, HDW_SERVICE_BYTE_OUT_BUFFER, &p, m_ByteOut, m_Name, "send", error);
    }
    case HDW_PORT_DISCRETE_OUT:
        return Enable(m_Port, HDW_SERVICE_DISCRETE_OUT, nullptr, m_DiscreteOut, m_Name, "drive", error);
    case HDW_PORT_MILSTD1553: return EnableMil1553(true, error);
    case HDW_PORT_ARINC429_RX:
        error = "cannot send on " + m_Name + ": an ARINC 429 receiver has no transmitter (use a429tx:N)";
        return false;
    default: error = "the tool cannot send on " + m_Name; return false;
    }
}

CKVX_HdwDataGeneratorService* Channel::EnableGenerator(std::string& error)
{
    if (PortType() != HDW_PORT_ARINC429_TX) {
        error = "cannot generate on " + m_Name + ": the data generator runs on ARINC 429 transmitters (a429tx:N)";
        return nullptr;
    }
    return Enable(m_Port, HDW_SERVICE_DATA_GENERATOR, nullptr, m_Generator, m_Name, "start a generator", error)
        ? m_Generator
        : nullptr;
}

bool Channel::Open(const PortOptions& options, std::string& error)
{
    unsigned rc = 0;
    std::string what;
    uint8_t parity = 0;
    switch (PortType()) {
    case HDW_PORT_ARINC429_RX:
        if (!OpenArinc429(dynamic_cast<CKVX_HdwArinc429RxPort*>(m_Port), options, rc, error))
            return false;
        // The parity the receiver checks its words against (code 2: none).
        if (options.Parity)
            ParityCode(*options.Parity, false, m_A429Parity);
        what = "rate " + std::to_string(options.Rate.value_or(12500)) + " bit/s (12500 or 100000)";
        break;
    case HDW_PORT_ARINC429_TX:
        if (!OpenArinc429(dynamic_cast<CKVX_HdwArinc429TxPort*>(m_Port), options, rc, error))
            return false;
        what = "rate " + std::to_string(options.Rate.value_or(12500)) + " bit/s";
        break;
    case HDW_PORT_CAN: {
        auto* port = dynamic_cast<CKVX_HdwCanPort*>(m_Port);
        CKVX_HdwCanPort::CParameters p;
        port->GetParameters(&p);
        if (options.BitRate)
            p.BitRate = *options.BitRate;
        if (options.SamplePoint)
            p.SamplePoint = *options.SamplePoint;
        if (options.OpenTimeoutMs)
            p.Timeout = *options.OpenTimeoutMs;
        char buf[96];
        std::snprintf(buf, sizeof buf, "bit rate %u bit/s with sample point %.3f", unsigned(p.BitRate), p.SamplePoint);
        what = buf;
        rc = port->Open(&p);
        break;
    }
    case HDW_PORT_UART: {
        auto* port = dynamic_cast<CKVX_HdwUartPort*>(m_Port);
        CKVX_HdwUartPort::CParameters p = port->GetUartParameters();
        if (options.Rate)
            p.BaudRate = *options.Rate;
        if (options.Parity && !ParityCode(*options.Parity, true, parity)) {
            error = "UART parity is odd, even, none, mark or space, not " + *options.Parity;
            return false;
        }
        if (options.Parity)
            p.Parity = parity;
        if (options.OpenTimeoutMs)
            p.Timeout = *options.OpenTimeoutMs;
        what = "line " + std::to_string(p.BaudRate) + " bit/s";
        rc = port->Open(&p);
        break;
    }
    case HDW_PORT_MILSTD1553: rc = OpenMil1553(); break;
    default: rc = m_Port->Open(nullptr); break;
    }
    if (rc != 0) {
        error = "cannot open " + m_Name + ": " + ResultText(rc);
        if (rc == HDW_ERR_ARGUMENT && !what.empty())
            error += ": " + what;
        return false;
    }
    return true;
}

bool Channel::WakeThrough(CKVX_HdwSignalGroup& group)
{
    if (m_Signals)
        return m_Signals->JoinGroup(&group) == 0;
    unsigned kind = 0;
    if (m_A429In)
        kind = HDW_SIGNAL_ARINC429_RECEIVED;
    else if (m_CanIn)
        kind = HDW_SIGNAL_CAN_RECEIVED;
    else if (m_MilRt || m_MilBc)
        kind = HDW_SIGNAL_MIL1553_MESSAGE;
    else if (m_ByteIn && PortType() == HDW_PORT_UART)
        kind = HDW_SIGNAL_UART_RECEIVED; // a unit's UART; other serial ports take no signal service
    if (kind == 0)
        return false;
    // A short queue is enough: it is emptied before each read of the buffer
    // and only has to tell that something came.
    CKVX_HdwSignalService::CParameters p;
    p.BufferSize = 16;
    p.SignalMask = 1u << (kind - 1);
    CKVX_HdwService* s = nullptr;
    if (m_Port->EnableService(HDW_SERVICE_SIGNAL, &s, &p) != 0)
        return false;
    m_Wake = dynamic_cast<CKVX_HdwSignalService*>(s);
    return m_Wake && m_Wake->JoinGroup(&group) == 0;
}

void Channel::Close()
{
    if (m_Port->IsOpen())
        m_Port->Close();
}

bool Channel::Accepted(const CKVX_HdwArinc429Message& word) const
{
    if (m_Accepts.empty())
        return true;
    for (const auto& a : m_Accepts)
        if (a.Label == word.Label && (a.Mask() >> ((word.Sdi & 3) + 4 * (word.Ssm & 3)) & 1))
            return true;
    return false;
}

uint64_t Channel::HostMicroseconds()
{
    return CKVX_HdwKvxUnitInstance::HostMonotonicMicroseconds();
}

CKVX_HdwKvxUnitInstance* Channel::Unit() const
{
    auto* unit = dynamic_cast<CKVX_HdwKvxCommandUnit*>(m_Port->GetHdwDevice());
    return unit ? unit->GetUnitInstance(m_Port->GetDeviceId()) : nullptr;
}

uint64_t Channel::StampToHost(uint64_t stamp, uint64_t readUs) const
{
    CKVX_HdwKvxUnitInstance* unit = Unit();
    uint64_t host = 0, wall = 0;
    if (unit && unit->MapUnitTime(unit->UnwrapUnitTime(stamp), host, wall))
        return host;
    return readUs;
}

uint64_t Channel::Dropped()
{
    uint64_t n = 0;
    if (m_A429In)
        n += m_A429In->GetDroppedCount();
    if (m_CanIn)
        n += m_CanIn->GetDroppedCount();
    if (m_ByteIn)
        n += m_ByteIn->GetDroppedCount();
    if (m_MilRt)
        n += m_MilRt->GetLostCount();
    if (m_MilBc)
        n += m_MilBc->GetLostCount();
    uint64_t signals = 0;
    if (m_Signals && m_Signals->GetDroppedCount(signals, false) == 0)
        n += signals;
    return n;
}

bool Channel::Poll(std::vector<Item>& items, std::string& error)
{
    unsigned rc = 0;
    unsigned n = 0;
    const uint64_t hostUs = HostMicroseconds();
    if (m_Wake) {
        // Before the buffer: what comes after this still leaves a signal.
        CKVX_HdwSignalService::CSignal discard[16];
        while (m_Wake->ReadSignals(discard, 16, n) == 0 && n == 16) {}
        n = 0;
    }
    if (m_A429In) {
        CKVX_HdwArinc429Message buf[256];
        rc = m_A429In->Read(buf, 256, n);
        for (unsigned i = 0; rc == 0 && i < n; ++i)
            if (Accepted(buf[i])) {
                Item it;
                it.PortType = HDW_PORT_ARINC429_RX;
                it.TimeUs = StampToHost(buf[i].TimeStamp, hostUs);
                it.Word = buf[i];
                it.ParityError = m_A429Parity < 2 && !Arinc429ParityOk(buf[i], m_A429Parity == 1);
                items.push_back(std::move(it));
            }
    } else if (m_Signals) {
        CKVX_HdwSignalService::CSignal buf[256];
        rc = m_Signals->ReadSignals(buf, 256, n);
        for (unsigned i = 0; rc == 0 && i < n; ++i)
            if (buf[i].Kind == HDW_SIGNAL_ARINC429_SENT && Accepted(buf[i].Arinc429)) {
                Item it;
                it.PortType = HDW_PORT_ARINC429_TX;
                it.TimeUs = StampToHost(buf[i].TimeStamp, hostUs);
                it.Word = buf[i].Arinc429;
                items.push_back(std::move(it));
            } else if (buf[i].Kind == HDW_SIGNAL_DISCRETE_INPUT || buf[i].Kind == HDW_SIGNAL_DISCRETE_OUTPUT) {
                Item it;
                it.PortType = PortType();
                it.TimeUs = StampToHost(buf[i].TimeStamp, hostUs);
                it.Value = buf[i].Value;
                it.Aux = buf[i].Aux;
                items.push_back(std::move(it));
            }
    } else if (m_CanIn) {
        CKVX_HdwCanMessage buf[128];
        rc = m_CanIn->Read(buf, 128, n);
        for (unsigned i = 0; rc == 0 && i < n; ++i) {
            Item it;
            it.PortType = HDW_PORT_CAN;
            it.TimeUs = StampToHost(buf[i].TimeStamp, hostUs);
            it.Frame = buf[i];
            items.push_back(std::move(it));
        }
    } else if (m_ByteIn) {
        unsigned char buf[1024];
        rc = m_ByteIn->Read(buf, sizeof buf, n);
        if (rc == 0 && n > 0) {
            Item it;
            it.PortType = HDW_PORT_UART;
            it.TimeUs = hostUs;
            it.Bytes.assign(buf, buf + n);
            items.push_back(std::move(it));
        }
    } else if (m_MilRt || m_MilBc) {
        rc = PollMil1553(items, hostUs);
    }
    if (rc != 0 && rc != HDW_ERR_NOTHING_TO_READ) {
        error = "reading " + m_Name + " failed: " + ResultText(rc);
        return false;
    }
    return true;
}

bool Channel::Send(const Item& item, std::string& error)
{
    unsigned rc = HDW_ERR_SERVICE;
    if (m_A429Out && item.PortType == HDW_PORT_ARINC429_TX) {
        CKVX_HdwArinc429Message w = item.Word;
        rc = m_A429Out->Write(&w, 1, 0);
    } else if (m_CanOut && item.PortType == HDW_PORT_CAN) {
        CKVX_HdwCanMessage f = item.Frame;
        rc = m_CanOut->Write(&f, 1, 0);
    } else if (m_ByteOut && item.PortType == HDW_PORT_UART) {
        std::vector<uint8_t> b = item.Bytes;
        rc = m_ByteOut->Write(b.data(), unsigned(b.size()), 0);
    } else if (m_MilBc && item.PortType == HDW_PORT_MILSTD1553) {
        rc = m_MilBc->SendOneShot(item.Transfer);
        m_MilSent += rc == 0 ? 1 : 0;
    } else if (m_DiscreteOut && item.PortType == HDW_PORT_DISCRETE_OUT) {
        const DiscreteValue& d = item.Discrete;
        switch (d.Op) {
        case DiscreteOp::Set: rc = m_DiscreteOut->Set(d.Bits); break;
        case DiscreteOp::Clear: rc = m_DiscreteOut->Clear(d.Bits); break;
        case DiscreteOp::Toggle: rc = m_DiscreteOut->Toggle(d.Bits); break;
        case DiscreteOp::Write: rc = m_DiscreteOut->WriteAll(d.Bits); break;
        case DiscreteOp::Pulse: rc = m_DiscreteOut->Pulse(d.Bits, d.LengthUs); break;
        }
    }
    if (rc != 0) {
        error = "sending on " + m_Name + " failed: " + ResultText(rc);
        return false;
    }
    return true;
}

unsigned Channel::Pending()
{
    unsigned n = 0;
    if (m_A429Out)
        m_A429Out->GetMessagesToBeWritten(n);
    else if (m_CanOut)
        m_CanOut->GetMessagesToBeWritten(n);
    else if (m_ByteOut)
        m_ByteOut->GetBytesToBeWritten(n);
    else if (m_MilBc)
        n = unsigned(m_MilSent - m_MilDone);
    else if (m_DiscreteOut) {
        // Until the unit reports driving what was asked for.
        uint32_t driven = 0, commanded = 0;
        uint64_t time = 0;
        m_DiscreteOut->GetCommanded(commanded);
        n = m_DiscreteOut->GetDriven(driven, time) == 0 && driven == commanded ? 0u : 1u;
    }
    return n;
}

} // namespace hdwtool
