// Records of the geographic database (items, header, BLOB meta data, index entries) and their byte
// codecs. Every record is encoded and decoded field by field, little-endian, at the offsets of the
// on-disk layout; the in-memory structs carry no padding obligations of their own.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

// Kind of a database item; the ordinal is the byte stored in TgdbData.ItemKind.
enum TgdbItem : std::uint8_t {
    gitBorder,
    gitTown,
    gitCity,
    gitLake,
    gitRiver,
    gitRoad,
    gitRoute,
    gitBLOB,
    gitUndefined,
};
inline constexpr int NumGdbItems = 9;

// Display names of the item kinds, in ordinal order.
extern const std::array<std::string_view, NumGdbItems> GDB_ITEMNAMES;

// Display name of a stored kind byte; bytes beyond gitUndefined (possible in a hand-made file) read as
// "Undefined".
std::string_view GdbItemName(std::uint8_t Kind);
// The kind whose display name equals Name, ignoring ASCII case; false if none does.
bool GdbItemFromName(std::string_view Name, TgdbItem& Kind);

// Capacities (characters) of the short strings and sizes (bytes) of the records on disk.
inline constexpr int gdbNameLen = 59;
inline constexpr int gdbDescriptionLen = 63;
inline constexpr int gdbDataSize = 120;
inline constexpr int gdbSystemDataSize = 260;
inline constexpr int gdbSystemReservedSize = 184;
inline constexpr int gdbIxRecSize = 8;
inline constexpr int gdbSCoordsSize = 8;
inline constexpr int gdbMetaInfoSize = 1024;
inline constexpr std::int32_t gdbCurrentVersion = 4;

using TgdbName = std::string;  // at most gdbNameLen characters once stored

// One point of a polygon, degrees. Single precision on purpose: that is what the files keep.
struct TSCoords {
    float Latit = 0;
    float Longit = 0;
};
using TgdbPolygon = std::vector<TSCoords>;

// Values of TgdbData.StateFlag. Deleted items are removed from the table, so every record this library
// writes is gsfActive; other values found in a file are kept as read.
inline constexpr std::int32_t gsfActive = 0;

// One item of the table (".xelgds" record).
struct TgdbData {
    std::int32_t ItemId = 0;
    TgdbName Name;
    float Altitude = 0;          // metres
    std::uint8_t ClassFlag = 0;  // user class
    std::int32_t Tag = 0;        // user value
    std::int32_t BlobOffset = -1;  // byte offset in ".xelgdd" of the points or BLOB; < 0: none
    double Date = 0;             // days since 1899-12-30
    std::int32_t StateFlag = gsfActive;
    float LatLow = 0;            // bounding box, degrees
    float LatHigh = 0;
    float LongLow = 0;
    float LongHigh = 0;
    std::uint8_t ItemKind = gitUndefined;  // a TgdbItem ordinal, kept as a byte as read
    std::int32_t NumPoints = 0;  // polygon items: number of points; BLOB items: data size in bytes
    bool Closed = false;

    // The second name of NumPoints, for BLOB items.
    std::int32_t Size() const { return NumPoints; }
    void SetSize(std::int32_t Bytes) { NumPoints = Bytes; }
};

// The header at offset 0 of ".xelgdd".
struct TgdbSystemData {
    std::int32_t HighestID = 0;
    std::int32_t DBVersion = gdbCurrentVersion;
    std::string Description;
    std::int32_t Revision = 0;
    std::array<std::uint8_t, gdbSystemReservedSize> Reserved{};
};

// Descriptive data stored in front of every BLOB's bytes.
struct TMetaInfo {
    std::string Keywords;    // up to 255 characters
    std::string Caption;     // up to 127
    std::string FilePath;    // up to 127
    std::string Descriptor;  // up to 255
    std::string Comment;     // up to 255
};
enum TMetaItem : std::uint8_t { miKwd, miCaption, miFilePath, miDescriptor, miComment };
std::string& MetaInfoField(TMetaInfo& Info, TMetaItem Item);
const std::string& MetaInfoField(const TMetaInfo& Info, TMetaItem Item);
int MetaInfoCapacity(TMetaItem Item);

