// Repair's salvage rules on file sets built byte by byte: each table record is one row that says what it
// is and what Repair must make of it (dropped, kept with its points or bytes, kept as a place without
// points), so what survives is known by construction and not by running the writer.
#include <qvgeo/geodb/geodb.h>

#include "db_test_util.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <tuple>

using namespace qv;
using namespace qvtest;
using GeoDBSalvage = DbTest;

namespace {

enum class Fate { Dropped, KeptWithData, KeptWithoutData };

Bytes PointBytes(std::initializer_list<std::pair<float, float>> points)
{
    Bytes b;
    for (const auto& [lat, lon] : points)
        Le(b, lat, lon);
    return b;
}

// A BLOB's stored form: the 1024-byte meta data (caption and file path lengths at 256 and 384), then the
// bytes.
Bytes BlobBytes(std::uint8_t captionLen, std::uint8_t pathLen, const Bytes& bytes)
{
    Bytes b(1024, 0);
    b[256] = captionLen;
    std::fill_n(b.begin() + 257, std::min<int>(captionLen, 127), 'c');
    b[384] = pathLen;
    std::fill_n(b.begin() + 385, std::min<int>(pathLen, 127), 'p');
    b.insert(b.end(), bytes.begin(), bytes.end());
    return b;
}

struct Expected {
    std::string name;
    Fate fate;
    Bytes data;  // what RetrievePolygon or RetrieveBLOB must give back (points as stored)
};

// The table and data file of a set under construction, with the expected fate of every record.
struct SetBuilder {
    Bytes table;
    Bytes data = HeaderBytes(3, 4, "salvage", 7);  // HighestID 3 lies below the identifiers kept
    std::vector<Expected> expected;

    std::int32_t Append(const Bytes& payload)
    {
        const auto at = static_cast<std::int32_t>(data.size());
        data.insert(data.end(), payload.begin(), payload.end());
        return at;
    }
    void Rec(RecFields r, Fate fate, Bytes kept = {}, int lengthByte = -1)
    {
        Bytes rec = RecordBytes(r);
        if (lengthByte >= 0)
            rec[4] = static_cast<std::uint8_t>(lengthByte);
        table.insert(table.end(), rec.begin(), rec.end());
        expected.push_back({r.name, fate, std::move(kept)});
    }
};

RecFields Place(std::int32_t id, const char* name, std::uint8_t kind = gitTown)
{
    return RecFields{.id = id, .name = name, .latLow = 1, .latHigh = 2, .longLow = 3, .longHigh = 4, .kind = kind};
}

RecFields Poly(std::int32_t id, const char* name, std::int32_t offset, std::int32_t n, float latLow, float latHigh,
               float longLow, float longHigh)
{
    return RecFields{.id = id, .name = name, .blobOffset = offset, .latLow = latLow, .latHigh = latHigh,
                     .longLow = longLow, .longHigh = longHigh, .kind = gitRiver, .numPoints = n};
}

RecFields Blob(std::int32_t id, const char* name, std::int32_t offset, std::int32_t size)
{
    return RecFields{.id = id, .name = name, .blobOffset = offset, .latLow = 5, .latHigh = 5, .longLow = 6,
                     .longHigh = 6, .kind = gitBLOB, .numPoints = size};
}

}  // namespace

