// Byte layout of the database records: every field at its offset in the file format, little-endian, padding and
// unused string bytes zero; decoders survive hostile length bytes.
#include "geodb/records.h"

#include "db_test_util.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

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
    EXPECT_EQ(static_cast<int>(gitRoute), 6);
    EXPECT_EQ(GdbItemName(200), "Undefined");
    TgdbItem k = gitTown;
    EXPECT_FALSE(GdbItemFromName("Mountain", k));
    EXPECT_EQ(k, gitTown);
}

TEST(Records, GdbDataEncodesAtFileOffsets)
{
    TgdbData d;
    d.ItemId = 0x01020304;
    d.Name = "Wien";
    d.Altitude = 171.5f;
    d.ClassFlag = 0xAB;
    d.Tag = -2;
    d.BlobOffset = 260;
    d.Date = 45000.25;
    d.StateFlag = 7;
    d.LatLow = 48.1f;
    d.LatHigh = 48.3f;
    d.LongLow = 16.2f;
    d.LongHigh = 16.5f;
    d.ItemKind = gitCity;
    d.NumPoints = 12;
    d.Closed = true;
    std::array<std::uint8_t, gdbDataSize> out{};
    out.fill(0xEE);
    EncodeGdbData(d, out);
    const Bytes expect = qvtest::RecordBytes({0x01020304, "Wien", 171.5f, 0xAB, -2, 260, 45000.25, 7, 48.1f, 48.3f,
                                              16.2f, 16.5f, gitCity, 12, true});
    ASSERT_EQ(expect.size(), 120u);
    EXPECT_EQ(Bytes(out.begin(), out.end()), expect);
    EXPECT_EQ(out[0], 0x04);  // little-endian
    EXPECT_EQ(out[4], 4);     // name length byte
    EXPECT_EQ(out[108], gitCity);

    const TgdbData back = DecodeGdbData(out);
    EXPECT_EQ(back.ItemId, d.ItemId);
    EXPECT_EQ(back.Name, d.Name);
    EXPECT_EQ(back.Altitude, d.Altitude);
    EXPECT_EQ(back.ClassFlag, d.ClassFlag);
    EXPECT_EQ(back.Tag, d.Tag);
    EXPECT_EQ(back.BlobOffset, d.BlobOffset);
    EXPECT_EQ(back.Date, d.Date);
    EXPECT_EQ(back.StateFlag, d.StateFlag);
    EXPECT_EQ(back.LatLow, d.LatLow);
    EXPECT_EQ(back.LongHigh, d.LongHigh);
    EXPECT_EQ(back.ItemKind, d.ItemKind);
    EXPECT_EQ(back.NumPoints, d.NumPoints);
    EXPECT_EQ(back.Size(), 12);
    EXPECT_TRUE(back.Closed);
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
    EXPECT_EQ(s.HighestID, 41);
    EXPECT_EQ(s.DBVersion, 4);
    EXPECT_EQ(s.Description, "Alps");
    EXPECT_EQ(s.Revision, -3);
    std::array<std::uint8_t, gdbSystemDataSize> out{};
    EncodeSystemData(s, out);
    EXPECT_EQ(Bytes(out.begin(), out.end()), raw);
}

TEST(Records, MetaInfoFieldsAtTheirOffsets)
{
    TMetaInfo m;
    m.Keywords = "k";
    m.Caption = std::string(200, 'c');  // cut to 127
    m.FilePath = "/tmp/a.jpg";
    m.Descriptor = "d";
    m.Comment = "note";
    std::array<std::uint8_t, gdbMetaInfoSize> out{};
    EncodeMetaInfo(m, out);
    struct Field {
        std::size_t offset;
        std::size_t length;
    };
    for (const Field f : {Field{0, 1}, Field{256, 127}, Field{384, 10}, Field{512, 1}, Field{768, 4}})
        EXPECT_EQ(out[f.offset], f.length) << "field at " << f.offset;
    EXPECT_EQ(out[385], '/');
    EXPECT_EQ(out[769], 'n');
    const TMetaInfo back = DecodeMetaInfo(out);
    EXPECT_EQ(back.Caption, std::string(127, 'c'));
    EXPECT_EQ(MetaInfoField(back, miFilePath), "/tmp/a.jpg");
    EXPECT_EQ(MetaInfoField(back, miComment), "note");
    EXPECT_EQ(MetaInfoCapacity(miCaption), 127);
    EXPECT_EQ(MetaInfoCapacity(miKwd), 255);
}

TEST(Records, IndexEntriesAndPointsRoundTripBitExactly)
{
    const float values[] = {0.0f, -0.0f, 47.1f, -179.99998f, std::numeric_limits<float>::denorm_min(),
                            std::numeric_limits<float>::infinity()};
    for (float v : values) {
        std::array<std::uint8_t, 8> b{};
        EncodeIxLLRec(TIxLLRec{v, -7}, b);
        const TIxLLRec r = DecodeIxLLRec(b);
        EXPECT_EQ(std::bit_cast<std::uint32_t>(r.LLValue), std::bit_cast<std::uint32_t>(v));
        EXPECT_EQ(r.index, -7);
        EncodeSCoords(TSCoords{v, -v}, b);
        const TSCoords c = DecodeSCoords(b);
        EXPECT_EQ(std::bit_cast<std::uint32_t>(c.Latit), std::bit_cast<std::uint32_t>(v));
        EXPECT_EQ(std::bit_cast<std::uint32_t>(c.Longit), std::bit_cast<std::uint32_t>(-v));
    }
    std::array<std::uint8_t, 8> b{};
    EncodeIxItemIDRec(TIxItemIDRec{-1, 0x7FFFFFFF}, b);
    EXPECT_EQ(Bytes(b.begin(), b.end()), (Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F}));
}
