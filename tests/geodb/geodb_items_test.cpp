// Editing a TGeoDB: random sequences of additions (single and bulk), replacements, deletions,
// compactions and reopenings against a plain model; the rectangle search against a brute-force scan;
// BLOBs; identifiers; messages.
#include "geodb/geodb.h"

#include "db_test_util.h"
#include "support/errors.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <sstream>

using namespace qv;
using namespace qvtest;

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
    ASSERT_EQ(db.NumEntries(), static_cast<int>(model.size()));
    ExpectIndexesConsistent(db);
    for (std::size_t i = 0; i < model.size(); ++i) {
        const int r = static_cast<int>(i) + 1;
        const TgdbData d = db.GetSumdata(r);
        ASSERT_EQ(d.ItemId, model[i].id);
        EXPECT_EQ(d.Name, model[i].name);
        EXPECT_EQ(d.ItemKind, model[i].kind);
        EXPECT_EQ(db.SearchForItemID(model[i].id), r);
        const TgdbPolygon p = db.RetrievePolygon(r);
        ASSERT_EQ(p.size(), model[i].points.size());
        for (std::size_t k = 0; k < p.size(); ++k) {
            EXPECT_EQ(p[k].Latit, model[i].points[k].Latit);
            EXPECT_EQ(p[k].Longit, model[i].points[k].Longit);
        }
        float latLow = p[0].Latit, latHigh = p[0].Latit;
        for (const auto& c : p) {
            latLow = std::min(latLow, c.Latit);
            latHigh = std::max(latHigh, c.Latit);
        }
        EXPECT_EQ(d.LatLow, latLow);
        EXPECT_EQ(d.LatHigh, latHigh);
    }
}

std::vector<TgdbData> Table(const TGeoDB& db)
{
    std::vector<TgdbData> t;
    for (int r = 1; r <= db.NumEntries(); ++r)
        t.push_back(db.GetSumdata(r));
    return t;
}

std::vector<int> BruteForce(const std::vector<TgdbData>& table, double latLo, double lonLo, double latHi,
                            double lonHi, TgdbItem kind)
{
    std::vector<int> out;
    for (int r = 1; r <= static_cast<int>(table.size()); ++r) {
        const TgdbData& d = table[static_cast<std::size_t>(r - 1)];
        if (d.LatLow <= latHi && d.LatHigh >= latLo && d.LongLow <= lonHi && d.LongHigh >= lonLo &&
            (kind == gitUndefined || d.ItemKind == kind))
            out.push_back(r);
    }
    return out;
}

}  // namespace

