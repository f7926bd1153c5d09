// Landmark store and landmark file: loading and saving 100 000 landmarks, appending, finding the
// nearest, and removing many at once.
#include <qvgeo/geomap/landmark_store.h>

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <filesystem>
#include <string>

namespace {

constexpr int NumMarks = 100000;

// Landmarks over Austria with captions, identifiers and times, as an application would keep them.
qv::TLandMarkStore MakeStore(int n)
{
    qv::TLandMarkStore store;
    for (int i = 0; i < n; ++i) {
        const double lat = 46.4 + (i % 317) * 0.01;
        const double lon = 9.5 + (i / 317) * 0.025;
        store.AddLandMark(lat, lon, 100 + i % 2000, "LM" + std::to_string(i), 45000 + i * 0.001,
                          "Landmark number " + std::to_string(i), 8, 0x0000FFu);
        qv::TLandMark lm = store.GetLandMarkData(store.NumLandMarks());
        lm.ClassFlag = static_cast<std::uint8_t>(i % 7);
        lm.SymbolProps.Kind = static_cast<qv::TLandMarkElement>(1 + i % 8);
        store.SetLandMarkData(store.NumLandMarks(), lm);
    }
    return store;
}

bool FileMade = false;

// A file of NumMarks landmarks in the temporary directory (about 38 MB), written once per run.
const std::string& SavedFile()
{
    static const std::string name = [] {
        const std::string file =
            (std::filesystem::temp_directory_path() / ("qvgeo_bench_landmarks_" + std::to_string(::getpid()) + ".xml"))
                .string();
        MakeStore(NumMarks).SaveLandmarks(file, "bench");
        FileMade = true;
        return file;
    }();
    return name;
}

// From a file on disk, as an application loads them (the page cache holds the file after the first run).
void BM_LoadLandMarks(benchmark::State& state)
{
    const std::string& file = SavedFile();
    qv::TLandMarkStore store;
    for (auto _ : state) {
        if (!store.LoadLandMarks(file, "bench") || store.NumLandMarks() != NumMarks)
            state.SkipWithError("load failed");
    }
    state.SetItemsProcessed(state.iterations() * NumMarks);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(std::filesystem::file_size(file)));
}
BENCHMARK(BM_LoadLandMarks)->Unit(benchmark::kMillisecond);

void BM_SaveLandMarks(benchmark::State& state)
{
    const qv::TLandMarkStore store = MakeStore(NumMarks);
    const std::string file = SavedFile() + ".out";
    for (auto _ : state)
        store.SaveLandmarks(file, "bench");
    state.SetItemsProcessed(state.iterations() * NumMarks);
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(std::filesystem::file_size(file)));
    std::filesystem::remove(file);
}
BENCHMARK(BM_SaveLandMarks)->Unit(benchmark::kMillisecond);

void BM_AddLandMarks(benchmark::State& state)
{
    for (auto _ : state) {
        qv::TLandMarkStore store;
        for (int i = 0; i < NumMarks; ++i)
            store.AddLandMark(i * 1e-3, i * 2e-3, 0);
        benchmark::DoNotOptimize(store.NumLandMarks());
    }
    state.SetItemsProcessed(state.iterations() * NumMarks);
}
BENCHMARK(BM_AddLandMarks)->Unit(benchmark::kMillisecond);

void BM_FindLandMark(benchmark::State& state)
{
    const qv::TLandMarkStore store = MakeStore(NumMarks);
    int k = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.FindLandMark(47.0 + (k % 100) * 0.01, 13.0, -1));
        ++k;
    }
    state.SetItemsProcessed(state.iterations() * NumMarks);
}
BENCHMARK(BM_FindLandMark)->Unit(benchmark::kMicrosecond);

void BM_RemoveClass(benchmark::State& state)
{
    const qv::TLandMarkStore source = MakeStore(NumMarks);
    for (auto _ : state) {
        state.PauseTiming();
        qv::TLandMarkStore store;
        store.AssignLandMarks(source);
        state.ResumeTiming();
        benchmark::DoNotOptimize(store.RemoveAllLandMarks(std::uint8_t{3}));
    }
    state.SetItemsProcessed(state.iterations() * NumMarks);
}
BENCHMARK(BM_RemoveClass)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (FileMade) {
        std::error_code ec;
        std::filesystem::remove(SavedFile(), ec);
    }
    return 0;
}
