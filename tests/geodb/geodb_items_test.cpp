// Editing a TGeoDB: random sequences of additions (single and bulk), replacements, deletions,
// compactions and reopenings against a plain model; the rectangle search against a brute-force scan;
// BLOBs; identifiers; messages.
#include <qvgeo/geodb/geodb.h>

#include "db_test_util.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>
#include <random>
#include <set>
#include <sstream>
#include <thread>
#include <tuple>

using namespace qv;
using namespace qvtest;
using GeoDBItems = DbTest;

namespace {

struct ModelItem {
    std::int32_t id;
    std::string name;
    std::uint8_t kind;
    TgdbPolygon points;
};

TgdbPolygon RandomPoints(std::mt19937& rng)
{
    std::uniform_real_distribution<float> lat(-80, 80), lon(-170, 170), step(-3, 3);
    std::uniform_int_distribution<int> count(1, 6);
    TgdbPolygon p;
    TSCoords c{lat(rng), lon(rng)};
    for (int i = count(rng); i > 0; --i) {
        p.push_back(c);
        c.Latit += step(rng);
        c.Longit += step(rng);
    }
    return p;
}

void ExpectMatchesModel(TGeoDB& db, const std::vector<ModelItem>& model)
{
    // Identifier search and record order of the indexes are checked by ExpectIndexesConsistent.
    ASSERT_EQ(db.NumEntries(), static_cast<int>(model.size()));
    ExpectIndexesConsistent(db);
    for (std::size_t i = 0; i < model.size(); ++i) {
        const TgdbData d = db.GetSumdata(static_cast<int>(i) + 1);
        const TgdbPolygon p = db.RetrievePolygon(static_cast<int>(i) + 1);
        const ModelItem& m = model[i];
        ASSERT_EQ(std::tie(d.ItemId, d.Name, d.ItemKind), std::tie(m.id, m.name, m.kind)) << "record " << i + 1;
        ASSERT_TRUE(std::equal(p.begin(), p.end(), m.points.begin(), m.points.end(), [](TSCoords a, TSCoords b) {
            return a.Latit == b.Latit && a.Longit == b.Longit;
        })) << "points of record " << i + 1;
        const auto [lo, hi] =
            std::minmax_element(p.begin(), p.end(), [](TSCoords a, TSCoords b) { return a.Latit < b.Latit; });
        EXPECT_EQ(std::pair(d.LatLow, d.LatHigh), std::pair(lo->Latit, hi->Latit)) << "record " << i + 1;
    }
}

}  // namespace

