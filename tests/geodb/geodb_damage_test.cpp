// Damaged file sets: each damage opens what is intact (reported by DamageReport) or fails with
// EXELGeoDBError, never crashes, and nothing is written to the set until Repair is asked for; Repair
// then a sound set that keeps only what checks out.
#include <qvgeo/geodb/geodb.h>

#include "db_test_util.h"

#include <gtest/gtest.h>

#include <cmath>
#include <tuple>
#include <filesystem>
#include <functional>
#include <map>
#include <random>

using namespace qv;
using namespace qvtest;
using GeoDBDamage = DbTest;
namespace fs = std::filesystem;

namespace {

// Six items: rivers with 3 points, towns with 1, a BLOB of 5 bytes; one replacement leaves garbage.
void BuildSound(const std::string& base)
{
    TGeoDB db;
    db.SetGDBName(base);
    const TSCoords line[] = {{10, 20}, {11, 21}, {12, 19}};
    db.AddRiver("r1", line);
    db.AddTown("t1", 30, 40);
    db.AddRiver("r2", line);
    db.AddTown("t2", -30, -40);
    TgdbData blob{.Name = "b"};
    db.AddBLOB(blob, std::vector<std::uint8_t>{1, 2, 3, 4, 5});
    db.AddRoad("road", line);
    db.ReplaceTown(2, "t1b", 31, 41);
}

std::map<std::string, Bytes> Snapshot(const ScratchDir& dir)
{
    std::map<std::string, Bytes> files;
    for (const auto& e : fs::directory_iterator(dir.Path()))
        files[e.path().filename().string()] = ReadAll(e.path().string());
    return files;
}

void CopySet(const std::string& from, const std::string& to)
{
    for (const std::string e : SetExts)
        fs::copy_file(from + e, to + e, fs::copy_options::overwrite_existing);
}

// A damage applied to the set with this base name.
using DamageFn = std::function<void(const std::string& base)>;
DamageFn Cut(const char* ext, std::uintmax_t size)
{
    return [=](const std::string& b) { fs::resize_file(b + ext, size); };
}

// A refusal by EXELGeoDBError is an acceptable answer to damage; any other exception fails the test.
template <class F>
void MayRefuse(F read) try { read(); } catch (const EXELGeoDBError&) {}

// Reads everything a user could read; only EXELGeoDBError may come out.
void ExerciseReads(TGeoDB& db)
{
    (void)db.SearchData(-90, -180, 90, 180);
    (void)db.SearchData(0, 0, 45, 45, gitTown);
    for (int r = 0; r <= db.NumEntries() + 1; ++r) {
        (void)db.GetSumdata(r);
        (void)db.GetIxItemID(r);
        (void)db.GetIxLongHigh(r);
        if (r < 1 || r > db.NumEntries())
            continue;
        MayRefuse([&] { (void)db.RetrievePolygon(r); });
        MayRefuse([&] { (void)db.GetMetaInfo(r); });
        (void)db.ExtractLocation(r);
        (void)db.SearchForItemID(db.GetSumdata(r).ItemId);
    }
    (void)db.GetClosestLatLowIx(12.5);
    (void)db.GarbageBytes();
}

struct Damage {
    const char* what;
    DamageFn apply;
    int entriesAfterOpen;
    bool damaged = true;  // false: the set opens sound and writable
};

DamageFn Both(DamageFn a, DamageFn b)
{
    return [=](const std::string& base) { a(base), b(base); };
}
DamageFn Append(const char* ext, std::size_t n)
{
    return [=](const std::string& base) {
        Bytes b = ReadAll(base + ext);
        b.insert(b.end(), n, 0xA5);
        WriteAll(base + ext, b);
    };
}
DamageFn Remove(const char* ext)
{
    return [=](const std::string& base) { fs::remove(base + ext); };
}

}  // namespace

