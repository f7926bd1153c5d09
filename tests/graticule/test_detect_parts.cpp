// The graticule finder's stages on their own (white box): the lattice choice, the robust curve fit and the
// centre of a line's profile.
#include <qvgeo/graticule/grat_internal.h>

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

using namespace qv::grat_detail;

std::vector<TLineCandidate> Candidates(const std::vector<std::pair<double, double>>& PosStrength)
{
    std::vector<TLineCandidate> out;
    for (const auto& [p, s] : PosStrength) {
        TLineCandidate c;
        c.C0 = c.Pos = p;
        c.Strength = s;
        out.push_back(c);
    }
    return out;
}

std::vector<std::pair<double, int>> PosIndex(const std::vector<TLineCandidate>& L)
{
    std::vector<std::pair<double, int>> out;
    for (const TLineCandidate& c : L)
        out.push_back({c.Pos, c.Index});
    return out;
}

TEST(DetectGraticuleParts, LatticeChoice)
{
    struct TCase {
        const char* Name;
        std::vector<std::pair<double, double>> In;
        std::vector<std::pair<double, int>> Want;
    };
    const TCase cases[] = {
        {"regular", {{100, 50}, {200, 60}, {300, 55}, {400, 50}}, {{100, 0}, {200, 1}, {300, 2}, {400, 3}}},
        {"a line missing", {{100, 50}, {200, 60}, {400, 50}, {500, 52}}, {{100, 0}, {200, 1}, {400, 3}, {500, 4}}},
        // The black frame 17 pixels outside the outer lines and a road between two lines stay out.
        {"frame and road", {{83, 500}, {100, 50}, {200, 60}, {260, 400}, {300, 55}, {400, 50}, {417, 500}},
         {{100, 0}, {200, 1}, {300, 2}, {400, 3}}},
        // Spacing growing by 8 % a step (parallels of a cylindrical map towards the pole).
        {"growing spacing", {{0, 50}, {100, 50}, {208, 50}, {324.6, 50}, {450.6, 50}, {586.6, 50}},
         {{0, 0}, {100, 1}, {208, 2}, {324.6, 3}, {450.6, 4}, {586.6, 5}}},
        // Faint noise chains at random places do not make a lattice of their own.
        {"noise", {{37, 3}, {90, 2}, {100, 50}, {151, 2}, {200, 60}, {300, 55}, {333, 3}},
         {{100, 0}, {200, 1}, {300, 2}}},
        // Many faint chains spaced as regularly as the four true lines, and one more of them.
        {"faint lattice", {{100, 10}, {200, 300}, {290, 10}, {450, 300}, {480, 10}, {670, 12}, {700, 300},
                           {860, 10}, {950, 300}},
         {{200, 0}, {450, 1}, {700, 2}, {950, 3}}},
        {"two lines", {{100, 50}, {200, 60}}, {}},
        {"three with a gap", {{100, 50}, {170, 50}, {300, 50}}, {}},
        {"irregular", {{100, 50}, {150, 50}, {300, 50}, {330, 50}, {420, 50}}, {}},
    };
    for (const TCase& c : cases) {
        SCOPED_TRACE(c.Name);
        EXPECT_EQ(PosIndex(SelectLattice(Candidates(c.In), 20.0)), c.Want);
    }
}

TEST(DetectGraticuleParts, RegularityAtFullResolution)
{
    // Parallels of a cylindrical map towards the pole (each gap 6 % wider), a neatline one step beyond the
    // last line but 3 pixels off it, a road in place of a missing line 6 pixels off, and a line at the
    // right place at one end of the common stretch but turned away from its neighbours at the other.
    std::vector<double> p{0};
    for (int k = 0; k < 7; ++k)
        p.push_back(p.back() + 100.0 * std::pow(1.06, k));
    struct TCase {
        const char* Name;
        std::vector<int> Index;
        std::vector<std::vector<double>> Pos;
        std::vector<std::size_t> Want;
    };
    const TCase cases[] = {
        {"growing spacing", {0, 1, 2, 3, 4, 5}, {{p[0], p[1], p[2], p[3], p[4], p[5]}}, {0, 1, 2, 3, 4, 5}},
        {"neatline", {0, 1, 2, 3, 4, 5}, {{p[0], p[1], p[2], p[3], p[4], p[5] + 3.0}}, {0, 1, 2, 3, 4}},
        {"road", {0, 1, 3, 4, 5, 6}, {{p[0], p[1], p[3], p[4] - 6.0, p[5], p[6]}}, {0, 1, 2, 4, 5}},
        {"turned", {0, 1, 2, 3, 4}, {{p[0], p[1], p[2], p[3], p[4]}, {p[0], p[1], p[2] + 4.0, p[3], p[4]}},
         {0, 1, 3, 4}},
        // Four lines leave three, which can only be judged by how evenly they lie.
        {"four lines, one off", {0, 1, 2, 3}, {{0.0, 100.0, 205.0, 300.0}}, {0, 1, 3}},
        {"three lines", {0, 1, 2}, {{0.0, 100.0, 150.0}}, {0, 1, 2}},
    };
    for (const TCase& c : cases) {
        SCOPED_TRACE(c.Name);
        EXPECT_EQ(RegularLines(c.Index, c.Pos, 100.0), c.Want);
    }
}