TEST_F(GeoDBItems, RandomEditingAgreesWithModel)
{
    std::mt19937 rng(20261121);
    std::vector<ModelItem> model;
    std::int32_t nextId = 1;
    auto live = std::make_unique<TGeoDB>("R");
    live->SetGDBName(dir / "rand");
    const auto add = [&](const std::string& name, std::uint8_t kind) {
        model.push_back(ModelItem{nextId++, name, kind, RandomPoints(rng)});
        TgdbData d{.Name = name, .ItemKind = kind};
        EXPECT_EQ(live->AddData(d, model.back().points), static_cast<int>(model.size()));
        EXPECT_EQ(d.ItemId, model.back().id);
    };
    std::uniform_int_distribution<int> op(0, 99);
    for (int step = 0; step < 120; ++step) {
        const int o = op(rng);
        if (o < 35) {
            add("item" + std::to_string(step), static_cast<std::uint8_t>(rng() % 7));
        } else if (o < 50) {
            live->BeginUpdate();
            const int n = 1 + static_cast<int>(rng() % 12);
            for (int i = 0; i < n; ++i) {
                add("bulk" + std::to_string(step) + "_" + std::to_string(i), gitTown);
                if (i == n / 2) {  // a search inside the bracket sees what was added so far
                    EXPECT_EQ(live->SearchForItemID(model.back().id), static_cast<int>(model.size()));
                }
            }
            live->EndUpdate();
        } else if (o < 65 && !model.empty()) {
            const std::size_t i = rng() % model.size();
            model[i].name = "replaced" + std::to_string(step);
            model[i].kind = gitRoad;
            model[i].points = RandomPoints(rng);
            live->ReplaceRoad(static_cast<int>(i) + 1, model[i].name, model[i].points);
        } else if (o < 82 && !model.empty()) {
            const std::size_t i = rng() % model.size();
            live->DeleteData(static_cast<int>(i) + 1);
            model.erase(model.begin() + static_cast<std::ptrdiff_t>(i));
        } else if (o < 85 && !model.empty()) {
            std::vector<int> recNos;
            for (int k = static_cast<int>(rng() % 4); k >= 0; --k)
                recNos.push_back(1 + static_cast<int>(rng() % model.size()));
            recNos.push_back(recNos.front());  // a repeat is harmless
            live->DeleteData(recNos);
            for (int r : std::set<int, std::greater<>>(recNos.begin(), recNos.end()))
                model.erase(model.begin() + (r - 1));
        } else if (o < 88) {
            live->GarbageCollection();
            EXPECT_EQ(live->GarbageBytes(), 0);
        } else if (o < 91) {
            live->RecalcIndexes();
        } else if (o < 95) {
            live->SetLazyWrite(!live->LazyWrite());
        } else {
            // Reopen from the files alone.
            live = std::make_unique<TGeoDB>("R");
            live->SetGDBName(dir / "rand");
            ASSERT_FALSE(live->Damaged()) << live->DamageReport().front();
        }
        ExpectMatchesModel(*live, model);
        if (HasFatalFailure())
            return;
        for (int q = 0; q < 3; ++q) {
            std::uniform_real_distribution<double> la(-85, 85), lo(-175, 175), sz(0, 20);
            const double a = la(rng), b = lo(rng), c = a + sz(rng), e = b + sz(rng);
            ASSERT_EQ(live->SearchData(a, b, c, e), BruteForce(*live, a, b, c, e));
        }
    }
    live.reset();
    db.SetGDBName(dir / "rand");
    EXPECT_FALSE(db.Damaged());
    EXPECT_EQ(db.HighestID(), nextId - 1);
    ExpectMatchesModel(db, model);
}

TEST_F(GeoDBItems, SearchDataEqualsBruteForce)
{
    std::mt19937 rng(7);
    db.SetGDBName(dir / "search");
    db.SetLazyWrite(true);
    db.BeginUpdate();
    std::uniform_real_distribution<float> lat(-60, 60), lon(-120, 120), size(0, 1);
    for (int i = 0; i < 3000; ++i) {
        // Mostly points, some small boxes, a few wide ones.
        const float s = i % 50 == 0 ? 40 * size(rng) : i % 3 == 0 ? 2 * size(rng) : 0;
        const TSCoords a{lat(rng), lon(rng)};
        const TSCoords pts[] = {a, {a.Latit + s, a.Longit + s * 1.5f}};
        TgdbData d;
        d.ItemKind = static_cast<std::uint8_t>(i % 7);
        db.AddData(d, std::span<const TSCoords>(pts, s > 0 ? 2 : 1));
    }
    std::uniform_real_distribution<double> qlat(-70, 70), qlon(-130, 130), qsize(0, 8);
    for (int q = 0; q < 300; ++q) {
        const double la = qlat(rng), lo = qlon(rng);
        const double la2 = la + qsize(rng) * (q % 10 == 0 ? 10 : 1), lo2 = lo + qsize(rng);
        const TgdbItem kind = q % 4 == 0 ? static_cast<TgdbItem>(q % 7) : gitUndefined;
        ASSERT_EQ(db.SearchData(la, lo, la2, lo2, kind), BruteForce(db, la, lo, la2, lo2, kind)) << q;
    }
    db.EndUpdate();
    // Edges are included; an inverted rectangle meets nothing.
    const TgdbData first = db.GetSumdata(1);
    const auto hit = db.SearchData(first.LatHigh, first.LongHigh, first.LatHigh + 1.0, first.LongHigh + 1.0);
    EXPECT_TRUE(std::binary_search(hit.begin(), hit.end(), 1));
    // A replacement by a huge item (the random editing above covers deletions and small moves).
    const TSCoords wide[] = {{-80, -170}, {80, 170}};
    db.ReplaceBorder(5, "wide", wide);
    const auto borders = db.SearchData(0, 0, 0.5, 0.5, gitBorder);
    EXPECT_EQ(borders, BruteForce(db, 0, 0, 0.5, 0.5, gitBorder));
    EXPECT_TRUE(std::binary_search(borders.begin(), borders.end(), 5));
    EXPECT_TRUE(db.SearchData(10, 10, -10, -10).empty());  // inverted: no rectangle at all
}

