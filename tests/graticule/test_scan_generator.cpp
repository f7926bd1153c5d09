// The synthetic scans' ground truth: drawn lines lie where Truth says, to a fraction of a pixel; the empty
// map's own calibration agrees with the scan transform; recipes replay byte for byte.
#include "scan_generator.h"

#include <QImage>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

namespace qvtest {
namespace {

// Grey level at a fractional position (pixel centres at whole numbers), bilinear; -1 outside.
double Sample(const TSyntheticScan& S, double X, double Y)
{
    const int x = static_cast<int>(std::floor(X)), y = static_cast<int>(std::floor(Y));
    if (x < 0 || y < 0 || x + 1 >= S.Width || y + 1 >= S.Height)
        return -1;
    const double tx = X - x, ty = Y - y;
    auto at = [&](int i, int j) { return static_cast<double>(S.Grey[static_cast<std::size_t>(j) * static_cast<std::size_t>(S.Width) + static_cast<std::size_t>(i)]); };
    return (at(x, y) * (1 - tx) + at(x + 1, y) * tx) * (1 - ty) + (at(x, y + 1) * (1 - tx) + at(x + 1, y + 1) * tx) * ty;
}

// A scan without noise, blur, stains, clutter or JPEG, but turned, scaled and in perspective.
TScanRecipe CleanRecipe(TScanBase Base, TScanProjection Projection, std::uint32_t Seed)
{
    TScanRecipe r;
    r.Seed = Seed;
    r.Base = Base;
    r.Projection = Projection;
    r.Rotation = 7.0;
    r.Scale = 1.3;
    r.Perspective = 0.015;
    r.JpegQuality = 0;
    r.Clutter = false;
    r.TargetPixels = 2.5e6;
    return r;
}

const TSyntheticScan& Cached(const TScanRecipe& R)
{
    static std::map<std::tuple<int, int, std::uint32_t>, TSyntheticScan> cache;
    auto key = std::make_tuple(int{R.Base}, int{R.Projection}, R.Seed);
    auto it = cache.find(key);
    if (it == cache.end())
        it = cache.emplace(key, MakeScan(R)).first;
    return it->second;
}

struct TLineStats {
    int Samples = 0;           // positions where the line shows
    double MedianOffset = 0;   // of the darkness centroid across the line from Truth, pixels
    double Contrast = 0;       // mean darkness at Truth minus 4 px beside it, grey levels
};

// Walks one drawn line (a parallel when Parallel) through Truth and measures the darkness profile
// across it at whole-pixel offsets -3..3, the paper level taken 4 and 5 px to either side.
TLineStats Measure(const TSyntheticScan& S, bool Parallel, double Value)
{
    const std::vector<double>& other = Parallel ? S.Longitudes : S.Latitudes;
    const double step = Parallel ? S.LongSpacing : S.LatSpacing;
    std::vector<double> offsets;
    double contrast = 0;
    for (int i = 0; i <= 400; ++i) {
        const double t = other.front() - step / 2 + (other.back() - other.front() + step) * i / 400;
        double x = 0, y = 0, x2 = 0, y2 = 0;
        if (!(Parallel ? S.Truth(Value, t, x, y) && S.Truth(Value, t + 1e-4, x2, y2)
                       : S.Truth(t, Value, x, y) && S.Truth(t + 1e-4, Value, x2, y2)))
            continue;
        const double len = std::hypot(x2 - x, y2 - y), nx = -(y2 - y) / len, ny = (x2 - x) / len;
        double paper = 0;
        bool inside = true;
        for (double d : {-5.0, -4.0, 4.0, 5.0}) {
            const double g = Sample(S, x + d * nx, y + d * ny);
            inside = inside && g >= 0;
            paper += g / 4;
        }
        double sw = 0, swd = 0, centre = 0;
        for (int d = -3; d <= 3 && inside; ++d) {
            const double g = Sample(S, x + d * nx, y + d * ny);
            inside = g >= 0;
            const double w = std::max(0.0, paper - g);
            sw += w;
            swd += w * d;
            if (d == 0)
                centre = paper - g;
        }
        if (!inside || sw < 20)  // a gap between dashes, or off the image
            continue;
        offsets.push_back(swd / sw);
        contrast += centre;
    }
    TLineStats s;
    s.Samples = static_cast<int>(offsets.size());
    if (s.Samples == 0)
        return s;
    std::nth_element(offsets.begin(), offsets.begin() + s.Samples / 2, offsets.end());
    s.MedianOffset = offsets[static_cast<std::size_t>(s.Samples / 2)];
    s.Contrast = contrast / s.Samples;
    return s;
}

struct TTruthCase {
    TScanBase Base;
    TScanProjection Projection;
    std::uint32_t Seed;
};

std::string CaseName(const ::testing::TestParamInfo<TTruthCase>& I)
{
    static const char* const names[] = {"EquiRect", "Miller", "Conic"};
    return std::string(I.param.Base == sbEmptyMap ? "EmptyMap" : names[I.param.Projection]) + std::to_string(I.param.Seed);
}

class ScanTruth : public ::testing::TestWithParam<TTruthCase> {};

TEST_P(ScanTruth, EveryDrawnLineIsCentredOnItsTruth)
{
    const TSyntheticScan& s = Cached(CleanRecipe(GetParam().Base, GetParam().Projection, GetParam().Seed));
    ASSERT_TRUE(s.HasGrid);
    ASSERT_GE(s.Latitudes.size(), 4u);
    ASSERT_GE(s.Longitudes.size(), 4u);
    ASSERT_LE(s.Latitudes.size(), 15u);
    ASSERT_LE(s.Longitudes.size(), 15u);
    for (bool parallel : {true, false})
        for (double v : parallel ? s.Latitudes : s.Longitudes) {
            const TLineStats m = Measure(s, parallel, v);
            SCOPED_TRACE(std::string(parallel ? "parallel " : "meridian ") + std::to_string(v) + ": " + s.Description);
            EXPECT_GE(m.Samples, 100);
            EXPECT_LT(std::fabs(m.MedianOffset), 0.15);
            EXPECT_GT(m.Contrast, 15.0);
        }
}

// Empty maps 15 and 17 have their frame on the lattice in both directions and off it in both.
INSTANTIATE_TEST_SUITE_P(Bases, ScanTruth,
                         ::testing::Values(TTruthCase{sbEmptyMap, spEquiRect, 15}, TTruthCase{sbEmptyMap, spEquiRect, 17},
                                           TTruthCase{sbWorld, spEquiRect, 21}, TTruthCase{sbWorld, spMiller, 22},
                                           TTruthCase{sbWorld, spConic, 23}, TTruthCase{sbWorld, spConic, 24}),
                         CaseName);

TEST(ScanGenerator, EmptyMapQuadsAreTheWarpOfTheirPixels)
{
    const TSyntheticScan& s = Cached(CleanRecipe(sbEmptyMap, spEquiRect, 17));
    ASSERT_EQ(s.BaseCalib.NumCalQuads, 9);
    const auto& h = s.Homography;
    // Inverse of the homography by its adjugate.
    const double a = h[4] * h[8] - h[5] * h[7], b = h[2] * h[7] - h[1] * h[8], c = h[1] * h[5] - h[2] * h[4];
    const double d = h[5] * h[6] - h[3] * h[8], e = h[0] * h[8] - h[2] * h[6], f = h[2] * h[3] - h[0] * h[5];
    const double g = h[3] * h[7] - h[4] * h[6], k = h[1] * h[6] - h[0] * h[7], l = h[0] * h[4] - h[1] * h[3];
    for (int i = 0; i < 9; ++i) {
        const qv::TCalQuad& q = s.BaseCalib.CalQuads[static_cast<std::size_t>(i)];
        double X = 0, Y = 0;
        ASSERT_TRUE(s.Truth(q.Latitude, q.Longitude, X, Y)) << i;
        const double w = g * X + k * Y + l, x = (a * X + b * Y + c) / w, y = (d * X + e * Y + f) / w;
        // The quads' pixels are rounded to whole pixels by the map; Truth is not.
        EXPECT_LE(std::fabs(x - q.MapX), 0.5 + 1e-9) << i;
        EXPECT_LE(std::fabs(y - q.MapY), 0.5 + 1e-9) << i;
    }
}

TEST(ScanGenerator, SameRecipeSameBytes)
{
    TScanRecipe r = BenchmarkRecipe(5);
    r.Stains = 3;
    r.Noise = 5;
    r.Clutter = true;
    r.TargetPixels = 1.5e6;
    const TSyntheticScan a = MakeScan(r), b = MakeScan(r);
    EXPECT_EQ(a.Grey, b.Grey);
    EXPECT_EQ(a.Description, b.Description);
    EXPECT_NEAR(static_cast<double>(a.Width) * a.Height / r.TargetPixels, 1.0, 0.03);
    ++r.Seed;
    const TSyntheticScan c = MakeScan(r);
    EXPECT_NE(a.Grey, c.Grey);
}

TEST(ScanGenerator, NoGridScansHaveNoTruth)
{
    TScanRecipe r = BenchmarkRecipe(203);
    r.TargetPixels = 1.5e6;
    const TSyntheticScan s = MakeScan(r);
    EXPECT_FALSE(s.HasGrid);
    EXPECT_TRUE(s.Latitudes.empty());
    EXPECT_TRUE(s.Longitudes.empty());
    double x = 0, y = 0;
    for (double lat = -80; lat <= 80; lat += 10)
        for (double lon = -170; lon <= 170; lon += 10)
            EXPECT_FALSE(s.Truth(lat, lon, x, y));
    const auto [lo, hi] = std::minmax_element(s.Grey.begin(), s.Grey.end());
    EXPECT_GT(*hi - *lo, 100);  // content, not a blank page
}

TEST(ScanGenerator, BenchmarkRecipesCoverThePromisedRanges)
{
    std::map<int, int> bases, projections;
    std::set<std::uint32_t> seeds;
    for (int n = 0; n < 220; ++n) {
        const TScanRecipe r = BenchmarkRecipe(n);
        EXPECT_EQ(r.Seed, BenchmarkRecipe(n).Seed);
        seeds.insert(r.Seed);
        ++bases[r.Base];
        if (r.Base == sbWorld)
            ++projections[r.Projection];
        EXPECT_EQ(r.Base == sbNoGrid, n >= 200) << n;
        EXPECT_LE(std::fabs(r.Rotation), 10.0);
        EXPECT_TRUE(r.Scale >= 0.8 && r.Scale <= 2.5) << r.Scale;
        EXPECT_TRUE(r.Perspective >= 0 && r.Perspective <= 0.02);
        EXPECT_TRUE(r.JpegQuality >= 40 && r.JpegQuality <= 90);
        EXPECT_TRUE(r.Blur >= 0 && r.Blur <= 1.5 && r.Noise >= 0 && r.Noise <= 8 && r.Stains >= 0 && r.Stains <= 4);
    }
    EXPECT_EQ(seeds.size(), 220u);
    EXPECT_EQ(bases[sbEmptyMap], 100);
    EXPECT_EQ(bases[sbWorld], 100);
    EXPECT_NEAR(projections[spConic], 33, 2);
}

TEST(ScanGenerator, SavedScanReadsBackPixelForPixel)
{
    TSyntheticScan s;
    s.Width = 37;
    s.Height = 5;
    for (int i = 0; i < s.Width * s.Height; ++i)
        s.Grey.push_back(static_cast<std::uint8_t>(i * 7));
    QTemporaryDir dir;
    const std::string name = dir.filePath("scan.png").toStdString();
    ASSERT_TRUE(SaveScan(s, name));
    const QImage back = QImage(QString::fromStdString(name)).convertToFormat(QImage::Format_Grayscale8);
    ASSERT_EQ(back.width(), 37);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 37; ++x)
            ASSERT_EQ(back.constScanLine(y)[x], s.Grey[static_cast<std::size_t>(y * 37 + x)]);
    EXPECT_FALSE(SaveScan(s, dir.filePath("missing/scan.png").toStdString()));
    s.Grey.pop_back();
    EXPECT_FALSE(SaveScan(s, name));
}

}  // namespace
}  // namespace qvtest
