// Database searches at exact edges: items on each edge of a search box, boxes of no width or height,
// the poles and the date line (plain rectangles, no wrap), the first and the last index entry. The
// rectangle search answers through index bands until it has scanned about as much as building its box
// tree costs, then through the tree: every case runs on both.
#include <qvgeo/geodb/geodb.h>

#include "db_test_util.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <random>

using namespace qv;
using namespace qvtest;
using GeoDBSearchEdges = DbTest;

namespace {

double Up(double v) { return std::nextafter(v, HUGE_VAL); }
double Down(double v) { return std::nextafter(v, -HUGE_VAL); }

// Enough searches of the whole table that the next ones go through the box tree.
void WarmUp(const TGeoDB& db)
{
    for (int i = 0; i < 12; ++i)
        (void)db.SearchData(-1000, -1000, 1000, 1000);
}

}  // namespace

TEST_F(GeoDBSearchEdges, ItemsOnTheEdgesOfTheBox)
{
    const std::string base = dir / "edges";
    db.SetGDBName(base);
    db.AddTown("town", 10, 20);                                  // 1
    const TSCoords box[] = {{30, 40}, {30.25f, 40.375f}};         // narrow: 0.25 by 0.375 degrees
    db.AddRiver("box", box);                                     // 2
    db.AddTown("north pole", 90, 0);                             // 3
    db.AddTown("south pole", -90, 0);                            // 4
    db.AddTown("east date line", 0, 180);                        // 5
    db.AddTown("west date line", 0, -180);                       // 6
    const TSCoords wide[] = {{50, 50}, {60, 50}, {60, 70}, {50, 70}};
    db.AddBorder("wide", wide);                                  // 7
    const std::vector<int> all = {1, 2, 3, 4, 5, 6, 7};
    const double nan = std::numeric_limits<double>::quiet_NaN();

    struct Case {
        const char* what;
        double latLo, lonLo, latHi, lonHi;
        std::vector<int> want;
        TgdbItem kind = gitUndefined;
    };
    const Case cases[] = {
        {"box of no size on the town", 10, 20, 10, 20, {1}},
        {"town on the south edge", 10, 19, 11, 21, {1}},
        {"town on the north edge", 9, 19, 10, 21, {1}},
        {"town on the west edge", 9, 20, 11, 21, {1}},
        {"town on the east edge", 9, 19, 11, 20, {1}},
        {"one step north of the town", Up(10), 19, 11, 21, {}},
        {"one step south of the town", 9, 19, Down(10), 21, {}},
        {"one step east of the town", 9, Up(20), 11, 21, {}},
        {"one step west of the town", 9, 19, 11, Down(20), {}},
        {"no height, across the box", 30.125, 0, 30.125, 50, {2}},
        {"no width, on the box's east edge", 0, 40.375, 35, 40.375, {2}},
        {"box's north edge on the south edge", 30.25, 39, 31, 41, {2}},
        {"box's south edge on the north edge", 29, 39, 30, 41, {2}},
        {"box's east edge on the west edge", 29, 40.375, 31, 41, {2}},
        {"box's west edge on the east edge", 29, 39, 31, 40, {2}},
        {"one step north of the box", Up(30.25), 39, 31, 41, {}},
        {"one step east of the box", 29, Up(40.375), 31, 41, {}},
        {"inside the box, which spans it", 30.125, 40.125, 30.125, 40.25, {2}},
        {"the north pole", 90, -180, 90, 180, {3}},
        {"the south pole", -90, -180, -90, 180, {4}},
        {"on the date line, east", -1, 180, 1, 180, {5}},
        {"on the date line, west", -1, -180, 1, -180, {6}},
        {"past 180 does not wrap", -1, 179, 1, 190, {5}},
        {"past -180 does not wrap", -1, -190, 1, -179, {6}},
        {"across the date line written west above east", -1, 179, 1, -179, {}},
        {"the whole world", -90, -180, 90, 180, all},
        {"beyond the world", -100, -200, 100, 200, all},
        {"infinite edges", -HUGE_VAL, -HUGE_VAL, HUGE_VAL, HUGE_VAL, all},
        {"no height at infinity", HUGE_VAL, -HUGE_VAL, HUGE_VAL, HUGE_VAL, {}},
        {"wide item's corner on the corner", 40, 40.5, 50, 50, {7}},
        {"no size, inside the wide item", 55, 60, 55, 60, {7}},
        {"one step beyond the wide item's corner", Up(60), Up(70), 61, 71, {}},
        {"NaN edge", nan, 0, 10, 10, {}},
        {"towns at the north pole", 90, -180, 90, 180, {3}, gitTown},
        {"rivers at the north pole", 90, -180, 90, 180, {}, gitRiver},
        {"borders at the corner", 40, 40.5, 50, 50, {7}, gitBorder},
    };
    for (const bool tree : {false, true}) {
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(c.what) + (tree ? " (tree)" : " (bands)"));
            // Reopened, the set has scanned nothing yet and answers through the bands.
            db.SetGDBName("");
            db.SetGDBName(base);
            if (tree)
                WarmUp(db);
            EXPECT_EQ(db.SearchData(c.latLo, c.lonLo, c.latHi, c.lonHi, c.kind), c.want);
        }
    }
}

