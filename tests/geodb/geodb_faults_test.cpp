// Write failures at every step: each writing operation runs with the N-th file-changing step failing
// (N = 1, 2, ... until it completes untouched). Every failure carries the documented message; afterwards
// the set opens (Repair allowed) and holds either the items from before the operation or those from after
// it, nothing else: no committed item is lost, no half-written one appears.
#include <qvgeo/geodb/binary_io.h>
#include <qvgeo/geodb/geodb.h>

#include "db_test_util.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <sstream>

using namespace qv;
using namespace qvtest;
namespace fs = std::filesystem;

namespace {

// One line per item: everything a user can read of it (identifier, fields, points or BLOB contents).
std::vector<std::string> ItemsOf(TGeoDB& db)
{
    std::vector<std::string> items;
    for (int r = 1; r <= db.NumEntries(); ++r) {
        const TgdbData d = db.GetSumdata(r);
        std::ostringstream s;
        s.precision(9);
        s << d.ItemId << ' ' << d.Name << ' ' << int{d.ItemKind} << ' ' << d.Closed << ' ' << d.Tag << ' '
          << d.LatLow << ' ' << d.LatHigh << ' ' << d.LongLow << ' ' << d.LongHigh << ':';
        if (d.ItemKind == gitBLOB) {
            TMetaInfo meta;
            db.RetrieveBLOB(r, s, meta);
            s << ':' << meta.Caption << ':' << meta.Comment;
        } else {
            for (const TSCoords& p : db.RetrievePolygon(r))
                s << ' ' << p.Latit << ',' << p.Longit;
        }
        items.push_back(s.str());
    }
    return items;
}

// The items of the set as a fresh opening (and, if it reports damage, Repair) finds them.
std::vector<std::string> Settled(const std::string& base)
{
    TGeoDB db;
    db.SetGDBName(base);
    if (db.Damaged()) {
        db.Repair();
        db.SetGDBName("");
        db.SetGDBName(base);
    }
    EXPECT_FALSE(db.Damaged()) << db.DamageReport().front();
    ExpectIndexesConsistent(db);
    return ItemsOf(db);
}

const TSCoords Line[] = {{10, 20}, {11, 21}, {12, 19}};

// Rivers, towns, a BLOB; one replacement and one deletion leave garbage for a compaction.
void BuildSet(const std::string& base)
{
    TGeoDB db;
    db.SetGDBName(base);
    db.AddRiver("r1", Line);
    db.AddTown("t1", 30, 40);
    db.AddRiver("r2", Line);
    TgdbData blob{.Name = "b"};
    TMetaInfo meta;
    meta.Caption = "five bytes";
    db.AddBLOB(blob, std::vector<std::uint8_t>{1, 2, 3, 4, 5}, meta);
    db.AddTown(std::string(59, 'n'), -30, -40);  // the longest name
    db.ReplaceTown(2, "t1b", 31, 41);
    db.DeleteData(3);
}

using SetFn = std::function<void(const std::string& base)>;
using OpFn = std::function<void(TGeoDB& db)>;

struct FaultCase {
    const char* what;
    OpFn op;
    SetFn damage = {};  // applied to the set before the operation (Repair cases)
    const char* message = "Component \"F\": AddData: cannot open database.";
};

void BulkLoad(TGeoDB& db)
{
    db.BeginUpdate();
    for (int i = 0; i < 40; ++i)
        db.AddTown("bulk" + std::to_string(i), i * 0.5, -i * 0.25, i);
    db.AddRoad("bulk road", Line);
    TgdbData blob{.Name = "bulk blob"};
    db.AddBLOB(blob, std::vector<std::uint8_t>(3000, 7));
    db.EndUpdate();
}

}  // namespace

