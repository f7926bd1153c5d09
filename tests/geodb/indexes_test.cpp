// The halving search and sorted insertion of the indexes, against fixed cases and against a
// simple model on random keys.
#include <qvgeo/geodb/indexes.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <string>
#include <iterator>
#include <limits>
#include <random>
#include <utility>
#include <vector>

using namespace qv;

namespace {
TIxLLRecArray Keys(std::initializer_list<float> ks)
{
    TIxLLRecArray ix;
    std::int32_t i = 0;
    for (float k : ks)
        ix.push_back(TIxLLRec{k, i++});
    return ix;
}

template <class Ix>
std::vector<std::int32_t> Records(const Ix& ix)
{
    std::vector<std::int32_t> out;
    for (const auto& e : ix)
        out.push_back(e.index);
    return out;
}
}  // namespace

TEST(Indexes, ClosestPositionsOverTenTwentyThirty)
{
    const TIxLLRecArray ix = Keys({10.0f, 20.0f, 30.0f});
    for (const auto& [value, pos1] : {std::pair{5.0, 1}, {10.0, 1}, {20.0, 2}, {25.0, 3}, {30.0, 3}, {35.0, 4}})
        EXPECT_EQ(ClosestLLPos(ix, 2, value) + 1, pos1) << value;
    EXPECT_EQ(ClosestLLPos(TIxLLRecArray{}, -1, 3.0), 0);
    // Over a run of equal keys the halving answers the first equal key it meets, here the middle of 0..6.
    EXPECT_EQ(ClosestLLPos(Keys({1, 2, 2, 2, 2, 2, 9}), 6, 2.0), 3);
}

TEST(Indexes, FloatKeysAreComparedAsDoubles)
{
    const float k = 47.1f;  // 47.09999847..., below the double 47.1
    ASSERT_LT(static_cast<double>(k), 47.1);
    const TIxLLRecArray ix = Keys({10.0f, k, 50.0f});
    EXPECT_EQ(ClosestLLPos(ix, 2, 47.1) + 1, 3);
    EXPECT_EQ(ClosestLLPos(ix, 2, static_cast<double>(k)) + 1, 2);
}

TEST(Indexes, EqualKeyGoesInFrontOfTheEqualKeyTheSearchMet)
{
    // Halving over 5 entries meets position 2 first: the new 7 lands at 2, not at the start of the run.
    TIxItemIDRecArray ix = {{7, 0}, {7, 1}, {7, 2}, {7, 3}, {7, 4}, {}};
    SortIxItemIDInto(ix, TIxItemIDRec{7, 99});
    EXPECT_EQ(Records(ix), (std::vector<std::int32_t>{0, 1, 99, 2, 3, 4}));

    TIxItemIDRecArray one = {{5, 0}, {}};
    SortIxItemIDInto(one, TIxItemIDRec{5, 1});
    EXPECT_EQ(Records(one), (std::vector<std::int32_t>{1, 0}));
}

TEST(Indexes, RandomInsertionsStaySortedAndMatchLowerBoundWhenAbsent)
{
    std::mt19937 rng(12345);
    std::uniform_int_distribution<int> key(-50, 50);
    TIxLLRecArray ix;
    std::vector<float> model;
    for (int i = 0; i < 600; ++i) {
        const float k = static_cast<float>(key(rng)) * 0.5f;
        ix.emplace_back();
        SortIxInto(ix, TIxLLRec{k, i});
        model.insert(std::upper_bound(model.begin(), model.end(), k), k);
        std::vector<float> keys;
        for (const TIxLLRec& e : ix)
            keys.push_back(e.LLValue);
        ASSERT_EQ(keys, model) << "after inserting " << k;
    }
    for (int probe = -60; probe <= 60; ++probe) {
        const double v = probe * 0.5 + 0.25;  // never equal to a key
        const auto lb = std::lower_bound(model.begin(), model.end(), v,
                                         [](float a, double b) { return static_cast<double>(a) < b; });
        EXPECT_EQ(ClosestLLPos(ix, static_cast<int>(ix.size()) - 1, v), lb - model.begin());
    }
}