TEST_F(GeoDBDamage, EachDamageIsReportedAndRepairable)
{
    // Table records are 120 bytes: BlobOffset at +76, LatLow at +92, NumPoints at +112. Index entries are 8.
    const Damage damages[] = {
        {"partial record after the last", Append(".xelgds", 50), 6, false},
        {"partial entry after the last", Append(".xelgi2", 3), 6, false},
        {"last record cut short", Cut(".xelgds", 6 * 120 - 50), 5},
        {"short header", Cut(".xelgdd", 100), 6},
        {"empty data file", Cut(".xelgdd", 0), 6},
        {"last points cut off",
         [](const std::string& b) { fs::resize_file(b + ".xelgdd", fs::file_size(b + ".xelgdd") - 4); }, 6},
        {"offset far outside", Patch(".xelgds", 120 + 76, 0x7FFFFF00u), 6},
        {"offset inside header", Patch(".xelgds", 2 * 120 + 76, 10), 6},
        {"negative point count", Patch(".xelgds", 112, 0xFFFFFFFBu), 6},
        {"huge point count", Patch(".xelgds", 112, 0x7FFFFFFFu), 6},
        {"huge BLOB size", Patch(".xelgds", 4 * 120 + 112, 0x7FFFFFF0u), 6},
        {"index entry outside the table", Patch(".xelgi0", 8 + 4, 999), 6},
        {"negative index entry", Patch(".xelgi1", 4, 0xFFFFFFFFu), 6},
        {"index of the wrong corner", [](const std::string& b) {
             fs::copy_file(b + ".xelgi1", b + ".xelgi4", fs::copy_options::overwrite_existing);
         }, 6},
        {"index too long", [](const std::string& b) {
             Bytes ix = ReadAll(b + ".xelgi0");
             ix.insert(ix.end(), ix.begin(), ix.begin() + 8);
             WriteAll(b + ".xelgi0", ix);
         }, 6},
        {"NaN corner in a record", Patch(".xelgds", 92, 0x7FC00000u), 6},
        {"HighestID too low", Patch(".xelgdd", 0, 2), 6},
        {"unknown version in the header", Patch(".xelgdd", 4, 77), 6},
        {"header garbage length byte", [](const std::string& b) {
             Bytes d = ReadAll(b + ".xelgdd");
             d[8] = 255;
             d[3] = 0x80;  // HighestID becomes negative
             WriteAll(b + ".xelgdd", d);
         }, 6},
        {"index file deleted", Remove(".xelgi3"), 6},
        {"table deleted", Remove(".xelgds"), 0},
        {"data file deleted", Remove(".xelgdd"), 6},
        {"left-over compaction marker", [](const std::string& b) { WriteAll(b + ".xelgdx", {}); }, 6},
        {"two files: header and an index", Both(Patch(".xelgdd", 4, 0), Remove(".xelgi0")), 6},
        {"two files: points cut off and an index entry",
         Both(Cut(".xelgdd", 300), Patch(".xelgi4", 4, 17)), 6},
        {"two files: table cut short, data file deleted", Both(Cut(".xelgds", 300), Remove(".xelgdd")), 2},
    };
    BuildSound(dir / "set");
    for (const Damage& dmg : damages) {
        SCOPED_TRACE(dmg.what);
        ScratchDir work;
        const std::string base = work / "set";
        CopySet(dir / "set", base);
        dmg.apply(base);
        const auto before = Snapshot(work);
        {
            TGeoDB damaged("D");
            damaged.SetGDBName(base);
            EXPECT_EQ(damaged.NumEntries(), dmg.entriesAfterOpen);
            ExerciseReads(damaged);
            // Every index answers correctly even before repair: it was rebuilt in memory.
            ExpectIndexesConsistent(damaged);
            if (!dmg.damaged) {
                ASSERT_FALSE(damaged.Damaged()) << damaged.DamageReport().front();
                damaged.SetDescription("still writable");
                damaged.SetRevision(2);
                EXPECT_EQ(damaged.AddTown("x", 1, 1), dmg.entriesAfterOpen + 1);
                continue;
            }
            ASSERT_TRUE(damaged.Damaged());
            EXPECT_DB_ERROR(damaged.AddTown("x", 1, 1),
                            "Component \"D\": AddData: the database is damaged; repair it before changing it.");
            EXPECT_THROW(damaged.DeleteData(1), EXELGeoDBError);
            EXPECT_THROW(damaged.GarbageCollection(), EXELGeoDBError);
            EXPECT_THROW(damaged.RecalcIndexes(), EXELGeoDBError);
            EXPECT_THROW(damaged.SetDescription("x"), EXELGeoDBError);
            damaged.SetLazyWrite(true);  // the destructor must not flush into the damaged set either
        }
        if (dmg.damaged) {
            const auto after = Snapshot(work);  // a missing file may be created, but no existing one touched
            for (const auto& [name, bytes] : before)
                EXPECT_TRUE(after.count(name) && after.at(name) == bytes) << name << " was written";
        }

        TGeoDB repaired;
        repaired.SetGDBName(base);
        repaired.Repair();
        EXPECT_FALSE(repaired.Damaged());
        const int n = repaired.NumEntries();
        repaired.SetGDBName("");
        repaired.SetGDBName(base);
        ASSERT_FALSE(repaired.Damaged()) << repaired.DamageReport().front();
        EXPECT_FALSE(fs::exists(base + ".xelgdx"));
        EXPECT_EQ(repaired.NumEntries(), n);
        ExpectIndexesConsistent(repaired);
        for (int r = 1; r <= n; ++r) {
            EXPECT_NO_THROW((void)repaired.RetrievePolygon(r));
            EXPECT_GE(repaired.HighestID(), repaired.GetSumdata(r).ItemId);
        }
        EXPECT_EQ(repaired.GarbageBytes(), 0);
        // Writable again.
        repaired.AddTown("after repair", 5, 5);
        EXPECT_EQ(repaired.NumEntries(), n + 1);
    }
}