TEST(GeoDBFaults, EveryWriteStepMayFail)
{
    const FaultCase cases[] = {
        {"bulk load", BulkLoad},
        {"bulk load with LazyWrite, closed", [](TGeoDB& db) {
             db.SetLazyWrite(true);
             BulkLoad(db);
             db.SetGDBName("");
         }},
        {"GarbageCollection", [](TGeoDB& db) { db.GarbageCollection(); }},
        {"Repair of a sound set", [](TGeoDB& db) { db.Repair(); }},
        {"Repair: offset outside, index deleted", [](TGeoDB& db) { db.Repair(); },
         [](const std::string& b) {
             Patch(".xelgds", 76, 0x7FFFFF00u)(b);
             fs::remove(b + ".xelgi2");
         }},
        {"Repair: invalid header, a record of stray bytes", [](TGeoDB& db) { db.Repair(); },
         [](const std::string& b) {
             Patch(".xelgdd", 4, 0xDEADBEEF)(b);
             Bytes t = ReadAll(b + ".xelgds");
             t.insert(t.end(), 120, 0xEE);
             WriteAll(b + ".xelgds", t);
         }},
        {"Repair: left-over compaction marker", [](TGeoDB& db) { db.Repair(); },
         [](const std::string& b) { WriteAll(b + ".xelgdx", {}); }},
        {"RecalcIndexes", [](TGeoDB& db) { db.RecalcIndexes(); }},
        {"AddRiver", [](TGeoDB& db) { db.AddRiver("new", Line); }},
        {"AddBLOB", [](TGeoDB& db) {
             TgdbData d{.Name = "new blob"};
             db.AddBLOB(d, std::vector<std::uint8_t>(100, 1));
         }},
        {"DeleteData", [](TGeoDB& db) { db.DeleteData(1); }},
        {"DeleteData of several", [](TGeoDB& db) { db.DeleteData(std::vector<int>{1, 3}); }},
        {"LazyWrite switched off", [](TGeoDB& db) {
             db.SetLazyWrite(true);
             db.AddTown("lazy", 1, 1);
             db.SetLazyWrite(false);
         }},
        {"ReplaceRiver", [](TGeoDB& db) { db.ReplaceRiver(1, "replaced", Line); }},
        {"UpdateBasicData", [](TGeoDB& db) { db.UpdateBasicData(2, TgdbData{.Name = "renamed", .Tag = 9}); }},
        {"UpdateMetaInfo", [](TGeoDB& db) { TMetaInfo m;
             m.Comment = "new";
             db.UpdateMetaInfo(3, m); }},
        {"SetDescription", [](TGeoDB& db) { db.SetDescription("new"); }, {},
         "Component \"F\": SetDescription: cannot open database."},
        {"SetRevision", [](TGeoDB& db) { db.SetRevision(7); }, {},
         "Component \"F\": SetRevision: cannot open database."},
    };
    ScratchDir dir;
    BuildSet(dir / "sound");
    for (const FaultCase& c : cases) {
        SCOPED_TRACE(c.what);
        const auto prepare = [&](const std::string& base) {
            for (const std::string e : SetExts)
                fs::copy_file(dir / ("sound" + e), base + e, fs::copy_options::overwrite_existing);
            if (c.damage)
                c.damage(base);
        };
        // The items before the operation and after it, each on its own copy.
        ScratchDir ref;
        prepare(ref / "before");
        const auto before = Settled(ref / "before");
        prepare(ref / "after");
        {
            TGeoDB db("F");
            db.SetGDBName(ref / "after");
            c.op(db);
        }
        const auto after = Settled(ref / "after");
        ASSERT_GT(before.size(), 2u);

        bool completed = false;
        for (int n = 1; n < 200 && !completed; ++n) {
            SCOPED_TRACE("failing step " + std::to_string(n));
            ScratchDir work;
            const std::string base = work / "set";
            prepare(base);
            {
                TGeoDB db("F");
                db.SetGDBName(base);
                SetIoFaultAfter(n);
                try {
                    c.op(db);
                } catch (const EXELGeoDBError& e) {
                    EXPECT_TRUE(IoFaultHappened()) << e.what();
                    EXPECT_STREQ(e.what(), c.message);
                }
                completed = !IoFaultHappened();
                SetIoFaultAfter(0);
                if (HasFailure())
                    return;
                // An object that does not call its set damaged must agree with the files.
                if (!db.Damaged() && db.IsOpen()) {
                    TGeoDB fresh;
                    fresh.SetGDBName(base);
                    if (!fresh.Damaged()) {
                        EXPECT_EQ(ItemsOf(db), ItemsOf(fresh));
                    }
                }
            }
            const auto got = Settled(base);
            if (completed)
                EXPECT_EQ(got, after);
            else
                EXPECT_TRUE(got == before || got == after);
            if (HasFailure())
                return;
        }
        EXPECT_TRUE(completed);
    }
}
