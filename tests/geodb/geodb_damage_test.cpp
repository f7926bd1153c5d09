// Damaged file sets: each damage opens what is intact (reported by DamageReport) or fails with
// EXELGeoDBError, never crashes, and nothing is written to the set until Repair is asked for; Repair
// then gives a sound set. Also an interrupted compaction and random corruption.
#include "geodb/geodb.h"

#include "db_test_util.h"
#include "support/errors.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <functional>
#include <map>
#include <random>

using namespace qv;
using namespace qvtest;
namespace fs = std::filesystem;

namespace {

const char* const Exts[] = {".xelgds", ".xelgdd", ".xelgi0", ".xelgi1", ".xelgi2", ".xelgi3", ".xelgi4"};

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
    TgdbData blob;
    blob.Name = "b";
    const std::vector<std::uint8_t> bytes = {1, 2, 3, 4, 5};
    db.AddBLOB(blob, bytes);
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

void Patch32(const std::string& path, std::size_t offset, std::uint32_t value)
{
    Bytes b = ReadAll(path);
    for (int i = 0; i < 4; ++i)
        b.at(offset + static_cast<std::size_t>(i)) = static_cast<std::uint8_t>(value >> (8 * i));
    WriteAll(path, b);
}

void Resize(const std::string& path, std::uintmax_t size) { fs::resize_file(path, size); }

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
        try {
            (void)db.RetrievePolygon(r);
        } catch (const EXELGeoDBError&) {
        }
        try {
            (void)db.GetMetaInfo(r);
        } catch (const EXELGeoDBError&) {
        }
        (void)db.ExtractLocation(r);
        (void)db.SearchForItemID(db.GetSumdata(r).ItemId);
    }
    (void)db.GetClosestLatLowIx(12.5);
    (void)db.GarbageBytes();
}

struct Damage {
    const char* what;
    std::function<void(const std::string& base)> apply;
    int entriesAfterOpen;  // -1: not checked
};

}  // namespace

TEST(GeoDBDamage, EachDamageIsReportedAndRepairable)
{
    const Damage damages[] = {
        {"odd-sized table", [](const std::string& b) { Resize(b + ".xelgds", 6 * 120 - 50); }, 5},
        {"short header", [](const std::string& b) { Resize(b + ".xelgdd", 100); }, 6},
        {"empty data file", [](const std::string& b) { Resize(b + ".xelgdd", 0); }, 6},
        {"last points cut off",
         [](const std::string& b) { Resize(b + ".xelgdd", fs::file_size(b + ".xelgdd") - 4); }, 6},
        {"offset far outside", [](const std::string& b) { Patch32(b + ".xelgds", 120 + 76, 0x7FFFFF00u); }, 6},
        {"offset inside header", [](const std::string& b) { Patch32(b + ".xelgds", 2 * 120 + 76, 10); }, 6},
        {"negative point count", [](const std::string& b) { Patch32(b + ".xelgds", 112, 0xFFFFFFFBu); }, 6},
        {"huge point count", [](const std::string& b) { Patch32(b + ".xelgds", 112, 0x7FFFFFFFu); }, 6},
        {"huge BLOB size", [](const std::string& b) { Patch32(b + ".xelgds", 4 * 120 + 112, 0x7FFFFFF0u); }, 6},
        {"odd-sized index", [](const std::string& b) { Resize(b + ".xelgi2", 6 * 8 + 3); }, 6},
        {"index entry outside the table", [](const std::string& b) { Patch32(b + ".xelgi0", 8 + 4, 999); }, 6},
        {"negative index entry", [](const std::string& b) { Patch32(b + ".xelgi1", 4, 0xFFFFFFFFu); }, 6},
        {"index file missing", [](const std::string& b) { fs::remove(b + ".xelgi3"); }, 6},
        {"index of the wrong corner", [](const std::string& b) { fs::copy_file(b + ".xelgi1", b + ".xelgi4",
                                                                               fs::copy_options::overwrite_existing); },
         6},
        {"index too long", [](const std::string& b) {
             Bytes ix = ReadAll(b + ".xelgi0");
             ix.insert(ix.end(), ix.begin(), ix.begin() + 8);
             WriteAll(b + ".xelgi0", ix);
         }, 6},
        {"NaN corner in a record",
         [](const std::string& b) { Patch32(b + ".xelgds", 92, 0x7FC00000u); }, 6},
        {"HighestID too low", [](const std::string& b) { Patch32(b + ".xelgdd", 0, 2); }, 6},
        {"table lost", [](const std::string& b) { Resize(b + ".xelgds", 0); }, 0},
        {"header garbage length byte", [](const std::string& b) {
             Bytes d = ReadAll(b + ".xelgdd");
             d[8] = 255;
             d[3] = 0x80;  // HighestID becomes negative
             WriteAll(b + ".xelgdd", d);
         }, 6},
    };
    ScratchDir templ;
    BuildSound(templ / "set");
    for (const Damage& dmg : damages) {
        SCOPED_TRACE(dmg.what);
        ScratchDir dir;
        const std::string base = dir / "set";
        for (const char* e : Exts)
            fs::copy_file(templ / (std::string("set") + e), base + e);
        dmg.apply(base);
        const auto before = Snapshot(dir);
        {
            TGeoDB db("D");
            db.SetGDBName(base);
            if (dmg.entriesAfterOpen >= 0) {
                EXPECT_EQ(db.NumEntries(), dmg.entriesAfterOpen);
            }
            ExerciseReads(db);
            // Every index answers correctly even before repair: it was rebuilt in memory.
            ExpectIndexesConsistent(db);
            if (std::string(dmg.what) != "table lost") {
                ASSERT_TRUE(db.Damaged());
                TgdbData d;
                const TSCoords p[] = {{1, 1}};
                try {
                    db.AddData(d, p);
                    FAIL() << "write accepted";
                } catch (const EXELGeoDBError& e) {
                    EXPECT_STREQ(e.what(),
                                 "Component \"D\": AddData: the database is damaged; repair it before changing it.");
                }
                EXPECT_THROW(db.DeleteData(1), EXELGeoDBError);
                EXPECT_THROW(db.GarbageCollection(), EXELGeoDBError);
                EXPECT_THROW(db.RecalcIndexes(), EXELGeoDBError);
                EXPECT_THROW(db.SetDescription("x"), EXELGeoDBError);
                db.SetLazyWrite(true);  // the destructor must not flush into the damaged set either
            }
        }
        const auto after = Snapshot(dir);
        for (const auto& [name, bytes] : before) {
            ASSERT_TRUE(after.count(name)) << name;
            EXPECT_EQ(after.at(name), bytes) << name << " was written";
        }

        TGeoDB db;
        db.SetGDBName(base);
        db.Repair();
        EXPECT_FALSE(db.Damaged());
        const int n = db.NumEntries();
        db.SetGDBName("");
        db.SetGDBName(base);
        ASSERT_FALSE(db.Damaged()) << db.DamageReport().front();
        EXPECT_EQ(db.NumEntries(), n);
        ExpectIndexesConsistent(db);
        for (int r = 1; r <= n; ++r)
            EXPECT_NO_THROW((void)db.RetrievePolygon(r));
        for (int r = 1; r <= n; ++r)
            EXPECT_GE(db.HighestID(), db.GetSumdata(r).ItemId);
        EXPECT_EQ(db.GarbageBytes(), 0);
        // Writable again.
        db.AddTown("after repair", 5, 5);
        EXPECT_EQ(db.NumEntries(), n + 1);
    }
}

