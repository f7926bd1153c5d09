// Huge scans through OpenRasterSource, beside the command-line peers that make a screen-sized picture of
// the same files:
// - a 300-megapixel (20000 x 15000) RGB JPEG of quality 90 and the same picture as a tiled TIFF (256 x 256
//   JPEG-compressed tiles, AVERAGE overviews 2 .. 64), written once from a synthetic picture with detail
//   (smooth colour fields, a fine grid of lines, noise) and kept in /tmp/qvgeo-bench-rasters between runs;
// - first picture: open plus the whole of the largest level that fits 1920 x 1080. For the JPEG both the
//   first open (1/8 decode, no tiled copy yet) and a later one (the tiled copy found in the cache);
// - pan: 1920 x 1080 windows at level 0 and at level 1, each 300 pixels right of the last (wrapping),
//   through the tiled copy of the JPEG and through the TIFF; and jumps: level-0 windows none of whose
//   tiles were read before;
// - the one-time tiled copy of the JPEG, and the reduced levels built on the first open of the same
//   picture as a tiled TIFF without them;
// - peers as child processes: vipsthumbnail FILE -s 1920x1080 and gdal_translate -outsize 1920 0.
// Resident memory: the counter VmHWM_MB is the process's peak so far (run one benchmark per process,
// with --benchmark_filter, to read it per case).
// Run with: build-bench/bench/bench_rasters --benchmark_filter=NAME
#include "qt_main.h"

#include <qvgeo/gdalio/gdal_session.h>
#include <qvgeo/gdalio/raster_source.h>
#include <qvgeo/platform/bitmap.h>

#include <benchmark/benchmark.h>

#include <cpl_string.h>
#include <gdal_priv.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

using namespace qv;
namespace fs = std::filesystem;

namespace {

constexpr int kWidth = 20000, kHeight = 15000;
const fs::path kFolder = "/tmp/qvgeo-bench-rasters";

std::string JpegName() { return (kFolder / "scan300.jpg").string(); }
std::string TiffName() { return (kFolder / "scan300.tif").string(); }
std::string BareTiffName() { return (kFolder / "scan300-bare.tif").string(); }  // tiled, no overviews
std::string WarmCache() { return (kFolder / "cache").string(); }   // holds the JPEG's tiled copy
std::string ColdCache() { return (kFolder / "cold").string(); }    // always empty

// Rows Y0 .. Y0 + N - 1 of the synthetic picture, pixel-interleaved RGB.
void SyntheticRows(int Y0, int N, std::vector<GByte>& Out)
{
    static std::vector<double> sx, sy;
    if (sx.empty()) {
        for (int x = 0; x < kWidth; ++x)
            sx.push_back(std::sin(x * 0.0021) + 0.5 * std::sin(x * 0.037));
        for (int y = 0; y < kHeight; ++y)
            sy.push_back(std::cos(y * 0.0017) + 0.5 * std::sin(y * 0.029));
    }
    Out.resize(std::size_t(N) * kWidth * 3);
    for (int j = 0; j < N; ++j) {
        const int y = Y0 + j;
        GByte* p = Out.data() + std::size_t(j) * kWidth * 3;
        for (int x = 0; x < kWidth; ++x, p += 3) {
            std::uint32_t h = std::uint32_t(x) * 73856093u ^ std::uint32_t(y) * 19349663u;
            h ^= h >> 13;
            h *= 0x5bd1e995u;
            const int noise = int(h >> 28) - 8;
            const bool line = x % 97 < 2 || (x + 2 * y) % 211 < 2;
            const double v = sx[std::size_t(x)] + sy[std::size_t(y)];
            auto byte = [](double c) { return GByte(std::clamp(c, 0.0, 255.0)); };
            p[0] = line ? 40 : byte(150 + 50 * v + noise);
            p[1] = line ? 30 : byte(170 - 40 * v + noise);
            p[2] = line ? 90 : byte(120 + 30 * std::sin(v * 3) + noise);
        }
    }
}

void WritePictures();

void MakeFiles()
{
    fs::create_directories(kFolder);
    fs::create_directories(WarmCache());
    fs::remove_all(ColdCache());
    fs::create_directories(ColdCache());
    GdalSession();
    if (!fs::exists(TiffName()) || !fs::exists(JpegName()))
        WritePictures();
    if (!fs::exists(BareTiffName())) {
        GDALDataset* src = GDALDataset::Open(TiffName().c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY);
        CPLStringList options;
        options.SetNameValue("TILED", "YES");
        options.SetNameValue("COMPRESS", "JPEG");
        options.SetNameValue("PHOTOMETRIC", "YCBCR");
        options.SetNameValue("JPEG_QUALITY", "90");
        const std::string part = BareTiffName() + ".part";
        GDALClose(GetGDALDriverManager()->GetDriverByName("GTiff")->CreateCopy(part.c_str(), src, FALSE, options.List(), nullptr, nullptr));
        GDALClose(src);
        fs::rename(part, BareTiffName());
    }
    // The JPEG's tiled copy in the warm cache, made once (its making is measured by BM_TiledCopyOfJpeg).
    TRasterOpenOptions options;
    options.CacheFolder = WarmCache();
    (void)OpenRasterSource(JpegName(), options)->ReadWindow(0, {0, 0, 1, 1});
}

void WritePictures()
{
    GdalSession();
    std::fprintf(stderr, "writing the 300-megapixel files in %s (once)...\n", kFolder.c_str());
    const std::string tiffPart = TiffName() + ".part";
    {
        CPLStringList options;
        options.SetNameValue("TILED", "YES");
        options.SetNameValue("COMPRESS", "JPEG");
        options.SetNameValue("PHOTOMETRIC", "YCBCR");
        options.SetNameValue("JPEG_QUALITY", "90");
        options.SetNameValue("BIGTIFF", "IF_SAFER");
        GDALDriver* gtiff = GetGDALDriverManager()->GetDriverByName("GTiff");
        GDALDataset* ds = gtiff->Create(tiffPart.c_str(), kWidth, kHeight, 3, GDT_Byte, options.List());
        if (!ds)
            throw std::runtime_error("cannot create " + tiffPart);
        std::vector<GByte> rows;
        for (int y = 0; y < kHeight; y += 256) {
            const int n = std::min(256, kHeight - y);
            SyntheticRows(y, n, rows);
            if (ds->RasterIO(GF_Write, 0, y, kWidth, n, rows.data(), kWidth, n, GDT_Byte, 3, nullptr, 3,
                             3 * GSpacing(kWidth), 1, nullptr) != CE_None)
                throw std::runtime_error("cannot write " + tiffPart);
        }
        const int factors[] = {2, 4, 8, 16, 32, 64};
        CPLSetConfigOption("COMPRESS_OVERVIEW", "JPEG");
        CPLSetConfigOption("PHOTOMETRIC_OVERVIEW", "YCBCR");
        CPLSetConfigOption("INTERLEAVE_OVERVIEW", "PIXEL");
        ds->BuildOverviews("AVERAGE", 6, factors, 0, nullptr, nullptr, nullptr, nullptr);
        GDALClose(ds);
    }
    {
        GDALDataset* src = GDALDataset::Open(tiffPart.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY);
        CPLStringList options;
        options.SetNameValue("QUALITY", "90");
        GDALDriver* jpeg = GetGDALDriverManager()->GetDriverByName("JPEG");
        GDALDataset* out = jpeg->CreateCopy(JpegName().c_str(), src, FALSE, options.List(), nullptr, nullptr);
        if (!out)
            throw std::runtime_error("cannot write " + JpegName());
        GDALClose(out);
        GDALClose(src);
    }
    fs::rename(tiffPart, TiffName());
}

double PeakResidentMB()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0)
            return std::stod(line.substr(6)) / 1024.0;  // kB
    return 0;
}