TEST(GeoDBItems, RandomEditingAgreesWithModel)
{
    ScratchDir dir;
    std::mt19937 rng(20261121);
    std::vector<ModelItem> model;
    std::int32_t nextId = 1;
    auto db = std::make_unique<TGeoDB>("R");
    db->SetGDBName(dir / "rand");
    std::uniform_int_distribution<int> op(0, 99);
    for (int step = 0; step < 120; ++step) {
        const int o = op(rng);
        if (o < 35) {
            ModelItem m{nextId++, "item" + std::to_string(step), static_cast<std::uint8_t>(rng() % 7),
                        RandomPoints(rng)};
            TgdbData d;
            d.Name = m.name;
            d.ItemKind = m.kind;
            EXPECT_EQ(db->AddData(d, m.points), static_cast<int>(model.size()) + 1);
            EXPECT_EQ(d.ItemId, m.id);
            model.push_back(m);
        } else if (o < 50) {
            db->BeginUpdate();
            const int n = 1 + static_cast<int>(rng() % 12);
            for (int i = 0; i < n; ++i) {
                ModelItem m{nextId++, "bulk" + std::to_string(step) + "_" + std::to_string(i), gitTown,
                            RandomPoints(rng)};
                TgdbData d;
                d.Name = m.name;
                d.ItemKind = m.kind;
                db->AddData(d, m.points);
                model.push_back(m);
                if (i == n / 2) {  // a search inside the bracket sees what was added so far
                    EXPECT_EQ(db->SearchForItemID(m.id), static_cast<int>(model.size()));
                }
            }
            db->EndUpdate();
        } else if (o < 65 && !model.empty()) {
            const std::size_t i = rng() % model.size();
            model[i].name = "replaced" + std::to_string(step);
            model[i].kind = gitRoad;
            model[i].points = RandomPoints(rng);
            db->ReplaceRoad(static_cast<int>(i) + 1, model[i].name, model[i].points);
        } else if (o < 82 && !model.empty()) {
            const std::size_t i = rng() % model.size();
            db->DeleteData(static_cast<int>(i) + 1);
            model.erase(model.begin() + static_cast<std::ptrdiff_t>(i));
        } else if (o < 85 && !model.empty()) {
            std::vector<int> recNos;
            for (int k = static_cast<int>(rng() % 4); k >= 0; --k)
                recNos.push_back(1 + static_cast<int>(rng() % model.size()));
            recNos.push_back(recNos.front());  // a repeat is harmless
            db->DeleteData(recNos);
            std::sort(recNos.begin(), recNos.end());
            recNos.erase(std::unique(recNos.begin(), recNos.end()), recNos.end());
            for (auto it = recNos.rbegin(); it != recNos.rend(); ++it)
                model.erase(model.begin() + (*it - 1));
        } else if (o < 88) {
            db->GarbageCollection();
            EXPECT_EQ(db->GarbageBytes(), 0);
        } else if (o < 91) {
            db->RecalcIndexes();
        } else if (o < 95) {
            db->SetLazyWrite(!db->LazyWrite());
        } else {
            // Reopen from the files alone.
            db = std::make_unique<TGeoDB>("R");
            db->SetGDBName(dir / "rand");
            ASSERT_FALSE(db->Damaged()) << db->DamageReport().front();
        }
        ExpectMatchesModel(*db, model);
        if (HasFatalFailure())
            return;
        const auto table = Table(*db);
        for (int q = 0; q < 3; ++q) {
            std::uniform_real_distribution<double> la(-85, 85), lo(-175, 175), sz(0, 20);
            const double a = la(rng), b = lo(rng), c = a + sz(rng), e = b + sz(rng);
            ASSERT_EQ(db->SearchData(a, b, c, e), BruteForce(table, a, b, c, e, gitUndefined));
        }
    }
    db.reset();
    TGeoDB again;
    again.SetGDBName(dir / "rand");
    EXPECT_FALSE(again.Damaged());
    EXPECT_EQ(again.HighestID(), nextId - 1);
    ExpectMatchesModel(again, model);
}

TEST(GeoDBItems, SearchDataEqualsBruteForce)
{
    ScratchDir dir;
    std::mt19937 rng(7);
    TGeoDB db;
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
    auto table = Table(db);
    for (int q = 0; q < 300; ++q) {
        const double la = qlat(rng), lo = qlon(rng);
        const double la2 = la + qsize(rng) * (q % 10 == 0 ? 10 : 1), lo2 = lo + qsize(rng);
        const TgdbItem kind = q % 4 == 0 ? static_cast<TgdbItem>(q % 7) : gitUndefined;
        ASSERT_EQ(db.SearchData(la, lo, la2, lo2, kind), BruteForce(table, la, lo, la2, lo2, kind)) << q;
    }
    db.EndUpdate();
    // Edges are included; an inverted rectangle meets nothing.
    const TgdbData first = db.GetSumdata(1);
    const auto hit = db.SearchData(first.LatHigh, first.LongHigh, first.LatHigh + 1.0, first.LongHigh + 1.0);
    EXPECT_TRUE(std::binary_search(hit.begin(), hit.end(), 1));
    // After deletions and a replacement by a huge item the answers still agree.
    for (int i = 0; i < 20; ++i)
        db.DeleteData(1 + static_cast<int>(rng() % static_cast<unsigned>(db.NumEntries())));
    const TSCoords wide[] = {{-80, -170}, {80, 170}};
    db.ReplaceBorder(5, "wide", wide);
    table = Table(db);
    for (int q = 0; q < 100; ++q) {
        const double la = qlat(rng), lo = qlon(rng);
        ASSERT_EQ(db.SearchData(la, lo, la + 1, lo + 1), BruteForce(table, la, lo, la + 1, lo + 1, gitUndefined));
    }
    const auto borders = db.SearchData(0, 0, 0.5, 0.5, gitBorder);
    EXPECT_EQ(borders, BruteForce(table, 0, 0, 0.5, 0.5, gitBorder));
    EXPECT_TRUE(std::binary_search(borders.begin(), borders.end(), 5));
    EXPECT_TRUE(db.SearchData(10, 10, -10, -10).empty());  // inverted: no rectangle at all
}

