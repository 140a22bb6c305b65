#include "Mil1553Text.h"

#include "Values.h"

#include <cmath>
#include <cstdio>

namespace hdwtool {

namespace {

using Msg = Mil1553Message;

std::string Hex4(unsigned v)
{
    char b[8];
    std::snprintf(b, sizeof b, "%04X", v & 0xFFFF);
    return b;
}

std::vector<std::string> Split(const std::string& text, const char* separators)
{
    std::vector<std::string> parts;
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find_first_of(separators, start);
        if (end == std::string::npos)
            end = text.size();
        if (end > start)
            parts.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

// Data words: hex with or without 0x, comma separated.
bool ParseWords(const std::string& text, std::vector<uint16_t>& words, std::string& error)
{
    words.clear();
    for (const auto& w : Split(text, ",")) {
        uint64_t v = 0;
        const bool prefixed = w.size() > 2 && w[0] == '0' && (w[1] == 'x' || w[1] == 'X');
        if (!ParseNumber(prefixed ? w : "0x" + w, v) || v > 0xFFFF) {
            error = "\"" + w + "\" is not a 16-bit hex data word";
            return false;
        }
        words.push_back(uint16_t(v));
    }
    if (words.empty() || words.size() > Msg::MaxDataWords) {
        error = "\"" + text + "\" is not 1 to 32 data words";
        return false;
    }
    return true;
}

bool Field(const std::string& key, const std::string& text, uint64_t max, uint8_t& value, std::string& error)
{
    uint64_t v = 0;
    if (!ParseNumber(text, v) || v > max) {
        error = key + "=" + text + " is not a number from 0 to " + std::to_string(max);
        return false;
    }
    value = uint8_t(v);
    return true;
}

// Mode codes the terminal receives data with; every other one it transmits.
bool ReceiveModeCode(unsigned code)
{
    return code == 17 || code == 20 || code == 21;
}

} // namespace

std::string Mil1553Errors(uint16_t flags)
{
    static const struct {
        uint16_t Flag;
        const char* Name;
    } names[] = {{Msg::FlagNoResponse, "noresp"}, {Msg::FlagBadWordCount, "wc"}, {Msg::FlagParityError, "parity"},
        {Msg::FlagWrongAddress, "addr"}, {Msg::FlagMessageError, "msgerr"}, {Msg::FlagBusy, "busy"},
        {Msg::FlagServiceRequest, "srq"}};
    std::string s;
    for (const auto& n : names)
        if (flags & n.Flag)
            s += (s.empty() ? "" : ",") + std::string(n.Name);
    return s.empty() ? "-" : s;
}

bool Mil1553Failed(const Msg& m)
{
    return (m.Flags & (Msg::FlagNoResponse | Msg::FlagBadWordCount | Msg::FlagParityError | Msg::FlagWrongAddress)) !=
        0;
}

Fields Mil1553Fields(uint64_t timeUs, const std::string& port, const Msg& m)
{
    const bool mode = m.IsModeCode();
    const char* dir = m.RtToRt ? "RT->RT" : mode ? "MODE" : m.Transmit ? "RT->BC" : "BC->RT";
    std::string rt = std::to_string(m.TerminalAddress), sa = std::to_string(mode ? m.WordCount : m.Subaddress);
    if (m.RtToRt) {
        rt = std::to_string(m.TxTerminalAddress) + ">" + rt;
        sa = std::to_string(m.TxSubaddress) + ">" + sa;
    }
    std::string status = "-";
    if (m.RtToRt)
        status = Hex4(m.StatusWord1) + "." + Hex4(m.StatusWord2);
    else if (!(m.Flags & Msg::FlagNoResponse) && !m.IsBroadcast())
        status = Hex4(m.StatusWord1);
    std::string data;
    for (uint16_t w : m.Data)
        data += (data.empty() ? "" : ".") + Hex4(w);
    return {FormatTime(timeUs), port, (m.Flags & Msg::FlagBusB) ? "B" : "A", dir, rt, sa, std::to_string(m.Data.size()),
        status, Mil1553Errors(m.Flags), data.empty() ? "-" : data};
}

bool ParseMil1553Transfers(const std::vector<std::string>& words, std::vector<Msg>& transfers, std::string& error)
{
    std::vector<Msg> out;
    std::vector<bool> haveWc;
    std::vector<std::string> tokens;
    for (const auto& w : words)
        for (const auto& t : Split(w, " :"))
            tokens.push_back(t);
    for (const auto& t : tokens) {
        if (t == "rx" || t == "tx" || t == "rtrt" || t == "mode") {
            Msg m;
            m.Transmit = t == "tx" ? 1 : 0;
            m.RtToRt = t == "rtrt" ? 1 : 0;
            m.Subaddress = t == "mode" ? 0 : 1;
            out.push_back(m);
            haveWc.push_back(false);
            continue;
        }
        if (out.empty()) {
            error = "\"" + t + "\" before a direction (rx, tx, rtrt or mode)";
            return false;
        }
        Msg& m = out.back();
        const size_t eq = t.find('=');
        const std::string key = eq == std::string::npos ? "" : t.substr(0, eq), value = t.substr(eq + 1);
        bool ok = true;
        if (key.empty() || key == "data") {
            ok = ParseWords(key.empty() ? t : value, m.Data, error);
        } else if (key == "rt") {
            ok = Field(key, value, 31, m.TerminalAddress, error);
        } else if (key == "sa" && !m.IsModeCode()) {
            ok = Field(key, value, 31, m.Subaddress, error);
        } else if (key == "mc" && m.IsModeCode()) {
            ok = Field(key, value, 31, m.WordCount, error);
            m.Transmit = ReceiveModeCode(m.WordCount) ? 0 : 1;
        } else if (key == "wc" && !m.IsModeCode()) {
            ok = Field(key, value, 32, m.WordCount, error) && m.WordCount > 0;
            if (ok)
                m.WordCount &= 0x1F;
            else if (error.empty())
                error = "wc=0: a transfer carries 1 to 32 words";
            haveWc.back() = true;
        } else if (key == "txrt" && m.RtToRt) {
            ok = Field(key, value, 31, m.TxTerminalAddress, error);
        } else if (key == "txsa" && m.RtToRt) {
            ok = Field(key, value, 31, m.TxSubaddress, error);
        } else if (key == "bus" && (value == "a" || value == "b" || value == "A" || value == "B")) {
            m.Bus = (value == "b" || value == "B") ? 1 : 0;
        } else if (key == "retry" && (value == "same" || value == "other")) {
            m.Retry = value == "same" ? Msg::RetrySameBus : Msg::RetryOtherBus;
        } else if (key == "gap") {
            ok = Field(key, value, 255, m.GapUs, error);
        } else {
            error = "\"" + t + "\" is not a field of this transfer (see hdwtool send --help)";
            ok = false;
        }
        if (!ok)
            return false;
    }
    if (out.empty()) {
        error = "no transfer given (rx, tx, rtrt or mode)";
        return false;
    }
    for (size_t i = 0; i < out.size(); ++i) {
        Msg& m = out[i];
        if (!m.IsModeCode() && !m.Transmit && !m.RtToRt) {
            if (m.Data.empty()) {
                error = "transfer " + std::to_string(i) + ": rx needs its data words";
                return false;
            }
            m.WordCount = uint8_t(m.Data.size() & 0x1F);
        } else if (!m.IsModeCode() && !haveWc[i]) {
            error = "transfer " + std::to_string(i) + ": give its word count (wc=N)";
            return false;
        }
        if (m.Check() != 0) {
            error = "transfer " + std::to_string(i) +
                " is not a valid MIL-STD-1553 transfer (terminal 31 only for receive and mode codes, subaddress "
                "1..30, data only where the transfer sends it)";
            return false;
        }
    }
    transfers = std::move(out);
    return true;
}

bool ParseMil1553Transfers(const std::string& text, std::vector<Msg>& transfers, std::string& error)
{
    return ParseMil1553Transfers(std::vector<std::string>{text}, transfers, error);
}

bool ParseMil1553Terminal(
    const std::vector<std::string>& words, CKVX_HdwMilStd1553RemoteTerminal& terminal, std::string& error)
{
    CKVX_HdwMilStd1553RemoteTerminal t;
    if (words.empty() || !Field("terminal address", words[0], 30, t.TerminalAddress, error)) {
        error = "give the terminal address (0..30) first" + (error.empty() ? "" : ": " + error);
        return false;
    }
    for (size_t i = 1; i < words.size(); ++i) {
        const std::string& w = words[i];
        const size_t eq = w.find('=');
        uint8_t sa = 0;
        if (w == "busy")
            t.StatusBits |= CKVX_HdwMilStd1553RemoteTerminal::StatusBusy;
        else if (w == "srq")
            t.StatusBits |= CKVX_HdwMilStd1553RemoteTerminal::StatusServiceRequest;
        else if (eq == std::string::npos || !Field("subaddress", w.substr(0, eq), 30, sa, error) || sa == 0 ||
            !ParseWords(w.substr(eq + 1), t.Transmit[sa].Data, error)) {
            error = "\"" + w + "\" is not SA=WORDS (subaddress 1..30, hex words), busy or srq" +
                (error.empty() ? "" : ": " + error);
            return false;
        }
    }
    terminal = std::move(t);
    return true;
}

bool ParseMinorFrame(
    const std::string& text, unsigned transfers, CKVX_HdwMilStd1553MinorFrame& minor, std::string& error)
{
    const size_t eq = text.find('=');
    double seconds = 0;
    CKVX_HdwMilStd1553MinorFrame f;
    std::string period = text.substr(0, eq);
    const bool micro = period.size() > 2 && period.substr(period.size() - 2) == "us";
    if (micro)
        period.resize(period.size() - 2);
    if (eq == std::string::npos || !ParseSeconds(period, seconds, error)) {
        error = "--frame \"" + text + "\" is not PERIOD=I,J,... (20ms=0,1, 500us=2)";
        return false;
    }
    const double us = std::round(micro ? seconds : seconds * 1e6);
    if (us < CKVX_HdwMilStd1553MinorFrame::MinPeriodUs || us > CKVX_HdwMilStd1553MinorFrame::MaxPeriodUs ||
        std::fmod(us, 10) != 0) {
        error = "--frame \"" + text + "\": a minor frame lasts 100 us to 655.35 ms in steps of 10 us";
        return false;
    }
    f.PeriodUs = uint32_t(us);
    for (const auto& i : Split(text.substr(eq + 1), ",")) {
        uint64_t v = 0;
        if (!ParseNumber(i, v) || v >= transfers) {
            error = "--frame \"" + text + "\": \"" + i + "\" is not a transfer number from 0 to " +
                std::to_string(transfers == 0 ? 0 : transfers - 1);
            return false;
        }
        f.Messages.push_back(uint16_t(v));
    }
    minor = std::move(f);
    return true;
}

} // namespace hdwtool
