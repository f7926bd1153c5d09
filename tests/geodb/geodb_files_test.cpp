// The file set of TGeoDB: creation, byte-exact contents, hand-made sets, LazyWrite flushing, header
// text, accessor clamping, and the hemisphere texts.
#include <qvgeo/geodb/geodb.h>

#include "db_test_util.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <tuple>

using namespace qv;
using namespace qvtest;
using GeoDBFiles = DbTest;

namespace {
// The header fields as the getters give them: version, description, revision.
auto Header(const TGeoDB& db) { return std::tuple(db.GetDBVersion(), db.GetDescription(), db.GetRevision()); }
}

TEST_F(GeoDBFiles, NewNameCreatesSevenFiles)
{
    db.SetGDBName(dir / "world");
    EXPECT_TRUE(db.IsOpen() && !db.Damaged());
    for (const std::string e : SetExts) {
        ASSERT_TRUE(std::filesystem::exists(dir / ("world" + e))) << e;
        EXPECT_EQ(ReadAll(dir / ("world" + e)), e == ".xelgdd" ? HeaderBytes(0, 4, "", 0) : Bytes{}) << e;
    }
    EXPECT_EQ(Header(db), std::tuple(4, "", 0));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.Path()), {}), 7);
}

TEST_F(GeoDBFiles, ExtensionIsStripped)
{
    db.SetGDBName(dir / "alps.db");
    EXPECT_EQ(db.GetGDBName(), dir / "alps.db");
    EXPECT_EQ(db.DataFileName(), dir / "alps.xelgds");
    for (int k = 0; k <= 4; ++k)
        EXPECT_EQ(db.IndexFileName(k), dir / ("alps.xelgi" + std::to_string(k)));
}

TEST_F(GeoDBFiles, WrittenSetIsByteExact)
{
    db.SetGDBName(dir / "exact");
    TgdbData river{.Name = "Inn", .Altitude = 400, .ClassFlag = 3, .Tag = 77, .Date = 45123.5, .ItemKind = gitRiver};
    const TSCoords pts[] = {{47.5f, 10.0f}, {48.0f, 12.5f}, {47.0f, 11.0f}};
    EXPECT_EQ(db.AddData(river, pts), 1);
    EXPECT_EQ(river.ItemId, 1);
    TgdbData lake{.Name = "Attersee", .Date = 1.0, .ItemKind = gitLake, .Closed = true};
    const TSCoords lp[] = {{47.9f, 13.5f}, {47.8f, 13.6f}};
    EXPECT_EQ(db.AddData(lake, lp), 2);

    Bytes ds = RecordBytes({1, "Inn", 400, 3, 77, 260, 45123.5, 0, 47.0f, 48.0f, 10.0f, 12.5f, gitRiver, 3, false});
    const Bytes r2 = RecordBytes({2, "Attersee", 0, 0, 0, 284, 1.0, 0, 47.8f, 47.9f, 13.5f, 13.6f, gitLake, 2, true});
    ds.insert(ds.end(), r2.begin(), r2.end());
    EXPECT_EQ(ReadAll(dir / "exact.xelgds"), ds);

    Bytes dd = HeaderBytes(2, 4, "", 0);
    for (const auto& p : {pts[0], pts[1], pts[2], lp[0], lp[1]})
        Le(dd, p.Latit, p.Longit);
    EXPECT_EQ(ReadAll(dir / "exact.xelgdd"), dd);

    EXPECT_EQ(ReadAll(dir / "exact.xelgi0"), IxBytes<std::int32_t>({{1, 0}, {2, 1}}));
    EXPECT_EQ(ReadAll(dir / "exact.xelgi1"), IxBytes<float>({{47.0f, 0}, {47.8f, 1}}));
    EXPECT_EQ(ReadAll(dir / "exact.xelgi2"), IxBytes<float>({{47.9f, 1}, {48.0f, 0}}));
    EXPECT_EQ(ReadAll(dir / "exact.xelgi3"), IxBytes<float>({{10.0f, 0}, {13.5f, 1}}));
    EXPECT_EQ(ReadAll(dir / "exact.xelgi4"), IxBytes<float>({{12.5f, 0}, {13.6f, 1}}));

    db.SetDescription("Austria");
    db.SetRevision(9);
    std::copy_n(HeaderBytes(2, 4, "Austria", 9).begin(), 260, dd.begin());
    EXPECT_EQ(ReadAll(dir / "exact.xelgdd"), dd);
}