TEST(GeoDBItems, TypedFormsAndLocations)
{
    ScratchDir dir;
    TGeoDB db;
    db.SetGDBName(dir / "typed");
    const TSCoords ring[] = {{46, 9}, {47, 9}, {47, 10}, {46, 10}};
    struct Case {
        int recNo;
        TgdbItem kind;
        bool closed;
    };
    const Case cases[] = {
        {db.AddBorder("b", ring), gitBorder, true}, {db.AddLake("l", ring), gitLake, true},
        {db.AddRiver("r", ring), gitRiver, false},  {db.AddRoad("d", ring), gitRoad, false},
        {db.AddRoute("t", ring), gitRoute, false},  {db.AddTown("w", 48.2, 16.37, 171), gitTown, false},
        {db.AddCity("c", -33.9, 151.2), gitCity, false},
    };
    for (const Case& c : cases) {
        const TgdbData d = db.GetSumdata(c.recNo);
        EXPECT_EQ(d.ItemKind, c.kind);
        EXPECT_EQ(d.Closed, c.closed);
        EXPECT_GT(d.Date, 45000);  // stamped with the present day
        EXPECT_EQ(d.ItemId, c.recNo);
    }
    const TPositionData town = db.ExtractLocation(6);
    EXPECT_EQ(town.Latit, static_cast<double>(48.2f));
    EXPECT_EQ(town.Longit, static_cast<double>(16.37f));
    EXPECT_EQ(town.Height, 171);
    const TPositionData border = db.ExtractLocation(1);
    EXPECT_EQ(border.Latit, 46.5);
    EXPECT_EQ(border.Longit, 9.5);
    db.ReplaceCity(6, "Wien", 48.21, 16.37, 190);
    EXPECT_EQ(db.GetSumdata(6).ItemKind, gitCity);
    EXPECT_EQ(db.GetSumdata(6).ItemId, 6);
    EXPECT_EQ(db.GarbageBytes(), 8);
    TgdbData basic = db.GetSumdata(6);
    basic.Name = std::string(70, 'n');
    basic.Tag = 42;
    basic.LatLow = -99;  // geometry is not taken over
    db.UpdateBasicData(6, basic);
    EXPECT_EQ(db.GetSumdata(6).Name, std::string(59, 'n'));
    EXPECT_EQ(db.GetSumdata(6).Tag, 42);
    EXPECT_EQ(db.GetSumdata(6).LatLow, 48.21f);
    db.SetGDBName("");
    db.SetGDBName(dir / "typed");
    EXPECT_EQ(db.GetSumdata(6).Tag, 42);
}

TEST(GeoDBItems, IdentifiersAreNeverReused)
{
    ScratchDir dir;
    TGeoDB db;
    db.SetGDBName(dir / "ids");
    db.AddTown("a", 1, 1);
    db.AddTown("b", 2, 2);
    db.DeleteData(2);
    EXPECT_EQ(db.AddTown("c", 3, 3), 2);
    EXPECT_EQ(db.GetSumdata(2).ItemId, 3);
    db.SetGDBName("");
    db.SetGDBName(dir / "ids");
    EXPECT_EQ(db.HighestID(), 3);
    EXPECT_EQ(db.SearchForItemID(2), 0);
}