TEST_F(GeoDBDamage, RepairKeepsIntactItems)
{
    const std::string base = dir / "keep";
    BuildSound(base);
    Patch(".xelgds", 120 + 76, 0x7FFFFF00u)(base);  // record 2 loses its point
    Patch(".xelgds", 5 * 120 + 76, 260)(base);       // record 6 claims the points of record 1
    db.SetGDBName(base);
    ASSERT_TRUE(db.Damaged());
    EXPECT_THROW((void)db.RetrievePolygon(2), EXELGeoDBError);
    db.Repair();
    EXPECT_TRUE(db.RetrievePolygon(2).empty());
    EXPECT_EQ(db.GetSumdata(2).Name, "t1b");
    EXPECT_EQ(db.RetrievePolygon(3).size(), 3u);
    EXPECT_EQ(std::pair(db.RetrievePolygon(1).size(), db.RetrievePolygon(6).size()), std::pair(3ul, 0ul));
    std::vector<std::uint8_t> buf(5);
    TMetaInfo meta;
    EXPECT_EQ(db.RetrieveBLOB(5, buf, meta), 5);
    EXPECT_EQ(buf, (std::vector<std::uint8_t>{1, 2, 3, 4, 5}));
}

TEST_F(GeoDBDamage, RepairKeepsOnlyWhatChecksOut)
{
    // Random bytes of the same length over one file at a time. Over the data file: the header is new,
    // every item keeps its record but no points (random points do not fall in their boxes), the BLOB
    // goes unless its bytes happen to look like meta data. Over the table: no record survives (a
    // random record passes the record checks once in about 30 000).
    const std::string sound = dir / "sound";
    BuildSound(sound);
    std::mt19937 rng(5);
    for (const char* ext : {".xelgdd", ".xelgds"}) {
        SCOPED_TRACE(ext);
        ScratchDir work;
        const std::string base = work / "set";
        CopySet(sound, base);
        Bytes b = ReadAll(base + ext);
        for (auto& c : b)
            c = static_cast<std::uint8_t>(rng());
        WriteAll(base + ext, b);
        TGeoDB db;
        db.SetGDBName(base);
        ASSERT_TRUE(db.Damaged());
        db.Repair();
        db.SetGDBName("");
        db.SetGDBName(base);
        ASSERT_FALSE(db.Damaged());
        ExpectIndexesConsistent(db);
        if (std::string(ext) == ".xelgds") {
            EXPECT_EQ(db.NumEntries(), 0);
            continue;
        }
        EXPECT_EQ(std::tuple(db.GetDBVersion(), db.GetDescription(), db.GetRevision(), db.HighestID()),
                  std::tuple(4, "", 0, 6));
        ASSERT_GE(db.NumEntries(), 5);
        for (int r = 1; r <= db.NumEntries(); ++r)
            if (db.GetSumdata(r).ItemKind != gitBLOB) {
                EXPECT_EQ(db.GetSumdata(r).ItemId, r < 5 ? r : r + (db.NumEntries() == 5));
                EXPECT_TRUE(db.RetrievePolygon(r).empty());
            }
    }
}

TEST_F(GeoDBDamage, DirectoryInPlaceOfAFileIsAnError)
{
    fs::create_directories(dir / "dirset.xelgi2");
    db.SetName("X");
    try {
        db.SetGDBName(dir / "dirset");
        FAIL();
    } catch (const EXELGeoDBError& e) {
        EXPECT_EQ(std::string(e.what()).rfind("Component \"X\": SetGDBName: ", 0), 0u) << e.what();
    }
    EXPECT_FALSE(db.IsOpen());
    EXPECT_THROW(db.AddTown("x", 1, 1), EXELGeoDBError);
    db.SetLazyWrite(true);
    db.SetGDBName("");  // closing a set that never opened writes nothing
    EXPECT_FALSE(fs::exists(dir / "dirset.xelgds"));
}
