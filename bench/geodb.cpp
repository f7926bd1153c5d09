// TGeoDB at scale: loading 10 000 to 1 000 000 point items (one by one and in a bulk bracket, with
// LazyWrite on and off), opening a large set, and rectangle and identifier searches over a million items.
// The large cases run one iteration each: they write hundreds of megabytes.
#include <qvgeo/geodb/geodb.h>

#include <benchmark/benchmark.h>

#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <unistd.h>

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

// A 0.05 x 0.05 degree rectangle holds about 1.4 of the million points on average, plus the borders
// whose boxes it meets.
void BM_SearchSmallRect(benchmark::State& state)
{
    qv::TGeoDB& db = Million().db;
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> lat(35, 69.9), lon(-10, 39.9);
    std::size_t found = 0;
    for (auto _ : state) {
        const double la = lat(rng), lo = lon(rng);
        const auto hits = db.SearchData(la, lo, la + 0.05, lo + 0.05);
        found += hits.size();
        benchmark::DoNotOptimize(hits.data());
    }
    state.counters["items/query"] = static_cast<double>(found) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_SearchSmallRect)->Unit(benchmark::kMicrosecond);

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