TEST(GeoDBItems, DeleteRenumbersAndCompactionReclaims)
{
    ScratchDir dir;
    TGeoDB db;
    db.SetGDBName(dir / "gc");
    const TSCoords line[] = {{1, 1}, {2, 2}, {3, 3}};
    for (int i = 0; i < 5; ++i)
        db.AddRiver("r" + std::to_string(i), line);
    EXPECT_EQ(std::filesystem::file_size(dir / "gc.xelgdd"), 260u + 5 * 24);
    db.DeleteData(2);
    db.DeleteData(3);  // was record 4
    EXPECT_EQ(db.NumEntries(), 3);
    EXPECT_EQ(db.GetSumdata(2).Name, "r2");
    EXPECT_EQ(db.GetSumdata(3).Name, "r4");
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

TEST(GeoDBItems, BLOBsInAllForms)
{
    ScratchDir dir;
    TGeoDB db("Store");
    db.SetGDBName(dir / "blob");
    const std::vector<std::uint8_t> bytes = {0, 1, 2, 254, 255, 10, 13};
    TMetaInfo meta;
    meta.Caption = "photo";
    meta.Keywords = "alps summit";
    TgdbData d;
    d.Name = "picture";
    d.LatLow = d.LatHigh = 47;
    d.LongLow = d.LongHigh = 11;
    const int r1 = db.AddBLOB(d, bytes, meta);
    EXPECT_EQ(d.ItemKind, gitBLOB);
    EXPECT_EQ(d.Size(), 7);
    EXPECT_EQ(d.BlobOffset, 260);
    WriteAll(dir / "in.bin", Bytes(3000, 0x5A));
    const int r2 = db.AddBLOB(d, dir / "in.bin");
    std::istringstream in(std::string("stream data"));
    const int r3 = db.AddBLOB(d, in, meta);
    const int r4 = db.AddBLOB(d, std::span<const std::uint8_t>());
    EXPECT_EQ(std::filesystem::file_size(dir / "blob.xelgdd"), 260u + 4 * 1024 + 7 + 3000 + 11);

    TMetaInfo got;
    std::vector<std::uint8_t> buf(7);
    EXPECT_EQ(db.RetrieveBLOB(r1, buf, got), 7);
    EXPECT_EQ(buf, bytes);
    EXPECT_EQ(got.Caption, "photo");
    EXPECT_EQ(db.GetMetaInfo(r2).FilePath, dir / "in.bin");
    db.RetrieveBLOB(r2, dir / "out.bin", got);
    EXPECT_EQ(ReadAll(dir / "out.bin"), Bytes(3000, 0x5A));
    std::ostringstream out;
    db.RetrieveBLOB(r3, out, got);
    EXPECT_EQ(out.str(), "stream data");
    EXPECT_EQ(db.RetrieveBLOB(r4, buf, got), 0);
    EXPECT_TRUE(db.RetrievePolygon(r1).empty());
    EXPECT_EQ(db.SearchData(46, 10, 48, 12, gitBLOB).size(), 4u);

    std::vector<std::uint8_t> small(6);
    try {
        db.RetrieveBLOB(r1, small, got);
        FAIL();
    } catch (const EXELGeoDBError& e) {
        EXPECT_STREQ(e.what(), "Component \"Store\": RetrieveBLOB: BLOB to be retrieved is larger than SizeOfBlobData.");
    }
    for (const std::string& bad : {std::string(), dir / "no/such/dir/x.bin"}) {
        try {
            db.RetrieveBLOB(r2, bad, got);
            FAIL() << bad;
        } catch (const EXELGeoDBError& e) {
            EXPECT_STREQ(e.what(), "Component \"Store\": RetrieveBLOB: invalid filename.");
        }
    }
    EXPECT_THROW(db.AddBLOB(d, dir / "missing.bin"), EXELGeoDBError);
    const TSCoords p{1, 1};
    const int town = db.AddTown("t", p.Latit, p.Longit);
    EXPECT_THROW(db.GetMetaInfo(town), EXELGeoDBError);

    TMetaInfo changed = meta;
    changed.Comment = "checked";
    db.UpdateMetaInfo(r1, changed);
    EXPECT_EQ(db.GetMetaInfo(r1).Comment, "checked");
    EXPECT_EQ(db.RetrieveBLOB(r1, buf, got), 7);
    EXPECT_EQ(buf, bytes);
    db.GarbageCollection();
    EXPECT_EQ(db.GetMetaInfo(r1).Comment, "checked");
    EXPECT_EQ(db.RetrieveBLOB(r1, buf, got), 7);
    EXPECT_EQ(buf, bytes);
    db.RetrieveBLOB(r2, dir / "out.bin", got);
    EXPECT_EQ(ReadAll(dir / "out.bin"), Bytes(3000, 0x5A));
}

TEST(GeoDBItems, Messages)
{
    ScratchDir dir;
    TGeoDB db("Geo1");
    const TSCoords p[] = {{1, 2}};
    TgdbData d;
    try {
        db.AddData(d, p);
        FAIL();
    } catch (const EXELGeoDBError& e) {
        EXPECT_STREQ(e.what(), "Component \"Geo1\": AddData: cannot open database.");
    }
    try {
        db.AddTown("x", 1, 1);
        FAIL();
    } catch (const EXELGeoDBError& e) {
        EXPECT_STREQ(e.what(), "Component \"Geo1\": AddData: cannot open database.");
    }
    db.SetGDBName(dir / "m");
    std::filesystem::remove(dir / "m.xelgdd");
    try {
        db.AddTown("x", 1, 1);
        FAIL();
    } catch (const EXELGeoDBError& e) {
        EXPECT_STREQ(e.what(), "Component \"Geo1\": AddData: cannot open database.");
    }
    EXPECT_EQ(db.NumEntries(), 0);
    EXPECT_EQ(db.HighestID(), 0);
    db.SetGDBName(dir / "m2");
    const TSCoords nan[] = {{std::numeric_limits<float>::quiet_NaN(), 0}};
    EXPECT_THROW(db.AddData(d, nan), EXELGeoDBError);
    EXPECT_THROW(db.DeleteData(1), EXELGeoDBError);
    EXPECT_THROW(db.RetrievePolygon(0), EXELGeoDBError);
    EXPECT_EQ(db.NumEntries(), 0);
}

TEST(GeoDBItems, FailedBulkWriteRollsBack)
{
    ScratchDir dir;
    TGeoDB db("Bulk");
    db.SetGDBName(dir / "bulk");
    db.AddTown("kept", 1, 1);
    db.BeginUpdate();
    db.BeginUpdate();
    for (int i = 0; i < 10; ++i)
        db.AddTown("lost", i, i);
    db.EndUpdate();
    EXPECT_EQ(std::filesystem::file_size(dir / "bulk.xelgds"), 120u);  // nothing written before the end
    std::filesystem::remove(dir / "bulk.xelgds");
    try {
        db.EndUpdate();
        FAIL();
    } catch (const EXELGeoDBError& e) {
        EXPECT_STREQ(e.what(), "Component \"Bulk\": AddData: cannot open database.");
    }
    EXPECT_EQ(db.NumEntries(), 1);
    EXPECT_EQ(db.HighestID(), 1);
    ExpectIndexesConsistent(db);
}

TEST(GeoDBItems, ProgressOfBulkWritesAndCompaction)
{
    ScratchDir dir;
    TGeoDB db;
    db.SetGDBName(dir / "prog");
    std::vector<double> seen;
    db.OnPercentDone = [&](TGeoDB&, double pct) { seen.push_back(pct); };
    db.BeginUpdate();
    for (int i = 0; i < 500; ++i)
        db.AddTown("t", i * 0.1, i * 0.1);
    EXPECT_TRUE(seen.empty());  // nothing is written before the bracket ends
    db.EndUpdate();
    ASSERT_GE(seen.size(), 10u);
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
    EXPECT_EQ(seen.back(), 100);
    seen.clear();
    db.DeleteData(std::vector<int>{1, 2, 3});
    db.GarbageCollection();
    ASSERT_FALSE(seen.empty());
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
    EXPECT_EQ(seen.back(), 100);
}

TEST(GeoDBItems, ReadSystemInformationSeesAnotherWriter)
{
    ScratchDir dir;
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
