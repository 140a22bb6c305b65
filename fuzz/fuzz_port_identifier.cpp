// libFuzzer target: port-identifier keys. Odd first byte: the rest is a key
// to parse; a key that parses gives the same fields back through every
// getter, and its fields built into a key again parse to the same fields.
// Even first byte: fields to build a key from, which must parse back to them.
#include <HdwLib/HdwLib.h>

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// The largest port type, absolute number or channel a key can carry.
constexpr unsigned kMaxKeyNumber = 0x7FFFFFFF;

using Id = CKVX_HdwManager::CPortIdentifier;

void Require(bool ok)
{
    if (!ok)
        std::abort();
}

std::string Eight(unsigned channel)
{
    char buf[16];
    std::snprintf(buf, sizeof buf, "%08u", channel);
    return buf;
}

bool SameFields(const Id& a, const Id& b)
{
    return a.GetPortType() == b.GetPortType() && a.GetAbsNum() == b.GetAbsNum() &&
        a.GetManufacturer() == b.GetManufacturer() && a.GetFullName() == b.GetFullName() &&
        a.GetRevision() == b.GetRevision() && a.GetSN() == b.GetSN();
}

void ParseKey(const std::string& text)
{
    const CKVX_String key(text);
    Id id;
    // A failed parse leaves what was there.
    Require(id.Set(3, 7, "M", "F", "R", "S", 1) == 0);
    const Id before = id;
    const unsigned rc = id.Set(key);
    Require((rc == 0) == Id::IsValid(key));
    if (rc != 0) {
        Require(id.GetKeyString() == before.GetKeyString() && SameFields(id, before));
        return;
    }
    Require(id.GetKeyString() == key && id.CheckMatch(key));
    // Ends in "@" and four upper-case hex digits.
    Require(text.size() >= 5 && text[text.size() - 5] == '@');
    for (size_t i = text.size() - 4; i < text.size(); ++i)
        Require((text[i] >= '0' && text[i] <= '9') || (text[i] >= 'A' && text[i] <= 'F'));

    unsigned type = 0, abs = 0, channel = 0;
    CKVX_String m, f, r, s;
    CKVX_HdwManager::CPortDescriptor d;
    Require(id.Get(&type, &d) == 0 && type == id.GetPortType() && d.AbsNum == id.GetAbsNum() &&
        d.Manufacturer == id.GetManufacturer() && d.FullName == id.GetFullName() && d.Revision == id.GetRevision() &&
        d.SerialNumber == id.GetSN() && d.IntChannel == id.GetIntChannel());
    for (const CKVX_String* t : {&d.Manufacturer, &d.FullName, &d.Revision, &d.SerialNumber, &d.IntChannel})
        Require(t->FindFromBegin("@") < 0);
    if (id.Get(&type, &abs, &m, &f, &r, &s, &channel) != 0) {
        Require(!id.GetIntChannel().ToUnsigned(channel, 10)); // only a channel that is not a number fails
        return;
    }
    Require(type == id.GetPortType() && abs == id.GetAbsNum() && m == id.GetManufacturer() && f == id.GetFullName() &&
        r == id.GetRevision() && s == id.GetSN());
    if (type == 0)
        return; // a key may say 0; building one from it is refused
    // Numbers are written signed ("%d", "%08d"): a port type or absolute
    // number above the signed range makes a key that no parse takes, so
    // building it is refused; such a channel is written with a minus sign.
    if (type > kMaxKeyNumber || abs > kMaxKeyNumber) {
        Id again;
        Require(again.Set(type, abs, m, f, r, s, channel) != 0 && again.GetKeyString() == CKVX_String(""));
        return;
    }
    if (channel > kMaxKeyNumber)
        return;
    // Built again from its fields: the same fields, and the same port.
    Id again;
    Require(again.Set(type, abs, m, f, r, s, channel) == 0);
    Require(SameFields(again, id) && again.GetIntChannel() == CKVX_String(Eight(channel)));
    if (id.GetIntChannel() == CKVX_String(Eight(channel)))
        Require(again.CheckMatch(id) && id.CheckMatch(again));
}

void BuildKey(FuzzedDataProvider& in)
{
    const unsigned type = in.ConsumeIntegral<unsigned>();
    const unsigned abs = in.ConsumeIntegral<unsigned>();
    const unsigned channel = in.ConsumeIntegral<unsigned>();
    std::string t[4];
    for (auto& s : t)
        s = in.ConsumeRandomLengthString(64);
    Id id;
    const unsigned rc = id.Set(type, abs, t[0], t[1], t[2], t[3], channel);
    bool refused = type == 0 || type > kMaxKeyNumber || abs > kMaxKeyNumber;
    for (const auto& s : t)
        refused = refused || s.find('@') != std::string::npos;
    if (refused) {
        Require(rc != 0 && id.GetKeyString() == CKVX_String(""));
        return;
    }
    Require(rc == 0);
    if (channel > kMaxKeyNumber) {
        // Written "%08d": a negative text that does not read back as a channel.
        unsigned back = 0;
        Require(id.GetIntChannel().GetChar(0) == '-' &&
            id.Get(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &back) != 0);
        return;
    }
    Require(id.GetPortType() == type && id.GetAbsNum() == abs && id.GetManufacturer() == CKVX_String(t[0]) &&
        id.GetFullName() == CKVX_String(t[1]) && id.GetRevision() == CKVX_String(t[2]) &&
        id.GetSN() == CKVX_String(t[3]) && id.GetIntChannel() == CKVX_String(Eight(channel)));
    unsigned back = 0;
    Require(id.Get(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &back) == 0 && back == channel);
    // Another absolute number: the same port; another channel: not.
    Id moved, other;
    if (abs < kMaxKeyNumber)
        Require(moved.Set(type, abs + 1, t[0], t[1], t[2], t[3], channel) == 0 && moved.CheckMatch(id));
    Require(other.Set(type, abs, t[0], t[1], t[2], t[3], channel ^ 1) == 0 && !other.CheckMatch(id));
    ParseKey(std::string(id.GetKeyString().c_str(), id.GetKeyString().GetLength()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    if (data[0] & 1) {
        ParseKey(std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
    } else {
        FuzzedDataProvider in(data + 1, size - 1);
        BuildKey(in);
    }
    return 0;
}
