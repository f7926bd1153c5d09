#include <qvgeo/geodb/records.h>

#include <qvgeo/support/text.h>

#include <algorithm>
#include <bit>
#include <cstring>

namespace qv {

const std::array<std::string_view, NumGdbItems> GDB_ITEMNAMES = {
    "Border", "Town", "City", "Lake", "River", "Road", "Route", "BLOB", "Undefined"};

std::string_view GdbItemName(std::uint8_t Kind)
{
    return GDB_ITEMNAMES[std::min<std::size_t>(Kind, gitUndefined)];
}

bool GdbItemFromName(std::string_view Name, TgdbItem& Kind)
{
    for (int i = 0; i < NumGdbItems; ++i)
        if (SameText(Name, GDB_ITEMNAMES[static_cast<std::size_t>(i)])) {
            Kind = static_cast<TgdbItem>(i);
            return true;
        }
    return false;
}

std::string& MetaInfoField(TMetaInfo& Info, TMetaItem Item)
{
    switch (Item) {
    case miKwd: return Info.Keywords;
    case miCaption: return Info.Caption;
    case miFilePath: return Info.FilePath;
    case miDescriptor: return Info.Descriptor;
    case miComment: break;
    }
    return Info.Comment;
}

const std::string& MetaInfoField(const TMetaInfo& Info, TMetaItem Item)
{
    return MetaInfoField(const_cast<TMetaInfo&>(Info), Item);
}

int MetaInfoCapacity(TMetaItem Item)
{
    return (Item == miCaption || Item == miFilePath) ? 127 : 255;
}

void ClearGdbData(TgdbData& Data) { Data = TgdbData{}; }
void ClearMetaInfo(TMetaInfo& Info) { Info = TMetaInfo{}; }

void PutLE32(std::uint8_t* p, std::uint32_t v) noexcept
{
    for (int i = 0; i < 4; ++i)
        p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}

std::uint32_t GetLE32(const std::uint8_t* p) noexcept
{
    std::uint32_t v = 0;
    for (int i = 3; i >= 0; --i)
        v = (v << 8) | p[i];
    return v;
}

void PutLE64(std::uint8_t* p, std::uint64_t v) noexcept
{
    for (int i = 0; i < 8; ++i)
        p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}

std::uint64_t GetLE64(const std::uint8_t* p) noexcept
{
    std::uint64_t v = 0;
    for (int i = 7; i >= 0; --i)
        v = (v << 8) | p[i];
    return v;
}

namespace {

void PutI32(std::uint8_t* p, std::int32_t v) { PutLE32(p, static_cast<std::uint32_t>(v)); }
std::int32_t GetI32(const std::uint8_t* p) { return static_cast<std::int32_t>(GetLE32(p)); }
void PutF32(std::uint8_t* p, float v) { PutLE32(p, std::bit_cast<std::uint32_t>(v)); }
float GetF32(const std::uint8_t* p) { return std::bit_cast<float>(GetLE32(p)); }
void PutF64(std::uint8_t* p, double v) { PutLE64(p, std::bit_cast<std::uint64_t>(v)); }
double GetF64(const std::uint8_t* p) { return std::bit_cast<double>(GetLE64(p)); }

// Short string: length byte, then the characters; the field is Capacity + 1 bytes wide.
void PutShortString(std::uint8_t* p, const std::string& s, int Capacity)
{
    const std::size_t n = std::min(s.size(), static_cast<std::size_t>(Capacity));
    std::memset(p, 0, static_cast<std::size_t>(Capacity) + 1);
    p[0] = static_cast<std::uint8_t>(n);
    std::memcpy(p + 1, s.data(), n);
}

std::string GetShortString(const std::uint8_t* p, int Capacity)
{
    const std::size_t n = std::min<std::size_t>(p[0], static_cast<std::size_t>(Capacity));
    return std::string(reinterpret_cast<const char*>(p + 1), n);
}

}  // namespace

// Offsets of the ".xelgds" record; the gaps at 69, 109 and 117 are padding.
void EncodeGdbData(const TgdbData& d, std::span<std::uint8_t, gdbDataSize> Out)
{
    std::uint8_t* p = Out.data();
    std::memset(p, 0, gdbDataSize);
    PutI32(p + 0, d.ItemId);
    PutShortString(p + 4, d.Name, gdbNameLen);
    PutF32(p + 64, d.Altitude);
    p[68] = d.ClassFlag;
    PutI32(p + 72, d.Tag);
    PutI32(p + 76, d.BlobOffset);
    PutF64(p + 80, d.Date);
    PutI32(p + 88, d.StateFlag);
    PutF32(p + 92, d.LatLow);
    PutF32(p + 96, d.LatHigh);
    PutF32(p + 100, d.LongLow);
    PutF32(p + 104, d.LongHigh);
    p[108] = d.ItemKind;
    PutI32(p + 112, d.NumPoints);
    p[116] = d.Closed ? 1 : 0;
}

TgdbData DecodeGdbData(std::span<const std::uint8_t, gdbDataSize> In)
{
    const std::uint8_t* p = In.data();
    TgdbData d;
    d.ItemId = GetI32(p + 0);
    d.Name = GetShortString(p + 4, gdbNameLen);
    d.Altitude = GetF32(p + 64);
    d.ClassFlag = p[68];
    d.Tag = GetI32(p + 72);
    d.BlobOffset = GetI32(p + 76);
    d.Date = GetF64(p + 80);
    d.StateFlag = GetI32(p + 88);
    d.LatLow = GetF32(p + 92);
    d.LatHigh = GetF32(p + 96);
    d.LongLow = GetF32(p + 100);
    d.LongHigh = GetF32(p + 104);
    d.ItemKind = p[108];
    d.NumPoints = GetI32(p + 112);
    d.Closed = p[116] != 0;
    return d;
}

void EncodeSystemData(const TgdbSystemData& s, std::span<std::uint8_t, gdbSystemDataSize> Out)
{
    std::uint8_t* p = Out.data();
    PutI32(p + 0, s.HighestID);
    PutI32(p + 4, s.DBVersion);
    PutShortString(p + 8, s.Description, gdbDescriptionLen);
    PutI32(p + 72, s.Revision);
    std::memcpy(p + 76, s.Reserved.data(), s.Reserved.size());
}

TgdbSystemData DecodeSystemData(std::span<const std::uint8_t, gdbSystemDataSize> In)
{
    const std::uint8_t* p = In.data();
    TgdbSystemData s;
    s.HighestID = GetI32(p + 0);
    s.DBVersion = GetI32(p + 4);
    s.Description = GetShortString(p + 8, gdbDescriptionLen);
    s.Revision = GetI32(p + 72);
    std::memcpy(s.Reserved.data(), p + 76, s.Reserved.size());
    return s;
}

void EncodeMetaInfo(const TMetaInfo& m, std::span<std::uint8_t, gdbMetaInfoSize> Out)
{
    std::uint8_t* p = Out.data();
    PutShortString(p + 0, m.Keywords, 255);
    PutShortString(p + 256, m.Caption, 127);
    PutShortString(p + 384, m.FilePath, 127);
    PutShortString(p + 512, m.Descriptor, 255);
    PutShortString(p + 768, m.Comment, 255);
}

TMetaInfo DecodeMetaInfo(std::span<const std::uint8_t, gdbMetaInfoSize> In)
{
    const std::uint8_t* p = In.data();
    TMetaInfo m;
    m.Keywords = GetShortString(p + 0, 255);
    m.Caption = GetShortString(p + 256, 127);
    m.FilePath = GetShortString(p + 384, 127);
    m.Descriptor = GetShortString(p + 512, 255);
    m.Comment = GetShortString(p + 768, 255);
    return m;
}

void EncodeSCoords(const TSCoords& c, std::span<std::uint8_t, gdbSCoordsSize> Out)
{
    PutF32(Out.data(), c.Latit);
    PutF32(Out.data() + 4, c.Longit);
}

TSCoords DecodeSCoords(std::span<const std::uint8_t, gdbSCoordsSize> In)
{
    return TSCoords{GetF32(In.data()), GetF32(In.data() + 4)};
}

void EncodeIxLLRec(const TIxLLRec& r, std::span<std::uint8_t, gdbIxRecSize> Out)
{
    PutF32(Out.data(), r.LLValue);
    PutI32(Out.data() + 4, r.index);
}

TIxLLRec DecodeIxLLRec(std::span<const std::uint8_t, gdbIxRecSize> In)
{
    return TIxLLRec{GetF32(In.data()), GetI32(In.data() + 4)};
}

void EncodeIxItemIDRec(const TIxItemIDRec& r, std::span<std::uint8_t, gdbIxRecSize> Out)
{
    PutI32(Out.data(), r.ItemID);
    PutI32(Out.data() + 4, r.index);
}

TIxItemIDRec DecodeIxItemIDRec(std::span<const std::uint8_t, gdbIxRecSize> In)
{
    return TIxItemIDRec{GetI32(In.data()), GetI32(In.data() + 4)};
}

std::string SystemDataProblem(std::span<const std::uint8_t, gdbSystemDataSize> In)
{
    const std::int32_t highest = GetI32(In.data());
    const std::int32_t version = GetI32(In.data() + 4);
    if (highest < 0)
        return "HighestID " + std::to_string(highest) + " is negative";
    if (version < 1 || version > gdbCurrentVersion)
        return "DBVersion " + std::to_string(version) + " is not a known version";
    if (In[8] > gdbDescriptionLen)
        return "the description's length " + std::to_string(In[8]) + " exceeds 63";
    return {};
}

bool GdbDataPlausible(std::span<const std::uint8_t, gdbDataSize> In)
{
    return GetI32(In.data()) >= 1 && In[4] <= gdbNameLen && In[108] <= gitUndefined && In[116] <= 1;
}

bool MetaInfoPlausible(std::span<const std::uint8_t, gdbMetaInfoSize> In)
{
    // Keywords, Descriptor and Comment hold 255 characters, so any length byte fits them.
    return In[256] <= 127 && In[384] <= 127;
}

}  // namespace qv