TEST(GeoDBDamage, RepairKeepsIntactItems)
{
    ScratchDir dir;
    const std::string base = dir / "keep";
    BuildSound(base);
    Patch32(base + ".xelgds", 120 + 76, 0x7FFFFF00u);  // record 2 loses its point
    TGeoDB db;
    db.SetGDBName(base);
    ASSERT_TRUE(db.Damaged());
    EXPECT_THROW((void)db.RetrievePolygon(2), EXELGeoDBError);
    db.Repair();
    EXPECT_TRUE(db.RetrievePolygon(2).empty());
    EXPECT_EQ(db.GetSumdata(2).Name, "t1b");
    EXPECT_EQ(db.RetrievePolygon(3).size(), 3u);
    std::vector<std::uint8_t> buf(5);
    TMetaInfo meta;
    EXPECT_EQ(db.RetrieveBLOB(5, buf, meta), 5);
    EXPECT_EQ(buf, (std::vector<std::uint8_t>{1, 2, 3, 4, 5}));
}

TEST(GeoDBDamage, InterruptedCompactionIsCompletedByRepair)
{
    ScratchDir dir;
    const std::string done = dir / "done";
    const std::string half = dir / "half";
    BuildSound(done);
    for (const char* e : Exts)
        fs::copy_file(done + e, half + e);
    {
        TGeoDB db;
        db.SetGDBName(done);
        db.GarbageCollection();
    }
    // The state between the two renames of a compaction: new data file in place, new table still
    // waiting beside the old one, marker present.
    fs::copy_file(done + ".xelgdd", half + ".xelgdd", fs::copy_options::overwrite_existing);
    fs::copy_file(done + ".xelgds", half + ".xelgds.tmp");
    WriteAll(half + ".xelgdx", {});
    TGeoDB db;
    db.SetGDBName(half);
    ASSERT_TRUE(db.Damaged());
    EXPECT_THROW(db.AddTown("x", 1, 1), EXELGeoDBError);
    db.Repair();
    EXPECT_FALSE(db.Damaged());
    EXPECT_FALSE(fs::exists(half + ".xelgdx"));
    EXPECT_FALSE(fs::exists(half + ".xelgds.tmp"));
    EXPECT_EQ(ReadAll(half + ".xelgds"), ReadAll(done + ".xelgds"));
    EXPECT_EQ(ReadAll(half + ".xelgdd"), ReadAll(done + ".xelgdd"));
    EXPECT_EQ(db.RetrievePolygon(3).size(), 3u);
}

TEST(GeoDBDamage, DirectoryInPlaceOfAFileIsAnError)
{
    ScratchDir dir;
    fs::create_directories(dir / "dirset.xelgi2");
    TGeoDB db("X");
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

TEST(GeoDBDamage, RandomCorruptionNeverCrashes)
{
    ScratchDir dir;
    const std::string sound = dir / "sound";
    BuildSound(sound);
    std::map<std::string, Bytes> original;
    for (const char* e : Exts)
        original[e] = ReadAll(sound + e);
    std::mt19937 rng(99);
    const std::string base = dir / "fuzz";
    for (int round = 0; round < 30; ++round) {
        for (const auto& [ext, bytes] : original) {
            Bytes b = bytes;
            const int action = static_cast<int>(rng() % 6);
            if (action == 0 && !b.empty())
                b.resize(rng() % b.size());
            else if (action <= 2)
                for (int k = 0; k < 4 && !b.empty(); ++k)
                    b[rng() % b.size()] = static_cast<std::uint8_t>(rng());
            WriteAll(base + ext, b);
        }
        SCOPED_TRACE(round);
        TGeoDB db;
        try {
            db.SetGDBName(base);
        } catch (const EXELGeoDBError&) {
            continue;
        }
        ExerciseReads(db);
        ExpectIndexesConsistent(db);
        if (db.Damaged()) {
            db.Repair();
            ASSERT_FALSE(db.Damaged());
            ExpectIndexesConsistent(db);
        }
    }
}