namespace {
// A set of three items written byte by byte, field by field at the offsets of the file format.
void WriteHandMadeSet(const ScratchDir& dir, const std::string& base)
{
    Bytes ds = RecordBytes({10, "A", 0, 0, 0, 260, 0, 0, 10.0f, 11.0f, 5.0f, 6.0f, gitRoad, 2, false});
    for (const auto& r : {RecordBytes({20, "B", 0, 0, 0, -1, 0, 0, 20.0f, 20.0f, 7.0f, 7.0f, gitTown, 0, false}),
                          RecordBytes({15, "C", 0, 0, 0, 276, 0, 0, 30.0f, 31.0f, 1.0f, 2.0f, gitLake, 1, true})})
        ds.insert(ds.end(), r.begin(), r.end());
    WriteAll(dir / (base + ".xelgds"), ds);
    Bytes dd = HeaderBytes(20, 4, "hand made", 3);
    Le(dd, 10.0f, 5.0f, 11.0f, 6.0f, 31.0f, 2.0f);
    WriteAll(dir / (base + ".xelgdd"), dd);
    WriteAll(dir / (base + ".xelgi0"), IxBytes<std::int32_t>({{10, 0}, {15, 2}, {20, 1}}));
    WriteAll(dir / (base + ".xelgi1"), IxBytes<float>({{10.0f, 0}, {20.0f, 1}, {30.0f, 2}}));
    WriteAll(dir / (base + ".xelgi2"), IxBytes<float>({{11.0f, 0}, {20.0f, 1}, {31.0f, 2}}));
    WriteAll(dir / (base + ".xelgi3"), IxBytes<float>({{1.0f, 2}, {5.0f, 0}, {7.0f, 1}}));
    WriteAll(dir / (base + ".xelgi4"), IxBytes<float>({{2.0f, 2}, {6.0f, 0}, {7.0f, 1}}));
}
}  // namespace

TEST_F(GeoDBFiles, HandMadeSetOpens)
{
    WriteHandMadeSet(dir, "hand");
    db.SetGDBName(dir / "hand");
    ASSERT_FALSE(db.Damaged()) << db.DamageReport().front();
    EXPECT_EQ(db.NumEntries(), 3);
    EXPECT_EQ(Header(db), std::tuple(4, "hand made", 3));
    EXPECT_EQ(db.HighestID(), 20);
    EXPECT_EQ(db.SearchForItemID(16), 0);  // absent; present ones are checked by ExpectIndexesConsistent
    // LatLow keys 10, 20, 30; the halving itself is tested on bare indexes.
    EXPECT_EQ(db.GetClosestLatLowIx(25), 3);
    EXPECT_EQ(db.GetClosestLatLowIx(35), 4);
    EXPECT_EQ(db.GetClosestItemIDIx(16), 3);
    // LatHigh 11, 20, 31; LongLow 1, 5, 7; LongHigh 2, 6, 7.
    EXPECT_EQ(std::tuple(db.GetClosestLatHighIx(25), db.GetClosestLongLowIx(6), db.GetClosestLongHighIx(6.5)),
              std::tuple(3, 3, 3));
    const TgdbPolygon road = db.RetrievePolygon(1);
    ASSERT_EQ(road.size(), 2u);
    EXPECT_EQ(std::pair(road[1].Latit, road[1].Longit), std::pair(11.0f, 6.0f));
    EXPECT_TRUE(db.RetrievePolygon(2).empty());  // BlobOffset < 0
    EXPECT_EQ(db.SearchData(19, 0, 30.5, 10), (std::vector<int>{2, 3}));
    EXPECT_EQ(db.SearchData(11, 6, 20, 7), (std::vector<int>{1, 2}));  // edges touching corners count
    // Accessors clamp and hand out 1-based record numbers.
    EXPECT_EQ(std::pair(db.GetIxItemID(8).ItemID, db.GetIxItemID(8).index), std::pair(20, 2));
    EXPECT_EQ(db.GetIxLongLow(-3).index, 3);
    EXPECT_EQ(db.GetIxLatHigh(2).LLValue, 20.0f);
    EXPECT_EQ(db.GetSumdata(99).Name, "C");
    ExpectIndexesConsistent(db);
    // A new item gets identifier 21 and a sorted place in every index.
    EXPECT_EQ(db.AddTown("D", 25, 3), 4);
    EXPECT_EQ(db.GetSumdata(4).ItemId, 21);
    ExpectIndexesConsistent(db);
}

