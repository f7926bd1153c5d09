// Byte layout of the database records: every field at its offset in the file format, little-endian, padding and
// unused string bytes zero; decoders survive hostile length bytes.
#include <qvgeo/geodb/records.h>

#include "db_test_util.h"

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <span>
#include <tuple>
#include <utility>

using namespace qv;
using qvtest::Bytes;

TEST(Records, ItemNamesAndOrdinals)
{
    const char* names[] = {"Border", "Town", "City", "Lake", "River", "Road", "Route", "BLOB", "Undefined"};
    for (int i = 0; i < NumGdbItems; ++i) {
        EXPECT_EQ(GDB_ITEMNAMES[static_cast<std::size_t>(i)], names[i]);
        TgdbItem k = gitUndefined;
        ASSERT_TRUE(GdbItemFromName(qv::LowerCase(names[i]), k));
        EXPECT_EQ(static_cast<int>(k), i);
    }
    EXPECT_EQ(GdbItemName(200), "Undefined");
    TgdbItem k = gitTown;
    EXPECT_FALSE(GdbItemFromName("Mountain", k));
    EXPECT_EQ(k, gitTown);
}

TEST(Records, GdbDataDecodesAndEncodesAtFileOffsets)
{
    const qvtest::RecFields f{0x01020304, "Wien", 171.5f, 0xAB, -2,     260,  45000.25, 7,
                              48.1f,      48.3f,  16.2f,  16.5f, gitCity, 12, true};
    const Bytes raw = qvtest::RecordBytes(f);
    ASSERT_EQ(raw.size(), 120u);
    ASSERT_EQ(raw[108], gitCity);  // anchors the helper's layout to the format's kind offset
    const TgdbData d = DecodeGdbData(std::span<const std::uint8_t, gdbDataSize>(raw.data(), gdbDataSize));
    EXPECT_EQ(std::tie(d.ItemId, d.Name, d.Altitude, d.ClassFlag, d.Tag, d.BlobOffset, d.Date, d.StateFlag, d.LatLow,
                       d.LatHigh, d.LongLow, d.LongHigh, d.ItemKind, d.NumPoints, d.Closed),
              std::tie(f.id, f.name, f.alt, f.cls, f.tag, f.blobOffset, f.date, f.state, f.latLow, f.latHigh,
                       f.longLow, f.longHigh, f.kind, f.numPoints, f.closed));
    std::array<std::uint8_t, gdbDataSize> out{};
    out.fill(0xEE);  // padding and unused name bytes must be written as zero
    EncodeGdbData(d, out);
    EXPECT_EQ(Bytes(out.begin(), out.end()), raw);
}

TEST(Records, NamesAreCutToCapacityAndHostileLengthsClamped)
{
    TgdbData d;
    d.Name = std::string(80, 'x');
    std::array<std::uint8_t, gdbDataSize> out{};
    EncodeGdbData(d, out);
    EXPECT_EQ(out[4], 59);
    EXPECT_EQ(out[63], 'x');
    EXPECT_EQ(out[64], 0);  // Altitude 0.0f follows directly

    out[4] = 255;  // a length byte beyond the field
    EXPECT_EQ(DecodeGdbData(out).Name.size(), 59u);

    std::array<std::uint8_t, gdbSystemDataSize> hdr{};
    hdr[8] = 200;
    EXPECT_EQ(DecodeSystemData(hdr).Description.size(), 63u);
}

TEST(Records, SystemDataLayoutKeepsReservedBytes)
{
    Bytes raw = qvtest::HeaderBytes(41, 4, "Alps", -3);
    for (std::size_t i = 76; i < 260; ++i)
        raw[i] = static_cast<std::uint8_t>(i);
    const TgdbSystemData s = DecodeSystemData(std::span<const std::uint8_t, 260>(raw.data(), 260));
    EXPECT_EQ(std::tie(s.HighestID, s.DBVersion, s.Description, s.Revision), std::tuple(41, 4, "Alps", -3));
    std::array<std::uint8_t, gdbSystemDataSize> out{};
    EncodeSystemData(s, out);
    EXPECT_EQ(Bytes(out.begin(), out.end()), raw);
}

TEST(Records, MetaInfoFieldsAtTheirOffsets)
{
    // Keywords, caption (cut to 127), file path, descriptor, comment.
    const TMetaInfo m{"k", std::string(200, 'c'), "/tmp/a.jpg", "d", "note"};
    std::array<std::uint8_t, gdbMetaInfoSize> out{};
    EncodeMetaInfo(m, out);
    for (const auto& [offset, length] : {std::pair{0, 1}, {256, 127}, {384, 10}, {512, 1}, {768, 4}})
        EXPECT_EQ(out[static_cast<std::size_t>(offset)], length) << "length byte at " << offset;
    EXPECT_EQ(out[385], '/');
    EXPECT_EQ(out[769], 'n');
    const TMetaInfo back = DecodeMetaInfo(out);
    EXPECT_EQ(std::tuple(back.Caption, MetaInfoField(back, miFilePath), MetaInfoField(back, miComment)),
              std::tuple(std::string(127, 'c'), "/tmp/a.jpg", "note"));
    EXPECT_EQ(MetaInfoCapacity(miCaption), 127);
    EXPECT_EQ(MetaInfoCapacity(miKwd), 255);
}

TEST(Records, IndexEntriesAndPointsRoundTripBitExactly)
{
    const float values[] = {0.0f, -0.0f, 47.1f, -179.99998f, std::numeric_limits<float>::denorm_min(),
                            std::numeric_limits<float>::infinity()};
    const auto bits = [](float f) { return std::bit_cast<std::uint32_t>(f); };
    for (float v : values) {
        std::array<std::uint8_t, 8> b{};
        EncodeIxLLRec(TIxLLRec{v, -7}, b);
        const TIxLLRec r = DecodeIxLLRec(b);
        EXPECT_EQ(std::pair(bits(r.LLValue), r.index), std::pair(bits(v), -7));
        EncodeSCoords(TSCoords{v, -v}, b);
        const TSCoords c = DecodeSCoords(b);
        EXPECT_EQ(std::pair(bits(c.Latit), bits(c.Longit)), std::pair(bits(v), bits(-v)));
    }
    std::array<std::uint8_t, 8> b{};
    EncodeIxItemIDRec(TIxItemIDRec{-1, 0x7FFFFFFF}, b);
    EXPECT_EQ(Bytes(b.begin(), b.end()), (Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F}));
}
