// Replays every committed fuzz corpus file and every reproducer of a past crash through its harness: each
// must be read or refused with the library's documented error, without a crash or sanitizer report
// (the harnesses abort on a broken property; anything but EXELError escapes them).
#include <qvgeo/fuzz/harness.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

struct TTarget {
    const char* Name;
    void (*Harness)(qvfuzz::TBytes);
};

const TTarget Targets[] = {
    {"calibration", qvfuzz::Calibration}, {"calib_image", qvfuzz::CalibrationImage},
    {"landmarks", qvfuzz::Landmarks},     {"symbols", qvfuzz::Symbols},
    {"image_header", qvfuzz::ImageHeader}, {"tag_reader", qvfuzz::TagReader},
    {"number_scanner", qvfuzz::NumberScanner}, {"db_xelgds", qvfuzz::DatabaseXelgds},
    {"db_xelgdd", qvfuzz::DatabaseXelgdd}, {"db_xelgi0", qvfuzz::DatabaseXelgi0},
    {"db_xelgi1", qvfuzz::DatabaseXelgi1}, {"db_xelgi2", qvfuzz::DatabaseXelgi2},
    {"db_xelgi3", qvfuzz::DatabaseXelgi3}, {"db_xelgi4", qvfuzz::DatabaseXelgi4},
    {"db_damage", qvfuzz::DatabaseDamage}, {"graticule_fit", qvfuzz::GraticuleFit},
#ifdef QVGEO_FUZZ_HAVE_GEOJSON
    {"geojson", qvfuzz::GeoJSON},
#endif
};

class Replay : public testing::TestWithParam<TTarget> {};

// Corpus files of every target are replayed; a target must have at least one, or its corpus folder was
// lost or misnamed.
TEST_P(Replay, CorpusAndReproducers)
{
    const TTarget& t = GetParam();
    int corpus = 0;
    for (const char* root : {QVGEO_FUZZ_CORPUS, QVGEO_FUZZ_REPRODUCERS}) {
        const std::filesystem::path dir = std::filesystem::path(root) / t.Name;
        if (!std::filesystem::is_directory(dir))
            continue;
        for (const auto& entry : std::filesystem::directory_iterator(dir)) {
            std::ifstream in(entry.path(), std::ios::binary);
            const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
            SCOPED_TRACE(entry.path().string());
            EXPECT_NO_THROW(t.Harness(bytes));
            corpus += root == std::string(QVGEO_FUZZ_CORPUS);
        }
    }
    EXPECT_GT(corpus, 0) << "no seed corpus for " << t.Name;
}

INSTANTIATE_TEST_SUITE_P(Fuzz, Replay, testing::ValuesIn(Targets),
                         [](const testing::TestParamInfo<TTarget>& i) { return std::string(i.param.Name); });

}  // namespace