int FittingLevel(const TImageSource& S)
{
    for (int l = 0; l < S.LevelCount(); ++l)
        if (S.LevelSize(l).cx <= 1920 && S.LevelSize(l).cy <= 1080)
            return l;
    return S.LevelCount() - 1;
}

void FirstPicture(benchmark::State& State, const std::string& File, const std::string& Cache)
{
    TRasterOpenOptions options;
    options.CacheFolder = Cache;
    for (auto _ : State) {
        const auto source = OpenRasterSource(File, options);
        const TBitmap b = ReadWholeLevel(*source, FittingLevel(*source));
        benchmark::DoNotOptimize(b.ScanLine(0));
    }
    State.counters["VmHWM_MB"] = PeakResidentMB();
}

void BM_FirstPicture_JpegFirstOpen(benchmark::State& State) { FirstPicture(State, JpegName(), ColdCache()); }
void BM_FirstPicture_JpegLaterOpen(benchmark::State& State) { FirstPicture(State, JpegName(), WarmCache()); }
void BM_FirstPicture_TiledTiff(benchmark::State& State) { FirstPicture(State, TiffName(), WarmCache()); }

// Panning at Level: one source, windows walking right by 300 pixels and wrapping.
void Pan(benchmark::State& State, const std::string& File)
{
    TRasterOpenOptions options;
    options.CacheFolder = WarmCache();
    const auto source = OpenRasterSource(File, options);
    const int level = static_cast<int>(State.range(0));
    const TSize size = source->LevelSize(level);
    (void)source->ReadWindow(level, {0, 0, 1, 1});  // makes the JPEG's tiled copy when it is missing
    int x = 0, y = size.cy / 3;
    for (auto _ : State) {
        const TBitmap b = source->ReadWindow(level, {x, y, x + 1920, y + 1080});
        benchmark::DoNotOptimize(b.ScanLine(0));
        x += 300;
        if (x + 1920 > size.cx)
            x = 0, y = (y + 1080) % std::max(1, size.cy - 1080);
    }
    State.counters["VmHWM_MB"] = PeakResidentMB();
}
void BM_Pan_JpegTiledCopy(benchmark::State& State) { Pan(State, JpegName()); }
void BM_Pan_TiledTiff(benchmark::State& State) { Pan(State, TiffName()); }