TEST_F(GeoDBSalvage, EveryRecordMeetsItsRule)
{
    SetBuilder s;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const std::string name59(59, 'n');

    // Points exactly on their box's edges (a town's box is its point) are inside it.
    const Bytes town = PointBytes({{10, 20}});
    const std::int32_t townAt = s.Append(town);
    s.Rec({.id = 1, .name = "town on its box", .blobOffset = townAt, .latLow = 10, .latHigh = 10,
           .longLow = 20, .longHigh = 20, .kind = gitTown, .numPoints = 1},
          Fate::KeptWithData, town);
    const Bytes border = PointBytes({{1, 1}, {2, 3}, {1, 3}});
    s.Rec({.id = 2, .name = name59, .blobOffset = s.Append(border), .latLow = 1, .latHigh = 2, .longLow = 1,
           .longHigh = 3, .kind = gitBorder, .numPoints = 3, .closed = true},
          Fate::KeptWithData, border);
    // Records that no writer produces.
    s.Rec(Place(0, "identifier 0"), Fate::Dropped);
    s.Rec(Place(-5, "negative identifier"), Fate::Dropped);
    s.Rec(Place(4, "kind Undefined", gitUndefined), Fate::KeptWithoutData);
    // A garbage identifier must not raise HighestID: the next addition would get an identifier near the
    // end of the range although no item holds this one.
    s.Rec(Place(0x7FFFFF00, "kind beyond Undefined", gitUndefined + 1), Fate::Dropped);
    RecFields closed2 = Place(8, "closed flag 2");
    closed2.closed = true;
    s.Rec(closed2, Fate::Dropped);
    s.table[s.table.size() - 120 + 116] = 2;
    s.Rec(Place(9, "name length byte 60"), Fate::Dropped, {}, 60);
    // The records are checked before their identifiers count: garbage carrying an identifier does not
    // cost the real record with that identifier its place.
    s.Rec(Place(10, "garbage with identifier 10", 200), Fate::Dropped);
    s.Rec(Place(10, "real record 10"), Fate::KeptWithoutData);
    s.Rec(Place(2, "repeats identifier 2"), Fate::Dropped);
    // Polygons whose points do not check out stay, as places without points.
    s.Rec(Poly(12, "offset but no points", townAt, 0, 10, 10, 20, 20), Fate::KeptWithoutData);
    s.Rec(Poly(13, "last point outside", s.Append(PointBytes({{1, 1}, {2, 2}, {2, 2.5f}})), 3, 1, 2, 1, 2),
          Fate::KeptWithoutData);
    s.Rec(Poly(14, "first point outside", s.Append(PointBytes({{0.5f, 1}, {2, 2}})), 2, 1, 2, 1, 2),
          Fate::KeptWithoutData);
    s.Rec(Poly(15, "NaN point", s.Append(PointBytes({{1, 1}, {nan, 1}})), 2, 1, 2, 1, 2), Fate::KeptWithoutData);
    s.Rec(Poly(16, "points in the header", 200, 1, -90, 90, -180, 180), Fate::KeptWithoutData);
    s.Rec(Poly(17, "shares the town's bytes", townAt, 1, 0, 20, 0, 20), Fate::KeptWithoutData);
    // BLOBs: a zero-byte BLOB is one a writer makes; captions and file paths hold up to 127 characters.
    const Bytes five = BlobBytes(3, 0, {1, 2, 3, 4, 5});
    const std::int32_t fiveAt = s.Append(five);
    s.Rec(Blob(18, "BLOB of 5 bytes", fiveAt, 5), Fate::KeptWithData, {1, 2, 3, 4, 5});
    s.Rec(Blob(19, "BLOB of 0 bytes", s.Append(BlobBytes(0, 0, {})), 0), Fate::KeptWithData);
    s.Rec(Blob(20, "BLOB caption 127", s.Append(BlobBytes(127, 127, {9})), 1), Fate::KeptWithData, {9});
    s.Rec(Blob(21, "BLOB caption 128", s.Append(BlobBytes(128, 0, {9})), 1), Fate::Dropped);
    s.Rec(Blob(22, "BLOB path 128", s.Append(BlobBytes(0, 128, {9})), 1), Fate::Dropped);
    s.Rec(Blob(23, "BLOB of negative size", s.Append(BlobBytes(0, 0, {})), -1), Fate::Dropped);
    s.Rec(Blob(24, "BLOB outside the file", 0x7FFF0000, 1), Fate::Dropped);
    s.Rec(Blob(25, "BLOB inside another", fiveAt + 8, 1), Fate::Dropped);
    // The last points run past the end of the file (an append cut short).
    Bytes tail = PointBytes({{3, 3}, {3, 4}});
    s.Rec(Poly(26, "points cut off", s.Append(tail), 2, 3, 3, 3, 4), Fate::KeptWithoutData);
    s.data.pop_back();
    // And the table ends in part of a record (its append cut short as well): not an item.
    const Bytes partial = RecordBytes(Place(27, "partial record"));
    s.table.insert(s.table.end(), partial.begin(), partial.begin() + 100);

    const std::string base = dir / "salvage";
    WriteAll(base + ".xelgds", s.table);
    WriteAll(base + ".xelgdd", s.data);
    db.SetGDBName(base);
    ASSERT_TRUE(db.Damaged());
    db.Repair();
    db.SetGDBName("");
    db.SetGDBName(base);
    ASSERT_FALSE(db.Damaged()) << db.DamageReport().front();
    ExpectIndexesConsistent(db);
    EXPECT_EQ(std::tuple(db.GetDescription(), db.GetRevision(), db.HighestID()), std::tuple("salvage", 7, 26));

    int r = 0;
    for (const Expected& e : s.expected) {
        if (e.fate == Fate::Dropped) {
            for (int k = 1; k <= db.NumEntries(); ++k)
                EXPECT_NE(db.GetSumdata(k).Name, e.name) << "dropped record kept";
            continue;
        }
        SCOPED_TRACE(e.name);
        ++r;
        ASSERT_LE(r, db.NumEntries());
        const TgdbData d = db.GetSumdata(r);
        ASSERT_EQ(d.Name, e.name);
        if (e.fate == Fate::KeptWithoutData) {
            // The one form of an item without points: no offset, no count.
            EXPECT_EQ(std::pair(d.BlobOffset, d.NumPoints), std::pair(-1, 0));
            EXPECT_TRUE(db.RetrievePolygon(r).empty());
        } else if (d.ItemKind == gitBLOB) {
            Bytes got(static_cast<std::size_t>(d.Size()));
            TMetaInfo meta;
            EXPECT_EQ(db.RetrieveBLOB(r, got, meta), static_cast<std::int32_t>(e.data.size()));
            EXPECT_EQ(got, e.data);
            EXPECT_EQ(meta.Caption.size() + meta.FilePath.size(), d.ItemId == 20 ? 254u : d.ItemId == 18 ? 3u : 0u);
        } else {
            Bytes got;
            for (const TSCoords& p : db.RetrievePolygon(r))
                Le(got, p.Latit, p.Longit);
            EXPECT_EQ(got, e.data);
        }
    }
    EXPECT_EQ(db.NumEntries(), r);
    const TgdbData kept2 = db.GetSumdata(2);
    EXPECT_EQ(std::tuple(kept2.Closed, kept2.ItemKind, kept2.Name.size()), std::tuple(true, gitBorder, 59u));
}