TEST_F(GeoDBFiles, EmptyIndexAnswers)
{
    EXPECT_EQ(db.GetClosestLatLowIx(3), 1);
    EXPECT_EQ(db.SearchForItemID(1), 0);
    EXPECT_EQ(db.GetIxItemID(1).ItemID, 0);
    EXPECT_EQ(db.GetSumdata(1).ItemId, 0);
    db.SetGDBName(dir / "e");
    EXPECT_EQ(db.GetClosestItemIDIx(5), 1);
    EXPECT_TRUE(db.SearchData(-90, -180, 90, 180).empty());
}

TEST_F(GeoDBFiles, LazyWriteDefersIndexFiles)
{
    const std::string ix0 = dir / "lazy.xelgi0";
    {
        TGeoDB lazy;
        lazy.SetGDBName(dir / "lazy");
        lazy.SetLazyWrite(true);
        lazy.AddTown("a", 1, 1);
        lazy.AddTown("b", 2, 2);
        EXPECT_EQ(std::filesystem::file_size(ix0), 0u);
        EXPECT_EQ(std::filesystem::file_size(dir / "lazy.xelgds"), 240u);  // the table is written at once
        lazy.SetLazyWrite(false);
        EXPECT_EQ(std::filesystem::file_size(ix0), 16u);
        lazy.SetLazyWrite(true);
        lazy.AddTown("c", 3, 3);
        lazy.SetGDBName("");  // closing writes, clears LazyWrite
        EXPECT_FALSE(lazy.LazyWrite());
        EXPECT_EQ(std::filesystem::file_size(dir / "lazy.xelgi4"), 24u);
        EXPECT_EQ(lazy.IndexFileName(2), "");
        lazy.SetGDBName(dir / "lazy");
        lazy.SetLazyWrite(true);
        lazy.AddTown("d", 4, 4);
    }  // destruction writes
    EXPECT_EQ(std::filesystem::file_size(ix0), 32u);
    db.SetGDBName(dir / "lazy");
    EXPECT_FALSE(db.Damaged());
    ExpectIndexesConsistent(db);
}

TEST_F(GeoDBFiles, OpeningAnotherNameLosesPendingLazyIndexes)
{
    db.SetGDBName(dir / "one");
    db.SetLazyWrite(true);
    db.AddTown("a", 1, 1);
    db.SetGDBName(dir / "two");  // kept on purpose: index changes of "one" are not written
    EXPECT_TRUE(db.LazyWrite());
    EXPECT_EQ(std::filesystem::file_size(dir / "one.xelgi0"), 0u);
    db.SetGDBName("");
    TGeoDB again;
    again.SetGDBName(dir / "one");
    EXPECT_TRUE(again.Damaged());  // the table holds a record the indexes do not know
    EXPECT_EQ(again.SearchForItemID(1), 1);  // rebuilt in memory
}

TEST_F(GeoDBFiles, DescriptionAndRevision)
{
    db.SetName("MyDB");
    db.SetDescription("ignored");  // nothing open: no effect, no error
    db.SetRevision(5);
    EXPECT_EQ(Header(db), std::tuple(4, "", 0));
    db.SetGDBName(dir / "d");
    const std::string text(75, 'x');
    db.SetDescription(text);
    EXPECT_EQ(db.GetDescription(), text.substr(0, 60));
    db.SetRevision(-12);
    EXPECT_EQ(ReadAll(dir / "d.xelgdd"), HeaderBytes(0, 4, text.substr(0, 60), -12));
    db.SetGDBName("");
    db.SetGDBName(dir / "d.any");
    EXPECT_EQ(Header(db), std::tuple(4, text.substr(0, 60), -12));

    std::filesystem::remove(dir / "d.xelgdd");
    EXPECT_DB_ERROR(db.SetDescription("new"), "Component \"MyDB\": SetDescription: cannot open database.");
    EXPECT_EQ(db.GetDescription(), "new");
    EXPECT_THROW(db.SetRevision(1), EXELGeoDBError);
    EXPECT_FALSE(std::filesystem::exists(dir / "d.xelgdd"));
}