// Items and searches on a grid of eighths of a degree, so that edges meet corners all the time; boxes
// are taller in longitude than in latitude, and a few are wide. A scan of the records is the oracle.
TEST_F(GeoDBSearchEdges, GridSearchesEqualAScan)
{
    const std::string base = dir / "grid";
    db.SetGDBName(base);
    db.SetLazyWrite(true);
    std::mt19937 rng(424242);
    const auto grid = [&](int from, int to) { return (from + static_cast<int>(rng() % (to - from + 1))) / 8.0; };
    db.BeginUpdate();
    for (int i = 0; i < 1200; ++i) {
        const double lat = grid(0, 48), lon = grid(0, 48);
        const bool isWide = i % 40 == 0;
        const double dLat = isWide ? grid(8, 24) : grid(0, 1), dLon = isWide ? grid(8, 24) : grid(0, 3);
        const TSCoords pts[] = {{static_cast<float>(lat), static_cast<float>(lon)},
                                {static_cast<float>(lat + dLat), static_cast<float>(lon + dLon)}};
        TgdbData d;
        d.ItemKind = static_cast<std::uint8_t>(i % 3);
        db.AddData(d, pts);
    }
    db.EndUpdate();
    db.SetLazyWrite(false);
    int reopenIn = 0;
    for (int q = 0; q < 900; ++q) {
        const bool tree = q >= 600;
        if (q == 600 || (!tree && reopenIn-- == 0)) {
            // Bands for the first 600 searches (reopened before they add up to a tree), then the tree.
            db.SetGDBName("");
            db.SetGDBName(base);
            reopenIn = 10;
            if (tree)
                WarmUp(db);
        }
        const double la = grid(-4, 52), lo = grid(-4, 52);
        const double la2 = la + (q % 3 == 0 ? 0 : grid(0, 8)), lo2 = lo + (q % 3 == 1 ? 0 : grid(0, 8));
        const TgdbItem kind = q % 5 == 0 ? static_cast<TgdbItem>(q % 3) : gitUndefined;
        ASSERT_EQ(db.SearchData(la, lo, la2, lo2, kind), BruteForce(db, la, lo, la2, lo2, kind))
            << q << ": " << la << " " << lo << " " << la2 << " " << lo2;
    }
}

// Index positions and accessors at the first and last entries of each index, where the keys of a
// corner index are in another order than the records (LongLow falls as the record number rises).
TEST_F(GeoDBSearchEdges, FirstAndLastIndexEntries)
{
    db.SetGDBName(dir / "ends");
    for (int r = 1; r <= 5; ++r) {
        const TSCoords pts[] = {{10.0f * r, -10.0f * r}, {10.0f * r + 5, -10.0f * r + 5}};
        db.AddRiver("r" + std::to_string(r), pts);
    }
    // Sorted keys of the four corner indexes and the record (1-based) at each position.
    struct Ix {
        std::int32_t (TGeoDB::*closest)(double) const;
        TIxLLRec (TGeoDB::*entry)(int) const;
        std::vector<double> keys;
        std::vector<int> records;
    };
    const Ix ixs[] = {
        {&TGeoDB::GetClosestLatLowIx, &TGeoDB::GetIxLatLow, {10, 20, 30, 40, 50}, {1, 2, 3, 4, 5}},
        {&TGeoDB::GetClosestLatHighIx, &TGeoDB::GetIxLatHigh, {15, 25, 35, 45, 55}, {1, 2, 3, 4, 5}},
        {&TGeoDB::GetClosestLongLowIx, &TGeoDB::GetIxLongLow, {-50, -40, -30, -20, -10}, {5, 4, 3, 2, 1}},
        {&TGeoDB::GetClosestLongHighIx, &TGeoDB::GetIxLongHigh, {-45, -35, -25, -15, -5}, {5, 4, 3, 2, 1}},
    };
    for (std::size_t k = 0; k < std::size(ixs); ++k) {
        const Ix& ix = ixs[k];
        SCOPED_TRACE("index " + std::to_string(k + 1));
        // Keys are distinct: the position of a value is one more than the number of keys below it.
        for (const double key : ix.keys)
            for (const double v : {key - 1, Down(key), key, Up(key), key + 1}) {
                const auto below = std::count_if(ix.keys.begin(), ix.keys.end(), [&](double x) { return x < v; });
                EXPECT_EQ((db.*ix.closest)(v), below + 1) << v;
            }
        for (int i = -1; i <= 7; ++i) {
            const int at = std::clamp(i, 1, 5);
            const TIxLLRec e = (db.*ix.entry)(i);
            EXPECT_EQ(std::pair(static_cast<double>(e.LLValue), e.index),
                      std::pair(ix.keys[static_cast<std::size_t>(at - 1)], ix.records[static_cast<std::size_t>(at - 1)]))
                << i;
        }
    }
    // Identifiers 1..5, then without 3: the first, the last, and those beyond either end.
    const auto ids = [&](std::initializer_list<std::pair<std::int32_t, int>> want) {
        for (const auto& [id, recNo] : want)
            EXPECT_EQ(db.SearchForItemID(id), recNo) << id;
    };
    ids({{1, 1}, {5, 5}, {0, 0}, {6, 0}, {-1, 0}, {INT_MAX, 0}, {INT_MIN, 0}});
    EXPECT_EQ(std::tuple(db.GetClosestItemIDIx(0), db.GetClosestItemIDIx(1), db.GetClosestItemIDIx(5),
                         db.GetClosestItemIDIx(6)),
              std::tuple(1, 1, 5, 6));
    db.DeleteData(3);
    ids({{1, 1}, {2, 2}, {3, 0}, {4, 3}, {5, 4}, {6, 0}});
    EXPECT_EQ(std::tuple(db.GetClosestItemIDIx(3), db.GetClosestItemIDIx(5), db.GetClosestItemIDIx(6)),
              std::tuple(3, 4, 5));
    // The last identifier issued, once deleted, is not found: its entry has left the end of the index.
    db.DeleteData(4);
    ids({{4, 3}, {5, 0}});
}
