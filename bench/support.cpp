// Support services: the SVD least-squares solver on a calibration-sized problem, and the tag reader and
// number scanner over a large file of the XML-like family.
#include <qvgeo/support/least_squares.h>
#include <qvgeo/support/number_scanner.h>
#include <qvgeo/support/tag_reader.h>

#include <benchmark/benchmark.h>

#include <array>
#include <random>
#include <sstream>
#include <string>

namespace {

void BM_SolveLeastSquares(benchmark::State& state)
{
    const int rows = static_cast<int>(state.range(0));
    const int cols = static_cast<int>(state.range(1));
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> px(0.0, 4000.0);
    qv::TMatrix a(cols, rows);
    qv::TVector b(rows);
    for (int r = 1; r <= rows; ++r) {
        const double x = px(rng), y = px(rng);
        const double row[6] = {1, x, y, x * x, x * y, y * y};
        for (int c = 1; c <= cols; ++c)
            a.SetVal(c, r, row[c - 1]);
        b.SetVal(r, 48.0 + 1e-4 * x - 2e-4 * y);
    }
    qv::TVector c;
    bool singular = false;
    for (auto _ : state) {
        const bool ok = qv::SolveLeastSquares(a, b, c, singular);
        benchmark::DoNotOptimize(ok);
    }
}
BENCHMARK(BM_SolveLeastSquares)->Args({200, 6})->Args({200, 3})->Args({10, 6})->Unit(benchmark::kMicrosecond);

std::string LandmarkLikeFile(int items)
{
    std::string text = "<?xml version=\"1.0\"?>\n\n<gmlandmarks sig=\"Quorvanta\" id=\"bench\">\n";
    for (int i = 0; i < items; ++i)
        text += "<landmark lat=\"48." + std::to_string(i % 100000) + "\" long=\"16.3\" class=\"3\" "
                "colorfg=\"00FF0000\">Landmark number " + std::to_string(i) + "</landmark>\n";
    text += "</gmlandmarks>\n";
    return text;
}

void BM_TagReader(benchmark::State& state)
{
    constexpr std::array<std::string_view, 4> tags = {"gmlandmarks", "/gmlandmarks", "landmark", "invalidtag"};
    const std::string text = LandmarkLikeFile(static_cast<int>(state.range(0)));
    std::string attr, content;
    for (auto _ : state) {
        std::istringstream in(text);
        int found = 0;
        while (qv::ReadNextTagInStream(in, tags, 3, attr, content) != 3)
            ++found;
        benchmark::DoNotOptimize(found);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(text.size()));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_TagReader)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_ScanNumber(benchmark::State& state)
{
    const std::string line = "[48.30000,16.20000] [48.10000,16.20000] [48.10000,16.50000] [48.30000,16.50000] ";
    for (auto _ : state) {
        double sum = 0;
        int pos = 1;
        while (pos <= static_cast<int>(line.size())) {
            ++pos;  // '[' or ','
            sum += qv::ScanNumber(line, pos, qv::nsPointOnly);
            ++pos;
            sum += qv::ScanNumber(line, pos, qv::nsPointOnly);
            pos += 2;  // "] "
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * 8);
}
BENCHMARK(BM_ScanNumber);

}  // namespace

BENCHMARK_MAIN();
