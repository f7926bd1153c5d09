// TGeoDB at scale: loading 10 000 to 1 000 000 point items (one by one and in a bulk bracket, with
// LazyWrite on and off), opening a large set, and rectangle and identifier searches over a million items.
// When SQLite is found, its R*Tree runs beside the rectangle search and the bulk load on the same data.
// The large cases run one iteration each: they write hundreds of megabytes.
#include <qvgeo/geodb/geodb.h>
#include <qvgeo/geodb/indexes.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <stdexcept>
#include <unistd.h>
#include <vector>

#ifdef QVGEO_BENCH_SQLITE
#include <sqlite3.h>
#endif

namespace {

namespace fs = std::filesystem;

fs::path ScratchBase(const std::string& tag)
{
    const fs::path dir = fs::temp_directory_path() / ("qvgeo_bench_geodb_" + std::to_string(::getpid()));
    fs::create_directories(dir);
    return dir / tag;
}

void RemoveSet(const fs::path& base)
{
    for (const char* e : {".xelgds", ".xelgdd", ".xelgi0", ".xelgi1", ".xelgi2", ".xelgi3", ".xelgi4"})
        fs::remove(base.string() + e);
}

// Towns scattered uniformly over Europe-sized ranges, reproducibly.
qv::TSCoords PointNo(std::mt19937& rng)
{
    std::uniform_real_distribution<float> lat(35, 70), lon(-10, 40);
    return qv::TSCoords{lat(rng), lon(rng)};
}

void AddPoints(qv::TGeoDB& db, int n)
{
    std::mt19937 rng(42);
    qv::TgdbData d;
    d.ItemKind = qv::gitTown;
    d.Name = "town";
    for (int i = 0; i < n; ++i) {
        const qv::TSCoords p = PointNo(rng);
        db.AddData(d, std::span<const qv::TSCoords>(&p, 1));
    }
}

// range(0): items; range(1): LazyWrite; range(2): 1 = bulk bracket, 0 = one by one.
void BM_Load(benchmark::State& state)
{
    const int n = static_cast<int>(state.range(0));
    const bool lazy = state.range(1) != 0;
    const bool bulk = state.range(2) != 0;
    const fs::path base = ScratchBase("load");
    for (auto _ : state) {
        state.PauseTiming();
        RemoveSet(base);
        state.ResumeTiming();
        qv::TGeoDB db;
        db.SetGDBName(base.string());
        db.SetLazyWrite(lazy);
        if (bulk)
            db.BeginUpdate();
        AddPoints(db, n);
        if (bulk)
            db.EndUpdate();
        db.SetGDBName("");  // includes the final index write of LazyWrite
    }
    RemoveSet(base);
    state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_Load)
    ->ArgNames({"items", "lazy", "bulk"})
    ->Args({10000, 1, 1})
    ->Args({10000, 0, 1})
    ->Args({100000, 1, 1})
    ->Args({100000, 0, 1})
    ->Args({1000000, 1, 1})
    ->Args({1000000, 0, 1})
    ->Args({300, 0, 0})
    ->Args({10000, 1, 0})
    ->Args({30000, 1, 0})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// One database of a million points and 200 borders shared by the search benchmarks.
struct TMillion {
    fs::path base = ScratchBase("million");
    qv::TGeoDB db;
    TMillion()
    {
        RemoveSet(base);
        db.SetGDBName(base.string());
        db.SetLazyWrite(true);
        db.BeginUpdate();
        AddPoints(db, 1000000);
        // And 200 country-sized borders, 1 to 10 degrees across, as a real atlas would hold.
        std::mt19937 rng(11);
        std::uniform_real_distribution<float> size(1, 10);
        for (int i = 0; i < 200; ++i) {
            const qv::TSCoords a = PointNo(rng);
            const float s = size(rng);
            const qv::TSCoords ring[] = {a, {a.Latit + s, a.Longit}, {a.Latit + s, a.Longit + s}, {a.Latit, a.Longit + s}};
            db.AddBorder("border", ring);
        }
        db.EndUpdate();
        db.SetLazyWrite(false);
    }
    ~TMillion()
    {
        db.SetGDBName("");
        RemoveSet(base);
    }
};

TMillion& Million()
{
    static TMillion m;
    return m;
}

void BM_OpenMillion(benchmark::State& state)
{
    const std::string name = Million().base.string();
    for (auto _ : state) {
        qv::TGeoDB db;
        db.SetGDBName(name);
        benchmark::DoNotOptimize(db.NumEntries());
    }
}
BENCHMARK(BM_OpenMillion)->Iterations(3)->Unit(benchmark::kMillisecond)->UseRealTime();

// ---- rectangle search beside an R*Tree --------------------------------------------------------------
//
// Both sides hold the same boxes (the bounding boxes of the million towns and 200 borders, the record
// number as identifier) and answer the same rectangles. A rectangle set is sized per hit count so that
// the mean answer holds about that many items; the answers are compared once, outside the timing.

constexpr int NumRects = 512;

struct TRect {
    double LatLow, LongLow, LatHigh, LongHigh;
};

// NumRects square rectangles of side Side degrees with random south-west corners over the data.
std::vector<TRect> MakeRects(double Side)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> lat(35, 70 - Side), lon(-10, 40 - Side);
    std::vector<TRect> out;
    for (int i = 0; i < NumRects; ++i) {
        const double la = lat(rng), lo = lon(rng);
        out.push_back({la, lo, la + Side, lo + Side});
    }
    return out;
}