// The worst case of a view: a 1920 x 1080 window at level 0 none of whose tiles were read before (a jump
// to another part of the map), every tile decoded.
void Jump(benchmark::State& State, const std::string& File)
{
    TRasterOpenOptions options;
    options.CacheFolder = WarmCache();
    const auto source = OpenRasterSource(File, options);
    const TSize size = source->Size();
    int i = 0;
    for (auto _ : State) {
        // Windows on a grid of 2048 x 1280 cells, visited in an order that never returns to a cell.
        const int cols = size.cx / 2048, rows = size.cy / 1280;
        const int cell = (i++ * 7) % (cols * rows);
        const int x = cell % cols * 2048, y = cell / cols * 1280;
        const TBitmap b = source->ReadWindow(0, {x, y, x + 1920, y + 1080});
        benchmark::DoNotOptimize(b.ScanLine(0));
    }
    State.counters["VmHWM_MB"] = PeakResidentMB();
}
void BM_Jump_JpegTiledCopy(benchmark::State& State) { Jump(State, JpegName()); }
void BM_Jump_TiledTiff(benchmark::State& State) { Jump(State, TiffName()); }

void BM_TiledCopyOfJpeg(benchmark::State& State)
{
    const std::string folder = (kFolder / "convert").string();
    for (auto _ : State) {
        State.PauseTiming();
        fs::remove_all(folder);
        State.ResumeTiming();
        TRasterOpenOptions options;
        options.CacheFolder = folder;
        const auto source = OpenRasterSource(JpegName(), options);
        const TBitmap b = source->ReadWindow(0, {0, 0, 1920, 1080});
        benchmark::DoNotOptimize(b.ScanLine(0));
    }
    State.counters["VmHWM_MB"] = PeakResidentMB();
}

// A tiled TIFF without reduced levels: its first open builds them into "<file>.ovr" beside it.
void BM_FirstOpenBuildingOverviews(benchmark::State& State)
{
    for (auto _ : State) {
        State.PauseTiming();
        fs::remove(BareTiffName() + ".ovr");
        State.ResumeTiming();
        const auto source = OpenRasterSource(BareTiffName());
        const TBitmap b = ReadWholeLevel(*source, FittingLevel(*source));
        benchmark::DoNotOptimize(b.ScanLine(0));
    }
    State.counters["VmHWM_MB"] = PeakResidentMB();
    State.counters["ovr_MB"] = static_cast<double>(fs::file_size(BareTiffName() + ".ovr")) / (1 << 20);
}

void Peer(benchmark::State& State, const std::string& Command)
{
    for (auto _ : State)
        if (std::system((Command + " >/dev/null 2>&1").c_str()) != 0)
            State.SkipWithError(("failed: " + Command).c_str());
}
void BM_Peer_Vipsthumbnail_Jpeg(benchmark::State& State)
{
    Peer(State, "vipsthumbnail " + JpegName() + " -s 1920x1080 -o " + (kFolder / "vips-out.jpg").string());
}
void BM_Peer_Vipsthumbnail_Tiff(benchmark::State& State)
{
    Peer(State, "vipsthumbnail " + TiffName() + " -s 1920x1080 -o " + (kFolder / "vips-out.jpg").string());
}
void BM_Peer_GdalTranslate_Jpeg(benchmark::State& State)
{
    Peer(State, "gdal_translate -q -outsize 1920 0 " + JpegName() + " " + (kFolder / "gdal-out.tif").string());
}
void BM_Peer_GdalTranslate_Tiff(benchmark::State& State)
{
    Peer(State, "gdal_translate -q -outsize 1920 0 " + TiffName() + " " + (kFolder / "gdal-out.tif").string());
}

BENCHMARK(BM_FirstPicture_JpegFirstOpen)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_FirstPicture_JpegLaterOpen)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_FirstPicture_TiledTiff)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_Pan_JpegTiledCopy)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Pan_TiledTiff)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime();
// 9 x 11 = 99 cells: each of the 60 iterations reads a cell no earlier one read.
BENCHMARK(BM_Jump_JpegTiledCopy)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(60);
BENCHMARK(BM_Jump_TiledTiff)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(60);
BENCHMARK(BM_TiledCopyOfJpeg)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
BENCHMARK(BM_FirstOpenBuildingOverviews)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
BENCHMARK(BM_Peer_Vipsthumbnail_Jpeg)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_Peer_Vipsthumbnail_Tiff)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_Peer_GdalTranslate_Jpeg)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_Peer_GdalTranslate_Tiff)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace

int main(int argc, char** argv)
{
    // The files are written before any timing, once; they stay for the next run.
    return RunQtBenchmarks(argc, argv, MakeFiles);
}