// A position with height: degrees, degrees, metres.
struct TPositionData {
    double Latit = 0;
    double Longit = 0;
    double Height = 0;
};

// Entry of a coordinate index: the key (one corner value of a bounding box) and the 0-based record
// number. Public accessors hand `index` out 1-based.
struct TIxLLRec {
    float LLValue = 0;
    std::int32_t index = 0;
};
struct TIxItemIDRec {
    std::int32_t ItemID = 0;
    std::int32_t index = 0;
};
using TIxLLRecArray = std::vector<TIxLLRec>;
using TIxItemIDRecArray = std::vector<TIxItemIDRec>;

// Resets a record to the values of a fresh, empty item (no data, undefined kind).
void ClearGdbData(TgdbData& Data);
void ClearMetaInfo(TMetaInfo& Info);

// ---- byte codecs ------------------------------------------------------------------------------------
// Encoders write every byte of the target, padding and the unused tail of short strings as zeros.
// Decoders accept any bytes: a short string's length byte beyond its capacity is cut to the capacity.

void EncodeGdbData(const TgdbData& Data, std::span<std::uint8_t, gdbDataSize> Out);
TgdbData DecodeGdbData(std::span<const std::uint8_t, gdbDataSize> In);

void EncodeSystemData(const TgdbSystemData& Sys, std::span<std::uint8_t, gdbSystemDataSize> Out);
TgdbSystemData DecodeSystemData(std::span<const std::uint8_t, gdbSystemDataSize> In);

void EncodeMetaInfo(const TMetaInfo& Info, std::span<std::uint8_t, gdbMetaInfoSize> Out);
TMetaInfo DecodeMetaInfo(std::span<const std::uint8_t, gdbMetaInfoSize> In);

void EncodeSCoords(const TSCoords& P, std::span<std::uint8_t, gdbSCoordsSize> Out);
TSCoords DecodeSCoords(std::span<const std::uint8_t, gdbSCoordsSize> In);

void EncodeIxLLRec(const TIxLLRec& R, std::span<std::uint8_t, gdbIxRecSize> Out);
TIxLLRec DecodeIxLLRec(std::span<const std::uint8_t, gdbIxRecSize> In);
void EncodeIxItemIDRec(const TIxItemIDRec& R, std::span<std::uint8_t, gdbIxRecSize> Out);
TIxItemIDRec DecodeIxItemIDRec(std::span<const std::uint8_t, gdbIxRecSize> In);

// ---- plausibility of raw records ----------------------------------------------------------------------
// What every record written by this format's writers satisfies, so that Repair can tell a record from
// stray bytes. Padding bytes are not checked (other writers leave them undefined).

// A header is plausible when HighestID >= 0, DBVersion is 1..4 and the description's length byte is at
// most 63. Returns an empty text when it is, else what is wrong.
std::string SystemDataProblem(std::span<const std::uint8_t, gdbSystemDataSize> In);
// A table record is plausible when ItemId >= 1, the name's length byte is at most 59, the kind byte at
// most gitUndefined and the Closed byte 0 or 1.
bool GdbDataPlausible(std::span<const std::uint8_t, gdbDataSize> In);
// Meta data is plausible when each of its five length bytes is within its field's capacity.
bool MetaInfoPlausible(std::span<const std::uint8_t, gdbMetaInfoSize> In);

// Little-endian scalars at a byte position, for the codecs and for callers that patch single fields.
void PutLE32(std::uint8_t* p, std::uint32_t v) noexcept;
std::uint32_t GetLE32(const std::uint8_t* p) noexcept;
void PutLE64(std::uint8_t* p, std::uint64_t v) noexcept;
std::uint64_t GetLE64(const std::uint8_t* p) noexcept;

}  // namespace qv