TEST(DetectGraticuleParts, RobustCurveFit)
{
    // u = 40 + 0.05 t - 2e-5 t², sampled every 4 pixels with a small alternating scatter, a stretch
    // disturbed by a road (3 pixels off) and two stray hits far beyond the end.
    std::vector<qv::TGratPoint> pts;
    const auto truth = [](double t) { return 40.0 + 0.05 * t - 2e-5 * t * t; };
    for (int t = 100; t <= 1500; t += 4) {
        double u = truth(t) + ((t / 4) % 2 ? 0.1 : -0.1);
        if (t >= 700 && t < 780)
            u += 3.0;
        pts.push_back({static_cast<double>(t), u});
    }
    pts.push_back({1900.0, truth(1900.0)});
    pts.push_back({1950.0, truth(1950.0)});
    const TRefinedLine L = FitCurve(pts, 0.5, 4);
    ASSERT_TRUE(L.Ok);
    for (double t : {100.0, 700.0, 1500.0})
        EXPECT_NEAR(L.At(t), truth(t), 0.02) << t;
    EXPECT_NEAR(L.Rms, 0.1, 0.01);
    EXPECT_DOUBLE_EQ(L.From, 100.0);
    EXPECT_DOUBLE_EQ(L.To, 1500.0);
    EXPECT_EQ(L.Samples.size(), pts.size() - 2 - 20);
    EXPECT_GT(L.SigmaAt(800.0), 0.0);
    EXPECT_LT(L.SigmaAt(800.0), L.SigmaAt(1500.0));

    // Held at a given curvature, the fit keeps it and finds place and slope.
    const TRefinedLine H = FitCurve(pts, 0.5, 4, -1e-5);
    ASSERT_TRUE(H.Ok);
    EXPECT_NEAR(H.C2, -1e-5, 1e-12);
    EXPECT_FALSE(FitCurve({{0, 1}, {4, 1}, {8, 1}}, 0.5, 4).Ok);
}

// A line of one pixel's width, anti-aliased over two rows at a fractional place: the centre is found to
// a hundredth of a pixel wherever the prediction starts within a few pixels.
TEST(DetectGraticuleParts, CentreOfAThinLine)
{
    const int W = 64, H = 40;
    for (const double centre : {20.0, 20.25, 20.5, 20.8}) {
        std::vector<std::uint8_t> img(static_cast<std::size_t>(W) * H, 230);
        const int r = static_cast<int>(std::floor(centre));
        const double f = centre - r;
        for (int x = 0; x < W; ++x) {
            img[static_cast<std::size_t>(r) * W + x] = static_cast<std::uint8_t>(std::lround(230 - 120 * (1 - f)));
            img[static_cast<std::size_t>(r + 1) * W + x] = static_cast<std::uint8_t>(std::lround(230 - 120 * f));
        }
        for (const bool turned : {false, true}) {
            std::vector<std::uint8_t> t(img.size());
            if (turned)
                for (int y = 0; y < H; ++y)
                    for (int x = 0; x < W; ++x)
                        t[static_cast<std::size_t>(x) * H + y] = img[static_cast<std::size_t>(y) * W + x];
            const TFamilyImage fi =
                turned ? TFamilyImage{t.data(), H, H, W, true} : TFamilyImage{img.data(), W, W, H, false};
            TRefineParams p;
            p.AlongHalf = 6;
            p.AcrossHalf = 5;
            const std::vector<double> shape(13, 0.0);
            for (const double start : {-3.0, -0.4, 0.0, 1.7, 3.5}) {
                double c = 0.0;
                ASSERT_TRUE(MeasureCentre(fi, 30, centre + start, shape, p, c)) << centre << " " << start;
                EXPECT_NEAR(c, centre, 0.01) << centre << " from " << start << (turned ? " turned" : "");
            }
        }
    }
}

}  // namespace