// The header survives a repair exactly when it is whole and valid; otherwise the set gets a new one.
TEST_F(GeoDBSalvage, HeaderIsKeptOnlyWhenValid)
{
    struct Case {
        const char* what;
        Bytes header;
        bool kept;
    };
    const auto with = [](std::size_t at, std::uint8_t v, Bytes b = HeaderBytes(5, 4, "old", 9)) {
        b.at(at) = v;
        return b;
    };
    Bytes descr63 = HeaderBytes(5, 4, std::string(63, 'd'), 9);
    Bytes cut = HeaderBytes(5, 4, "old", 9);
    cut.pop_back();
    const Case cases[] = {
        {"exactly the header, no data after it", HeaderBytes(5, 4, "old", 9), true},
        {"one byte short", cut, false},
        {"description of 63, the capacity", descr63, true},
        {"description length 64", with(8, 64, descr63), false},
        {"version 1", with(4, 1), true},
        {"version 0", with(4, 0), false},
        {"version 5", with(4, 5), false},
        {"HighestID 0", with(0, 0), true},
        {"HighestID negative", with(3, 0x80), false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ScratchDir work;
        const std::string base = work / "h";
        WriteAll(base + ".xelgds", RecordBytes(Place(2, "place")));
        WriteAll(base + ".xelgdd", c.header);
        TGeoDB h;
        h.SetGDBName(base);
        h.Repair();
        const std::string descr = c.header.size() > 8 && c.header[8] == 63 ? std::string(63, 'd') : "old";
        const std::int32_t version = c.header.size() > 4 ? c.header[4] : 0;
        // A new header holds HighestID 0, which Repair raises to the largest identifier kept (2).
        const auto want = c.kept ? std::tuple(descr, 9, version, c.header[0] == 5 ? 5 : 2)
                                 : std::tuple(std::string(), 0, 4, 2);
        EXPECT_EQ(std::tuple(h.GetDescription(), h.GetRevision(), h.GetDBVersion(), h.HighestID()), want);
        EXPECT_EQ(h.NumEntries(), 1);
        EXPECT_EQ(ReadAll(base + ".xelgdd").size(), 260u);
    }
}
