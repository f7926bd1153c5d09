// Image decoding and stretching, each beside its peer:
// - a 2048 x 1536 (3.1 megapixel) JPEG of quality 90, written by SaveJPEG from a synthetic picture with
//   fine detail, decoded into a 32-bit image by LoadJPEG, by TurboJPEG's tjDecompress2 into a BGRX buffer
//   (the file read into memory first, as part of the measured time) and by QImage's own loader. All three
//   use the accurate integer IDCT (JDCT_ISLOW / TJFLAG_ACCURATEDCT) and fancy upsampling.
// - StretchRect in both modes against QImage::scaled with smooth and fast transformation, for the map's
//   reduction to 2/3 and to 1/3 of a 3000 x 2000 image.
// Run with: build/bench/bench_images --benchmark_min_time=0.5
#include "qt_main.h"

#include <qvgeo/platform/bitmap.h>
#include <qvgeo/platform/image_files.h>

#include <QGuiApplication>
#include <QImage>
#include <QImageReader>

#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#ifdef QVGEO_HAVE_TURBOJPEG
#include <turbojpeg.h>
#endif

using namespace qv;

namespace {

TBitmap SyntheticPicture(std::int32_t W, std::int32_t H)
{
    TBitmap b(W, H);
    for (std::int32_t y = 0; y < H; ++y) {
        std::uint32_t* row = b.ScanLine(y);
        for (std::int32_t x = 0; x < W; ++x) {
            const double v = 0.5 + 0.25 * std::sin(x * 0.05) * std::cos(y * 0.031) + 0.25 * std::sin((x + 2 * y) * 0.7);
            const auto g = static_cast<std::uint32_t>(v * 255);
            const std::uint32_t r = (x * 255 / W + ((x * 7 + y * 13) % 23) * 3) & 0xff;
            const std::uint32_t bl = (y * 255 / H) ^ ((x / 16 + y / 16) % 2 ? 0x40 : 0);
            row[x] = 0xff000000u | r << 16 | g << 8 | (bl & 0xff);
        }
    }
    return b;
}

const std::string& JpegFile()
{
    static const std::string file = [] {
        const std::string f = (std::filesystem::temp_directory_path() / ("qvgeo_bench_" + std::to_string(::getpid()) + ".jpg")).string();
        SaveJPEG(SyntheticPicture(2048, 1536), f, 90);
        return f;
    }();
    return file;
}

void BM_LoadJpeg_TBitmap(benchmark::State& state)
{
    TBitmap b;
    for (auto _ : state) {
        LoadJPEG(b, JpegFile());
        benchmark::DoNotOptimize(b.ScanLine(0));
    }
    state.counters["Mpixel/s"] = benchmark::Counter(2048.0 * 1536 * state.iterations() / 1e6, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_LoadJpeg_TBitmap)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

#ifdef QVGEO_HAVE_TURBOJPEG
void BM_LoadJpeg_TurboJPEG(benchmark::State& state)
{
    tjhandle tj = tjInitDecompress();
    std::vector<unsigned char> out(2048u * 1536u * 4u);
    for (auto _ : state) {
        std::ifstream in(JpegFile(), std::ios::binary);
        const std::vector<unsigned char> data{std::istreambuf_iterator<char>(in), {}};
        int w = 0, h = 0, sub = 0, cs = 0;
        tjDecompressHeader3(tj, data.data(), data.size(), &w, &h, &sub, &cs);
        out.resize(static_cast<std::size_t>(w) * static_cast<std::size_t>(h) * 4);
        if (tjDecompress2(tj, data.data(), data.size(), out.data(), w, 0, h, TJPF_BGRX, TJFLAG_ACCURATEDCT) != 0)
            state.SkipWithError(tjGetErrorStr2(tj));
        benchmark::DoNotOptimize(out.data());
    }
    tjDestroy(tj);
    state.counters["Mpixel/s"] = benchmark::Counter(2048.0 * 1536 * state.iterations() / 1e6, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_LoadJpeg_TurboJPEG)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
#endif

// state.range(0): the reader's quality setting; Qt picks its decoder's IDCT from it (measured side by side
// to show which setting decodes like the others).
void BM_LoadJpeg_QImage(benchmark::State& state)
{
    for (auto _ : state) {
        QImageReader reader(QString::fromStdString(JpegFile()), "jpg");
        reader.setQuality(static_cast<int>(state.range(0)));
        QImage img = reader.read();
        if (img.isNull())
            state.SkipWithError("QImage could not read the JPEG");
        benchmark::DoNotOptimize(img.constBits());
    }
}
BENCHMARK(BM_LoadJpeg_QImage)->Arg(-1)->Arg(100)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

const TBitmap& StretchSource()
{
    static const TBitmap source = SyntheticPicture(3000, 2000);
    return source;
}

// state.range(0): destination width in thousandths of the source's.
void BM_Stretch_Halftone(benchmark::State& state)
{
    const TBitmap& s = StretchSource();
    const auto w = static_cast<std::int32_t>(s.Width() * state.range(0) / 1000), h = static_cast<std::int32_t>(s.Height() * state.range(0) / 1000);
    TBitmap d(w, h);
    for (auto _ : state) {
        d.StretchRect({0, 0, w, h}, s, {0, 0, s.Width(), s.Height()}, smHalftone);
        benchmark::DoNotOptimize(d.ScanLine(0));
    }
}
BENCHMARK(BM_Stretch_Halftone)->Arg(667)->Arg(333)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

void BM_Stretch_QImageSmooth(benchmark::State& state)
{
    const QImage& s = StretchSource().Image();
    const auto w = static_cast<int>(s.width() * state.range(0) / 1000), h = static_cast<int>(s.height() * state.range(0) / 1000);
    for (auto _ : state) {
        QImage d = s.scaled(w, h, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        benchmark::DoNotOptimize(d.constBits());
    }
}
BENCHMARK(BM_Stretch_QImageSmooth)->Arg(667)->Arg(333)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

void BM_Stretch_ColorOnColor(benchmark::State& state)
{
    const TBitmap& s = StretchSource();
    const auto w = static_cast<std::int32_t>(s.Width() * state.range(0) / 1000), h = static_cast<std::int32_t>(s.Height() * state.range(0) / 1000);
    TBitmap d(w, h);
    for (auto _ : state) {
        d.StretchRect({0, 0, w, h}, s, {0, 0, s.Width(), s.Height()}, smColorOnColor);
        benchmark::DoNotOptimize(d.ScanLine(0));
    }
}
BENCHMARK(BM_Stretch_ColorOnColor)->Arg(667)->Arg(333)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

void BM_Stretch_QImageFast(benchmark::State& state)
{
    const QImage& s = StretchSource().Image();
    const auto w = static_cast<int>(s.width() * state.range(0) / 1000), h = static_cast<int>(s.height() * state.range(0) / 1000);
    for (auto _ : state) {
        QImage d = s.scaled(w, h, Qt::IgnoreAspectRatio, Qt::FastTransformation);
        benchmark::DoNotOptimize(d.constBits());
    }
}
BENCHMARK(BM_Stretch_QImageFast)->Arg(667)->Arg(333)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

}  // namespace

int main(int argc, char** argv)
{
    // The files are written before any timing.
    return RunQtBenchmarks(
        argc, argv, [] { JpegFile(), StretchSource(); }, [] { std::remove(JpegFile().c_str()); });
}