TEST_F(GeoDBItems, ConcurrentSearchesAgreeWithOneThread)
{
    // Inside a bulk bracket the index tails are unsorted and no tree exists: the first searches settle
    // the indexes, later ones build the tree, all while other threads search.
    std::mt19937 rng(11);
    db.SetGDBName(dir / "threads");
    db.SetLazyWrite(true);
    db.BeginUpdate();
    std::uniform_real_distribution<float> lat(-60, 60), lon(-120, 120);
    for (int i = 0; i < 4000; ++i) {
        const TSCoords pts[] = {{lat(rng), lon(rng)}};
        TgdbData d;
        db.AddData(d, pts);
    }
    std::vector<std::array<double, 4>> queries;
    std::vector<std::vector<int>> expected;
    for (int q = 0; q < 400; ++q) {
        const double la = lat(rng), lo = lon(rng);
        queries.push_back({la, lo, la + 4, lo + 4});
        expected.push_back(BruteForce(db, la, lo, la + 4, lo + 4));
    }
    std::atomic<int> wrong = 0;
    const auto run = [&](int first) {
        for (std::size_t k = 0; k < queries.size(); ++k) {
            const std::size_t q = (k + static_cast<std::size_t>(first) * 97) % queries.size();
            const auto& r = queries[q];
            wrong += db.SearchData(r[0], r[1], r[2], r[3]) != expected[q];
        }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back(run, t);
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(wrong, 0);
    db.EndUpdate();
}

TEST_F(GeoDBItems, TypedFormsAndLocations)
{
    db.SetGDBName(dir / "typed");
    const TSCoords ring[] = {{46, 9}, {47, 9}, {47, 10}, {46, 10}};
    const std::tuple<int, TgdbItem, bool> cases[] = {  // record number, kind, closed
        {db.AddBorder("b", ring), gitBorder, true}, {db.AddLake("l", ring), gitLake, true},
        {db.AddRiver("r", ring), gitRiver, false},  {db.AddRoad("d", ring), gitRoad, false},
        {db.AddRoute("t", ring), gitRoute, false},  {db.AddTown("w", 48.2, 16.37, 171), gitTown, false},
        {db.AddCity("c", -33.9, 151.2), gitCity, false},
    };
    for (const auto& [recNo, kind, closed] : cases) {
        const TgdbData d = db.GetSumdata(recNo);
        EXPECT_EQ(std::tuple(d.ItemKind, d.Closed, d.ItemId), std::tuple(std::uint8_t{kind}, closed, recNo));
        EXPECT_GT(d.Date, 45000);  // stamped with the present day
    }
    const TPositionData town = db.ExtractLocation(6), border = db.ExtractLocation(1);
    EXPECT_EQ(std::tuple(town.Latit, town.Longit, town.Height), std::tuple(double{48.2f}, double{16.37f}, 171.0));
    EXPECT_EQ(std::pair(border.Latit, border.Longit), std::pair(46.5, 9.5));  // the middle of the bounding box
    db.ReplaceCity(6, "Wien", 48.21, 16.37, 190);
    EXPECT_EQ(std::pair(db.GetSumdata(6).ItemKind, db.GetSumdata(6).ItemId), std::pair(std::uint8_t{gitCity}, 6));
    EXPECT_EQ(db.GarbageBytes(), 8);
    TgdbData basic = db.GetSumdata(6);
    basic.Name = std::string(70, 'n');
    basic.Tag = 42;
    basic.LatLow = -99;  // geometry is not taken over
    db.UpdateBasicData(6, basic);
    db.SetGDBName("");
    db.SetGDBName(dir / "typed");
    const TgdbData updated = db.GetSumdata(6);
    EXPECT_EQ(std::tuple(updated.Name, updated.Tag, updated.LatLow), std::tuple(std::string(59, 'n'), 42, 48.21f));
}

TEST_F(GeoDBItems, DeleteRenumbersAndCompactionReclaims)
{
    db.SetGDBName(dir / "gc");
    const TSCoords line[] = {{1, 1}, {2, 2}, {3, 3}};
    for (int i = 0; i < 5; ++i)
        db.AddRiver("r" + std::to_string(i), line);
    EXPECT_EQ(std::filesystem::file_size(dir / "gc.xelgdd"), 260u + 5 * 24);
    db.DeleteData(2);
    db.DeleteData(3);  // was record 4
    EXPECT_EQ(db.NumEntries(), 3);
    EXPECT_EQ(std::pair(db.GetSumdata(2).Name, db.GetSumdata(3).Name), std::pair(std::string("r2"), std::string("r4")));
    EXPECT_EQ(std::filesystem::file_size(dir / "gc.xelgds"), 360u);
    EXPECT_EQ(db.GarbageBytes(), 48);
    db.GarbageCollection();
    EXPECT_EQ(std::filesystem::file_size(dir / "gc.xelgdd"), 260u + 3 * 24);
    EXPECT_EQ(db.GetSumdata(3).BlobOffset, 260 + 48);
    EXPECT_EQ(db.RetrievePolygon(3)[2].Latit, 3.0f);
    for (const auto& e : std::filesystem::directory_iterator(dir.Path()))
        EXPECT_EQ(e.path().extension().string().find("tmp"), std::string::npos) << e.path();
    TGeoDB again;
    again.SetGDBName(dir / "gc");
    EXPECT_FALSE(again.Damaged());
    ExpectIndexesConsistent(again);
}

TEST_F(GeoDBItems, BLOBsInAllForms)
{
    db.SetName("Store");
    db.SetGDBName(dir / "blob");
    const std::vector<std::uint8_t> bytes = {0, 1, 2, 254, 255, 10, 13};
    TMetaInfo meta;
    meta.Caption = "photo";
    meta.Keywords = "alps summit";
    TgdbData d{.Name = "picture", .LatLow = 47, .LatHigh = 47, .LongLow = 11, .LongHigh = 11};
    const int r1 = db.AddBLOB(d, bytes, meta);
    EXPECT_EQ(std::tuple(d.ItemKind, d.Size(), d.BlobOffset), std::tuple(std::uint8_t{gitBLOB}, 7, 260));
    WriteAll(dir / "in.bin", Bytes(3000, 0x5A));
    const int r2 = db.AddBLOB(d, dir / "in.bin");
    std::istringstream in(std::string("stream data"));
    const int r3 = db.AddBLOB(d, in, meta);
    const int r4 = db.AddBLOB(d, std::span<const std::uint8_t>());
    EXPECT_EQ(std::filesystem::file_size(dir / "blob.xelgdd"), 260u + 4 * 1024 + 7 + 3000 + 11);

    TMetaInfo got;
    std::vector<std::uint8_t> buf(7);
    const auto expectContents = [&] {  // leaves the meta information of r1 in `got`
        db.RetrieveBLOB(r2, dir / "out.bin", got);
        EXPECT_EQ(ReadAll(dir / "out.bin"), Bytes(3000, 0x5A));
        EXPECT_EQ(db.RetrieveBLOB(r1, buf, got), 7);
        EXPECT_EQ(buf, bytes);
    };
    expectContents();
    EXPECT_EQ(got.Caption, "photo");
    EXPECT_EQ(db.GetMetaInfo(r2).FilePath, dir / "in.bin");
    std::ostringstream out;
    db.RetrieveBLOB(r3, out, got);
    EXPECT_EQ(out.str(), "stream data");
    EXPECT_EQ(db.RetrieveBLOB(r4, buf, got), 0);
    EXPECT_TRUE(db.RetrievePolygon(r1).empty());
    EXPECT_EQ(db.SearchData(46, 10, 48, 12, gitBLOB).size(), 4u);

    std::vector<std::uint8_t> small(6);
    EXPECT_DB_ERROR(db.RetrieveBLOB(r1, small, got),
                    "Component \"Store\": RetrieveBLOB: BLOB to be retrieved is larger than SizeOfBlobData.");
    for (const std::string& bad : {std::string(), dir / "no/such/dir/x.bin"})
        EXPECT_DB_ERROR(db.RetrieveBLOB(r2, bad, got), "Component \"Store\": RetrieveBLOB: invalid filename.");
    EXPECT_THROW(db.AddBLOB(d, dir / "missing.bin"), EXELGeoDBError);
    EXPECT_THROW(db.GetMetaInfo(db.AddTown("t", 1, 1)), EXELGeoDBError);

    TMetaInfo changed = meta;
    changed.Comment = "checked";
    db.UpdateMetaInfo(r1, changed);
    db.GarbageCollection();
    EXPECT_EQ(db.GetMetaInfo(r1).Comment, "checked");
    expectContents();
}

TEST_F(GeoDBItems, Messages)
{
    db.SetName("Geo1");
    TgdbData d;
    const char* const cannotOpen = "Component \"Geo1\": AddData: cannot open database.";
    EXPECT_DB_ERROR(db.AddTown("x", 1, 1), cannotOpen);
    db.SetGDBName(dir / "m2");
    const TSCoords nan[] = {{std::numeric_limits<float>::quiet_NaN(), 0}};
    EXPECT_THROW(db.AddData(d, nan), EXELGeoDBError);
    EXPECT_THROW(db.DeleteData(1), EXELGeoDBError);
    EXPECT_THROW(db.RetrievePolygon(0), EXELGeoDBError);
    EXPECT_EQ(db.NumEntries(), 0);
}

TEST_F(GeoDBItems, ProgressOfBulkWritesAndCompaction)
{
    db.SetGDBName(dir / "prog");
    std::vector<double> seen;
    db.OnPercentDone = [&](TGeoDB&, double pct) { seen.push_back(pct); };
    db.BeginUpdate();
    for (int i = 0; i < 500; ++i)
        db.AddTown("t", i * 0.1, i * 0.1);
    EXPECT_TRUE(seen.empty());  // nothing is written before the bracket ends
    db.EndUpdate();
    EXPECT_GE(seen.size(), 10u);
    ExpectProgress(seen);
    seen.clear();
    db.DeleteData(std::vector<int>{1, 2, 3});
    db.GarbageCollection();
    ExpectProgress(seen);
}

TEST_F(GeoDBItems, ReadSystemInformationSeesAnotherWriter)
{
    TGeoDB a, b;
    a.SetGDBName(dir / "shared");
    b.SetGDBName(dir / "shared");
    a.SetDescription("written by a");
    a.SetRevision(4);
    EXPECT_EQ(b.GetDescription(), "");  // getters never read the file
    b.ReadSystemInformation();
    EXPECT_EQ(b.GetDescription(), "written by a");
    EXPECT_EQ(b.GetRevision(), 4);
}