double MeanHits(const std::vector<TRect>& Rects)
{
    std::size_t n = 0;
    for (const TRect& r : Rects)
        n += Million().db.SearchData(r.LatLow, r.LongLow, r.LatHigh, r.LongHigh).size();
    return static_cast<double>(n) / static_cast<double>(Rects.size());
}

// The rectangles whose mean answer is closest to Hits items (bisection on the side).
const std::vector<TRect>& RectsFor(int Hits)
{
    static std::map<int, std::vector<TRect>> cache;
    auto it = cache.find(Hits);
    if (it != cache.end())
        return it->second;
    double lo = 0, hi = 10;
    for (int step = 0; step < 30; ++step) {
        const double mid = (lo + hi) / 2;
        (MeanHits(MakeRects(mid)) < Hits ? lo : hi) = mid;
    }
    return cache.emplace(Hits, MakeRects((lo + hi) / 2)).first->second;
}

void BM_SearchRect(benchmark::State& state)
{
    qv::TGeoDB& db = Million().db;
    const std::vector<TRect>& rects = RectsFor(static_cast<int>(state.range(0)));
    std::size_t found = 0, i = 0;
    for (auto _ : state) {
        const TRect& r = rects[i++ % rects.size()];
        const auto hits = db.SearchData(r.LatLow, r.LongLow, r.LatHigh, r.LongHigh);
        found += hits.size();
        benchmark::DoNotOptimize(hits.data());
    }
    state.counters["items/query"] = static_cast<double>(found) / static_cast<double>(state.iterations());
    state.counters["side_deg"] = rects.front().LatHigh - rects.front().LatLow;
}
BENCHMARK(BM_SearchRect)->ArgName("hits")->Arg(5)->Arg(100)->Arg(2000)->Unit(benchmark::kMicrosecond);

// Building the search tree over the million records: what the first searches after a change pay once
// (until then they scan index bands).
void BM_BuildSearchTree(benchmark::State& state)
{
    const qv::TGeoDB& db = Million().db;
    std::vector<qv::TgdbData> table;
    for (int i = 1; i <= db.NumEntries(); ++i)
        table.push_back(db.GetSumdata(i));
    for (auto _ : state) {
        qv::TBoxTree tree;
        tree.Build(table);
        benchmark::DoNotOptimize(tree.TableSize());
    }
}
BENCHMARK(BM_BuildSearchTree)->Iterations(3)->Unit(benchmark::kMillisecond);

#ifdef QVGEO_BENCH_SQLITE

void Check(int rc, sqlite3* db, const char* what)
{
    if (rc != SQLITE_OK && rc != SQLITE_DONE && rc != SQLITE_ROW)
        throw std::runtime_error(std::string(what) + ": " + sqlite3_errmsg(db));
}

// An R*Tree table rt(id, minLat, maxLat, minLon, maxLon) filled with Boxes (id = 1-based position), in
// one transaction through one prepared statement.
void FillRTree(sqlite3* db, const std::vector<TRect>& Boxes)
{
    Check(sqlite3_exec(db, "CREATE VIRTUAL TABLE rt USING rtree(id, minLat, maxLat, minLon, maxLon);"
                           "BEGIN;",
                       nullptr, nullptr, nullptr),
          db, "create");
    sqlite3_stmt* ins = nullptr;
    Check(sqlite3_prepare_v2(db, "INSERT INTO rt VALUES (?1, ?2, ?3, ?4, ?5)", -1, &ins, nullptr), db, "prepare");
    for (std::size_t i = 0; i < Boxes.size(); ++i) {
        sqlite3_bind_int64(ins, 1, static_cast<sqlite3_int64>(i + 1));
        sqlite3_bind_double(ins, 2, Boxes[i].LatLow);
        sqlite3_bind_double(ins, 3, Boxes[i].LatHigh);
        sqlite3_bind_double(ins, 4, Boxes[i].LongLow);
        sqlite3_bind_double(ins, 5, Boxes[i].LongHigh);
        Check(sqlite3_step(ins), db, "insert");
        sqlite3_reset(ins);
    }
    sqlite3_finalize(ins);
    Check(sqlite3_exec(db, "COMMIT;", nullptr, nullptr, nullptr), db, "commit");
}

