// The halving search and sorted insertion of the indexes, against fixed cases and against a
// simple model on random keys.
#include "geodb/indexes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

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
}  // namespace

TEST(Indexes, ClosestPositionsOverTenTwentyThirty)
{
    const TIxLLRecArray ix = Keys({10.0f, 20.0f, 30.0f});
    struct Case {
        double value;
        int pos1;
    };
    for (const Case c : {Case{5, 1}, Case{10, 1}, Case{20, 2}, Case{25, 3}, Case{30, 3}, Case{35, 4}})
        EXPECT_EQ(ClosestLLPos(ix, 2, c.value) + 1, c.pos1) << c.value;
    EXPECT_EQ(ClosestLLPos(TIxLLRecArray{}, -1, 3.0), 0);
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
    EXPECT_EQ(ix[2].index, 99);
    EXPECT_EQ(ix[3].index, 2);
    EXPECT_EQ(ix[5].index, 4);

    TIxItemIDRecArray one = {{5, 0}, {}};
    SortIxItemIDInto(one, TIxItemIDRec{5, 1});
    EXPECT_EQ(one[0].index, 1);
    EXPECT_EQ(one[1].index, 0);
}

TEST(Indexes, HalvingMeetsAnEqualKeyNotNecessarilyTheFirst)
{
    const TIxLLRecArray ix = Keys({1, 2, 2, 2, 2, 2, 9});
    EXPECT_EQ(ClosestLLPos(ix, 6, 2.0), 3);  // mid of 0..6
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
        ASSERT_TRUE(std::is_sorted(ix.begin(), ix.end(),
                                   [](const TIxLLRec& a, const TIxLLRec& b) { return a.LLValue < b.LLValue; }));
        ASSERT_EQ(ix.size(), model.size());
    }
    for (std::size_t i = 0; i < ix.size(); ++i)
        EXPECT_EQ(ix[i].LLValue, model[i]);
    for (int probe = -60; probe <= 60; ++probe) {
        const double v = probe * 0.5 + 0.25;  // never equal to a key
        const auto lb = std::lower_bound(model.begin(), model.end(), v,
                                         [](float a, double b) { return static_cast<double>(a) < b; });
        EXPECT_EQ(ClosestLLPos(ix, static_cast<int>(ix.size()) - 1, v), lb - model.begin());
        const double hit = probe * 0.5;
        const int pos = ClosestLLPos(ix, static_cast<int>(ix.size()) - 1, hit);
        if (std::binary_search(model.begin(), model.end(), static_cast<float>(hit))) {
            EXPECT_EQ(static_cast<double>(ix[static_cast<std::size_t>(pos)].LLValue), hit);
        }
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
    EXPECT_EQ(ix.front().index, 1);
    TIxItemIDRecArray ids;
    BuildIndexItemID(table, ids);
    EXPECT_EQ(CheckIndexItemID(table, ids), "");
    EXPECT_EQ(ids.front().ItemID, 7);

    TIxLLRecArray bad = ix;
    std::swap(bad[0], bad[3]);
    EXPECT_NE(CheckIndexLL(table, 1, bad), "");
    bad = ix;
    bad[2].index = 9;
    EXPECT_NE(CheckIndexLL(table, 1, bad), "");
    bad = ix;
    bad[2].index = bad[1].index;
    EXPECT_NE(CheckIndexLL(table, 1, bad), "");
    bad = ix;
    bad.pop_back();
    EXPECT_NE(CheckIndexLL(table, 1, bad), "");
    EXPECT_NE(CheckIndexLL(table, 2, ix), "");  // keys of the wrong corner
}

TEST(Indexes, MergeTailKeepsOrderWithNaNKeysLast)
{
    TIxLLRecArray ix = Keys({1, 3, 5});
    ix.push_back(TIxLLRec{std::numeric_limits<float>::quiet_NaN(), 3});
    ix.push_back(TIxLLRec{2, 4});
    ix.push_back(TIxLLRec{-1, 5});
    MergeTailLL(ix, 3);
    const std::int32_t order[] = {5, 0, 4, 1, 2, 3};
    for (std::size_t i = 0; i < ix.size(); ++i)
        EXPECT_EQ(ix[i].index, order[i]);
}