TEST_F(GeoDBFiles, ExistingHeaderWinsOverReset)
{
    // Only ".xelgdd" exists: the table is created (resetting the header in memory), then the header is
    // read from the existing file.
    WriteAll(dir / "h.xelgdd", HeaderBytes(0, 3, "old", 8));
    TGeoDB db;
    db.SetGDBName(dir / "h");
    EXPECT_EQ(Header(db), std::tuple(3, "old", 8));
}

TEST_F(GeoDBFiles, ProgressIsReportedOnOpen)
{
    db.SetGDBName(dir / "p");
    db.AddTown("x", 1, 2);
    db.SetGDBName("");
    std::vector<double> seen;
    db.OnPercentDone = [&](TGeoDB& sender, double pct) {
        EXPECT_EQ(&sender, &db);
        seen.push_back(pct);
    };
    db.SetGDBName(dir / "p");
    ExpectProgress(seen);
}

TEST(GeoText, HemisphereLettersAndClamps)
{
    // value, latitude?, magnitude shown, hemisphere
    const std::tuple<double, bool, double, const char*> cases[] = {
        {-95, true, 90, " S"},   {0, true, 0, " N"},       {-0.0, true, 0, " N"},  {47.5, true, 47.5, " N"},
        {-0.5, false, 0.5, " W"}, {200, false, 180, " E"}, {-181, false, 180, " W"}, {0, false, 0, " E"},
    };
    for (const auto& [v, lat, shown, suffix] : cases)
        for (TDegreeFormat f : {dfDecimal, dfDegMin, dfDegMinSec})
            EXPECT_EQ(lat ? GeoLatitude(v, f, 2) : GeoLongitude(v, f, 2), DegreeToStr(shown, f, 2) + suffix) << v;
}

TEST_F(GeoDBFiles, IndexNamesSurviveACloseWithoutLazyWriteButNothingIsWritten)
{
    db.SetGDBName(dir / "keepnames");
    db.AddTown("a", 1, 1);
    db.SetGDBName("");
    // Kept asymmetry: the index names stay after a close without LazyWrite.
    EXPECT_EQ(db.IndexFileName(0), dir / "keepnames.xelgi0");
    db.SaveIndex(0);
    db.SetLazyWrite(true);
    db.SetLazyWrite(false);
    EXPECT_EQ(std::filesystem::file_size(dir / "keepnames.xelgi0"), 8u);
}

TEST_F(GeoDBFiles, RemoveIndexEntriesNeitherShortensNorRenumbers)
{
    db.SetGDBName(dir / "rm");
    db.SetLazyWrite(true);
    db.AddTown("a", 3, 3);
    db.AddTown("b", 1, 1);
    db.AddTown("c", 2, 2);
    db.RemoveIndexEntries(2);
    std::vector<std::pair<std::int32_t, std::int32_t>> ids;  // identifier, 0-based record
    for (const auto& e : db.IxItemIDArray())
        ids.emplace_back(e.ItemID, e.index);
    // Record 3 keeps its old number 2, and the last entry stays where it was.
    EXPECT_EQ(ids, (std::vector<std::pair<std::int32_t, std::int32_t>>{{1, 0}, {3, 2}, {3, 2}}));
    const auto& lat = db.IxLLArray(1);
    EXPECT_EQ(std::pair(lat[0].LLValue, lat[1].LLValue), std::pair(2.0f, 3.0f));
    db.SetLazyWrite(false);
}

TEST_F(GeoDBFiles, DebugExportShowsRecordsAndIndexes)
{
    db.SetGDBName(dir / "dbg");
    db.AddTown("north", 10.5, 3);
    db.AddTown("south", -2.25, 4);
    std::ostringstream out;
    db.ExportDataDebug(out);
    const std::string text = out.str();
    EXPECT_NE(text.find("record 2\tid 2\tTown\tsouth\tlat -2.25..-2.25"), std::string::npos) << text;
    EXPECT_NE(text.find("index 1\t-2.25:2\t10.5:1\n"), std::string::npos) << text;
    EXPECT_NE(text.find("index 0\t1:1\t2:2\n"), std::string::npos) << text;
}