// The bounding boxes of the million set, in record order.
const std::vector<TRect>& MillionBoxes()
{
    static const std::vector<TRect> boxes = [] {
        std::vector<TRect> out;
        const qv::TGeoDB& db = Million().db;
        for (int i = 1; i <= db.NumEntries(); ++i) {
            const qv::TgdbData d = db.GetSumdata(i);
            out.push_back({d.LatLow, d.LongLow, d.LatHigh, d.LongHigh});
        }
        return out;
    }();
    return boxes;
}

// The same boxes in an in-memory R*Tree (all pages in memory, as the indexes of a TGeoDB are), with the
// rectangle query prepared once.
struct TRTreeMillion {
    sqlite3* db = nullptr;
    sqlite3_stmt* query = nullptr;
    TRTreeMillion()
    {
        Check(sqlite3_open(":memory:", &db), db, "open");
        FillRTree(db, MillionBoxes());
        // The same test as SearchData's: edges included, coordinates compared as doubles.
        Check(sqlite3_prepare_v2(db,
                                 "SELECT id FROM rt WHERE minLat <= ?3 AND maxLat >= ?1 AND minLon <= ?4 "
                                 "AND maxLon >= ?2",
                                 -1, &query, nullptr),
              db, "prepare");
    }
    ~TRTreeMillion()
    {
        sqlite3_finalize(query);
        sqlite3_close(db);
    }
    void Search(const TRect& r, std::vector<int>& out)
    {
        out.clear();
        sqlite3_bind_double(query, 1, r.LatLow);
        sqlite3_bind_double(query, 2, r.LongLow);
        sqlite3_bind_double(query, 3, r.LatHigh);
        sqlite3_bind_double(query, 4, r.LongHigh);
        while (sqlite3_step(query) == SQLITE_ROW)
            out.push_back(sqlite3_column_int(query, 0));
        sqlite3_reset(query);
    }
};

TRTreeMillion& RTreeMillion()
{
    static TRTreeMillion t;
    return t;
}

void BM_SearchRectRTree(benchmark::State& state)
{
    TRTreeMillion& rt = RTreeMillion();
    const std::vector<TRect>& rects = RectsFor(static_cast<int>(state.range(0)));
    // Equal work: every rectangle gives both sides the same set of items.
    std::vector<int> hits;
    for (const TRect& r : rects) {
        rt.Search(r, hits);
        std::sort(hits.begin(), hits.end());
        if (hits != Million().db.SearchData(r.LatLow, r.LongLow, r.LatHigh, r.LongHigh)) {
            state.SkipWithError("the R*Tree and SearchData answer differently");
            return;
        }
    }
    std::size_t found = 0, i = 0;
    for (auto _ : state) {
        rt.Search(rects[i++ % rects.size()], hits);
        found += hits.size();
        benchmark::DoNotOptimize(hits.data());
    }
    state.counters["items/query"] = static_cast<double>(found) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_SearchRectRTree)->ArgName("hits")->Arg(5)->Arg(100)->Arg(2000)->Unit(benchmark::kMicrosecond);

// Bulk load of a million point boxes into an R*Tree in a database file, one transaction, without a disk
// flush (TGeoDB does not flush either): the peer of BM_Load/1000000/lazy/bulk.
void BM_LoadRTree(benchmark::State& state)
{
    const int n = static_cast<int>(state.range(0));
    std::vector<TRect> boxes;
    std::mt19937 rng(42);
    for (int i = 0; i < n; ++i) {
        const qv::TSCoords p = PointNo(rng);
        boxes.push_back({p.Latit, p.Longit, p.Latit, p.Longit});
    }
    const fs::path file = ScratchBase("rtree.sqlite");
    for (auto _ : state) {
        state.PauseTiming();
        fs::remove(file);
        state.ResumeTiming();
        sqlite3* db = nullptr;
        Check(sqlite3_open(file.c_str(), &db), db, "open");
        Check(sqlite3_exec(db, "PRAGMA synchronous=OFF;", nullptr, nullptr, nullptr), db, "pragma");
        FillRTree(db, boxes);
        sqlite3_close(db);
    }
    fs::remove(file);
    state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_LoadRTree)->ArgName("items")->Arg(1000000)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

#endif  // QVGEO_BENCH_SQLITE

void BM_SearchForItemID(benchmark::State& state)
{
    qv::TGeoDB& db = Million().db;
    std::mt19937 rng(9);
    std::uniform_int_distribution<std::int32_t> id(1, 1000000);
    for (auto _ : state)
        benchmark::DoNotOptimize(db.SearchForItemID(id(rng)));
}
BENCHMARK(BM_SearchForItemID);

}  // namespace

BENCHMARK_MAIN();
