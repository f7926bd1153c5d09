// The synthetic scans' ground truth: drawn lines lie where Truth says, to a fraction of a pixel; the empty
// map's own calibration agrees with the scan transform; turn, scale, perspective, noise, JPEG and stains
// are those the recipe asks for; recipes replay byte for byte.
#include "scan_generator.h"

#include <QImage>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <tuple>

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

// The recipe's turn is counter-clockwise as seen and its scale is scan pixels per base pixel: read off
// the empty map's top edge, whose base pixels its calibration gives.
TEST(ScanGenerator, TurnAndScaleAreThoseOfTheRecipe)
{
    for (double rotation : {6.0, -9.0}) {
        TScanRecipe r = CleanRecipe(sbEmptyMap, spEquiRect, 17);
        r.Rotation = rotation;
        r.Perspective = 0;
        r.TargetPixels = 0;
        r.Scale = 0.9;
        const TSyntheticScan s = MakeScan(r);
        const qv::TCalQuad& nw = s.BaseCalib.CalQuads[6];  // top row of the 3 x 3 quads: west, middle, east
        const qv::TCalQuad& ne = s.BaseCalib.CalQuads[8];
        double x0 = 0, y0 = 0, x1 = 0, y1 = 0;
        ASSERT_TRUE(s.Truth(nw.Latitude, nw.Longitude, x0, y0) && s.Truth(ne.Latitude, ne.Longitude, x1, y1));
        EXPECT_NEAR(std::atan2(y0 - y1, x1 - x0) * 180 / 3.14159265358979, rotation, 1e-6);
        EXPECT_NEAR(std::hypot(x1 - x0, y1 - y0) / (ne.MapX - nw.MapX), 0.9, 1e-3);
    }
}

// Perspective: the local scale at the base map's corners spreads by about the recipe's share.
TEST(ScanGenerator, PerspectiveChangesTheScaleAcrossTheMap)
{
    for (double p : {0.0, 0.02}) {
        TScanRecipe r = CleanRecipe(sbEmptyMap, spEquiRect, 15);
        r.Perspective = p;
        const TSyntheticScan s = MakeScan(r);
        const qv::TCalibData& c = s.BaseCalib;
        const double dLat = (c.CalQuads[6].Latitude - c.CalQuads[0].Latitude) * 1e-4;
        const double dLon = (c.CalQuads[2].Longitude - c.CalQuads[0].Longitude) * 1e-4;
        std::vector<double> scales;  // square root of the area a small geographic step covers
        for (int q : {0, 2, 6, 8}) {  // the four corners, stepping inwards
            const qv::TCalQuad& k = c.CalQuads[static_cast<std::size_t>(q)];
            const double sLat = q < 6 ? dLat : -dLat, sLon = q % 3 == 0 ? dLon : -dLon;
            double x = 0, y = 0, xa = 0, ya = 0, xb = 0, yb = 0;
            ASSERT_TRUE(s.Truth(k.Latitude, k.Longitude, x, y));
            ASSERT_TRUE(s.Truth(k.Latitude + sLat, k.Longitude, xa, ya));
            ASSERT_TRUE(s.Truth(k.Latitude, k.Longitude + sLon, xb, yb));
            scales.push_back(std::sqrt(std::fabs((xa - x) * (yb - y) - (ya - y) * (xb - x))));
        }
        const auto [lo, hi] = std::minmax_element(scales.begin(), scales.end());
        const double spread = *hi / *lo - 1;
        if (p == 0)
            EXPECT_LT(spread, 1e-6);
        else
            EXPECT_TRUE(spread > 0.5 * p && spread < 2.5 * p) << spread;
    }
}

// The photographic steps do what the recipe asks: noise of its sigma on blank paper, JPEG losses that
// grow as the quality drops, stains that darken.
TEST(ScanGenerator, NoiseJpegAndStainsFollowTheRecipe)
{
    TScanRecipe r = CleanRecipe(sbEmptyMap, spEquiRect, 15);
    r.TargetPixels = 1e6;
    r.Noise = 4;
    const TSyntheticScan noisy = MakeScan(r);
    // The paper in the four corners of the canvas (the margin is at least 10 px), each corner about its
    // own mean: the light differs between them.
    double variance = 0;
    for (int cx : {0, noisy.Width - 8})
        for (int cy : {0, noisy.Height - 8}) {
            double sum = 0, sum2 = 0;
            for (int y = cy; y < cy + 8; ++y)
                for (int x = cx; x < cx + 8; ++x) {
                    const double g = noisy.Grey[static_cast<std::size_t>(y) * static_cast<std::size_t>(noisy.Width) +
                                                static_cast<std::size_t>(x)];
                    sum += g;
                    sum2 += g * g;
                }
            variance += (sum2 / 64 - (sum / 64) * (sum / 64)) * 64 / 63 / 4;
        }
    EXPECT_NEAR(std::sqrt(variance), 4.0, 0.6);

    r.Noise = 0;
    const TSyntheticScan plain = MakeScan(r);
    auto meanDiff = [&](const TSyntheticScan& a) {
        double d = 0;
        for (std::size_t i = 0; i < a.Grey.size(); ++i)
            d += std::abs(int{a.Grey[i]} - int{plain.Grey[i]});
        return d / static_cast<double>(a.Grey.size());
    };
    r.JpegQuality = 90;
    const double loss90 = meanDiff(MakeScan(r));
    r.JpegQuality = 40;
    const double loss40 = meanDiff(MakeScan(r));
    EXPECT_GT(loss90, 0.05);
    EXPECT_GT(loss40, 1.3 * loss90);

    r.JpegQuality = 0;
    r.Stains = 4;
    const TSyntheticScan stained = MakeScan(r);
    double before = 0, after = 0;
    for (std::size_t i = 0; i < plain.Grey.size(); ++i) {
        before += plain.Grey[i];
        after += stained.Grey[i];
    }
    EXPECT_LT(after, before * 0.995);
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