TEST(Indexes, BuildAndCheckAgainstATable)
{
    std::vector<TgdbData> table(4);
    const float lat[] = {5, -3, 5, 1};
    for (std::size_t i = 0; i < 4; ++i) {
        table[i].ItemId = static_cast<std::int32_t>(10 - i);
        table[i].LatLow = lat[i];
        table[i].LatHigh = lat[i] + 1;
    }
    TIxLLRecArray ix;
    BuildIndexLL(table, 1, ix);
    EXPECT_EQ(CheckIndexLL(table, 1, ix), "");
    TIxItemIDRecArray ids;
    BuildIndexItemID(table, ids);
    EXPECT_EQ(CheckIndexItemID(table, ids), "");
    EXPECT_EQ(ids.front().ItemID, 7);

    // Index 1 holds the keys -3 (record 2), 1 (record 4), 5, 5 (records 1 and 3 in either order). Each
    // damage is named in the report a user reads, at the first entry that shows it.
    const std::string lastRec = std::to_string(ix[3].index + 1);
    const std::pair<std::function<void(TIxLLRecArray&)>, std::string> damages[] = {
        {[](TIxLLRecArray& b) { std::swap(b[0], b[1]); }, "entry 2 is out of order"},
        {[](TIxLLRecArray& b) { std::swap(b[0], b[3]); }, "entry 2 is out of order"},
        {[](TIxLLRecArray& b) { b[2].index = 9; }, "entry 3 points to record 10 outside the table"},
        {[](TIxLLRecArray& b) { b[1].index = 4; }, "entry 2 points to record 5 outside the table"},
        {[](TIxLLRecArray& b) { b[0].index = -1; }, "entry 1 points to record 0 outside the table"},
        {[](TIxLLRecArray& b) { b[2].index = b[1].index; }, "record 4 is entered twice"},
        {[](TIxLLRecArray& b) { b[3].LLValue = 6; }, "entry 4 does not carry the key of record " + lastRec},
        {[](TIxLLRecArray& b) { b.pop_back(); }, "holds 3 entries for 4 records"},
    };
    for (const auto& [damage, report] : damages) {
        TIxLLRecArray bad = ix;
        damage(bad);
        EXPECT_EQ(CheckIndexLL(table, 1, bad), report);
    }
    EXPECT_EQ(CheckIndexLL(table, 2, ix), "entry 1 does not carry the key of record 2");  // the wrong corner
}

TEST(Indexes, MergeTailKeepsOrderWithNaNKeysLast)
{
    TIxLLRecArray ix = Keys({1, 3, 5});
    ix.push_back(TIxLLRec{std::numeric_limits<float>::quiet_NaN(), 3});
    ix.push_back(TIxLLRec{2, 4});
    ix.push_back(TIxLLRec{-1, 5});
    MergeTailLL(ix, 3);
    EXPECT_EQ(Records(ix), (std::vector<std::int32_t>{5, 0, 4, 1, 2, 3}));
}

// The search tree compares in float; its answers must be those of the double-precision test, also for
// corners only a hand-made file holds (NaN, infinities, inverted boxes, float extremes) and for edges
// beyond the float range or one double step beside a float.
TEST(Indexes, BoxTreeAnswersAsTheDoubleTest)
{
    constexpr float inf = std::numeric_limits<float>::infinity(), big = std::numeric_limits<float>::max();
    const float odd[] = {std::numeric_limits<float>::quiet_NaN(), inf, -inf, big, -big, -0.0f, 1e-40f, 47.1f};
    const double f471 = 47.1f;
    const double edges[] = {HUGE_VAL, -HUGE_VAL, 1e300, -1e300, big, -big, 0, 1e-40, 47.1,
                            std::nextafter(f471, 0.0), std::nextafter(f471, 99.0)};
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> pos(-50, 50), size(0, 3);
    const auto pick = [&](const auto& from) { return from[rng() % std::size(from)]; };
    std::vector<TgdbData> table(3000);
    for (auto& d : table) {
        d.LatLow = pos(rng), d.LongLow = pos(rng);
        d.LatHigh = d.LatLow + (rng() % 2 ? size(rng) : 0), d.LongHigh = d.LongLow + size(rng);
        float* corners[] = {&d.LatLow, &d.LatHigh, &d.LongLow, &d.LongHigh};
        if (rng() % 5 == 0)
            *pick(corners) = pick(odd);
        d.ItemKind = static_cast<std::uint8_t>(rng() % 10);
    }
    TBoxTree tree;
    tree.Build(table);
    EXPECT_EQ(tree.TableSize(), table.size());
    for (int q = 0; q < 3000; ++q) {
        // Edges: random, special, or on a corner of an item and one double step to either side of it.
        const TgdbData& c = table[rng() % table.size()];
        const double nudge = (rng() % 3) * 1.0 - 1.0;
        const auto edge = [&](float corner, double other) {
            switch (rng() % 4) {
            case 0: return other + size(rng) * 4;
            case 1: return pick(edges);
            default: return nudge == 0 ? corner : std::nextafter(static_cast<double>(corner), nudge * HUGE_VAL);
            }
        };
        const double la = edge(c.LatHigh, pos(rng) - 5), lo = edge(c.LongHigh, pos(rng) - 5);
        const double la2 = edge(c.LatLow, la), lo2 = edge(c.LongLow, lo);
        const auto kind = static_cast<std::uint8_t>(q % 3 == 0 ? rng() % 9 : unsigned{gitUndefined});
        std::vector<int> want, got;
        for (std::size_t r = 0; r < table.size() && la <= la2 && lo <= lo2; ++r) {
            const TgdbData& d = table[r];
            if (d.LatLow <= la2 && d.LatHigh >= la && d.LongLow <= lo2 && d.LongHigh >= lo &&
                (kind == gitUndefined || d.ItemKind == kind))
                want.push_back(static_cast<int>(r) + 1);
        }
        tree.Search(la, lo, la2, lo2, kind, got);
        std::sort(got.begin(), got.end());
        ASSERT_EQ(got, want) << q << ": " << la << " " << lo << " " << la2 << " " << lo2;
    }
}
