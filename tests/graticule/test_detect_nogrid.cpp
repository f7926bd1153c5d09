// The graticule finder where there is nothing to find, on hostile input, and its progress and cancel.
#include "detect_scenes.h"

#include <qvgeo/graticule/graticule_detect.h>
#include <qvgeo/support/errors.h>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <string>

namespace {

std::vector<std::uint8_t> Paper(int W, int H, double Noise, std::uint64_t Seed, bool Uneven)
{
    cv::Mat m(H, W, CV_8U, cv::Scalar(235));
    if (Uneven)
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x)
                m.at<std::uint8_t>(y, x) =
                    static_cast<std::uint8_t>(200 + 40 * std::sin(x / 300.0) * std::cos(y / 250.0));
    if (Noise > 0.0) {
        cv::Mat n(H, W, CV_16S), m16;
        cv::RNG rng(Seed);
        rng.fill(n, cv::RNG::NORMAL, 0.0, Noise);
        m.convertTo(m16, CV_16S);
        m16 += n;
        m16.convertTo(m, CV_8U);
    }
    return {m.data, m.data + static_cast<std::size_t>(W) * H};
}

TEST(DetectGraticule, NothingToFind)
{
    struct TCase {
        const char* Name;
        double Noise;
        bool Uneven, Text, Shapes;
        int Jpeg;
    };
    const TCase cases[] = {
        {"blank", 0.0, false, false, false, 0},        {"noise", 12.0, false, false, false, 0},
        {"uneven paper, noise, JPEG", 6.0, true, false, false, 40},
        {"map content", 3.0, true, true, true, 60},   {"text only", 2.0, false, true, false, 75},
        {"shapes only", 2.0, false, false, true, 0},
    };
    for (const TCase& c : cases)
        for (std::uint64_t seed = 1; seed <= 3; ++seed) {
            SCOPED_TRACE(std::string(c.Name) + " seed " + std::to_string(seed));
            const int W = 1100, H = 800;
            std::vector<std::uint8_t> g = Paper(W, H, c.Noise, seed, c.Uneven);
            if (c.Text || c.Shapes)
                g = qvtest::DrawClutter(std::move(g), W, H, seed, c.Text, c.Shapes);
            if (c.Jpeg > 0)
                g = qvtest::JpegRoundTrip(g, W, H, c.Jpeg);
            const qv::TGratGrid G = qv::DetectGraticule({g.data(), W, H, W});
            EXPECT_FALSE(G.Found);
            EXPECT_EQ(G.Message, qv::NoGraticuleFound);
            EXPECT_TRUE(G.Nodes.empty());
            EXPECT_EQ(G.Width, W);
            EXPECT_EQ(G.Height, H);
        }
}

// Rows of text set like a page: regular horizontal rows but nothing that crosses them.
TEST(DetectGraticule, PageOfTextIsNoGrid)
{
    const int W = 900, H = 700;
    cv::Mat m(H, W, CV_8U, cv::Scalar(245));
    for (int y = 40; y < H; y += 28)
        cv::putText(m, "The quick brown fox jumps over the lazy dog 0123456789", cv::Point(20, y),
                    cv::FONT_HERSHEY_SIMPLEX, 0.75, cv::Scalar(20), 1, cv::LINE_AA);
    const qv::TGratGrid G = qv::DetectGraticule({m.data, W, H, W});
    EXPECT_FALSE(G.Found);
    EXPECT_EQ(G.Message, qv::NoGraticuleFound);
}

// One family alone (ruled paper) is no graticule, nor are two families far from perpendicular.
TEST(DetectGraticule, OneFamilyOrSkewFamiliesAreNoGrid)
{
    const int W = 900, H = 700;
    for (const double skew : {-1.0, 45.0, 60.0}) {
        SCOPED_TRACE("second family at " + std::to_string(skew));
        cv::Mat m(H, W, CV_8U, cv::Scalar(240));
        for (int y = 50; y < H; y += 80)
            cv::line(m, cv::Point(0, y), cv::Point(W - 1, y), cv::Scalar(90), 1, cv::LINE_AA);
        if (skew >= 0.0) {
            const double a = skew * 3.14159265358979 / 180.0;
            for (int k = -12; k <= 12; ++k) {
                const cv::Point2d c(W / 2.0 + k * 90.0 / std::cos(a), H / 2.0);
                const cv::Point2d d(std::sin(a) * 2000.0, std::cos(a) * 2000.0);
                cv::line(m, c - d, c + d, cv::Scalar(90), 1, cv::LINE_AA);
            }
        }
        const qv::TGratGrid G = qv::DetectGraticule({m.data, W, H, W});
        EXPECT_FALSE(G.Found);
        EXPECT_EQ(G.Message, qv::NoGraticuleFound);
    }
}

TEST(DetectGraticule, ImagesThatAreNotImagesRaise)
{
    std::vector<std::uint8_t> px(200 * 200, 128);
    const qv::TGreyImage bad[] = {
        {nullptr, 100, 100, 100}, {px.data(), 31, 100, 31}, {px.data(), 100, 31, 100},
        {px.data(), 200, 1, 200}, {px.data(), 100, 100, 99}, {px.data(), 100, 100, -100},
        {px.data(), 0, 0, 0},     {px.data(), -5, 100, 100},
    };
    for (const qv::TGreyImage& b : bad) {
        SCOPED_TRACE(std::to_string(b.Width) + " x " + std::to_string(b.Height) + " stride " +
                     std::to_string(b.Stride));
        EXPECT_THROW(qv::DetectGraticule(b), qv::EXELGeoMapError);
    }
}

TEST(DetectGraticule, SmallAndFlatImagesFindNothing)
{
    struct TCase {
        int W, H;
        std::ptrdiff_t Stride;
        int Fill;
        double Noise;
    };
    const TCase cases[] = {{32, 32, 32, 255, 0.0}, {32, 32, 40, 0, 0.0},      {33, 500, 33, 128, 30.0},
                           {700, 32, 701, 200, 50.0}, {64, 64, 64, 0, 120.0}, {400, 300, 512, 255, 0.0}};
    for (const TCase& c : cases) {
        SCOPED_TRACE(std::to_string(c.W) + " x " + std::to_string(c.H));
        cv::Mat m(c.H, static_cast<int>(c.Stride), CV_8U, cv::Scalar(c.Fill));
        if (c.Noise > 0.0) {
            cv::RNG rng(7);
            cv::Mat n(m.size(), CV_16S), m16;
            rng.fill(n, cv::RNG::NORMAL, 0.0, c.Noise);
            m.convertTo(m16, CV_16S);
            m16 += n;
            m16.convertTo(m, CV_8U);
        }
        const qv::TGratGrid G = qv::DetectGraticule({m.data, c.W, c.H, c.Stride});
        EXPECT_FALSE(G.Found);
        EXPECT_EQ(G.Message, qv::NoGraticuleFound);
    }
}

// A padded row (stride beyond the width) must be read as the caller laid it out: the same grid in a wider
// buffer whose padding is black gives the same crossings.
TEST(DetectGraticule, StrideIsHonoured)
{
    qvtest::TDetectScene s;
    s.Rotation = 2.5;
    s.Blur = 0.7;
    const qvtest::TDrawnScene D = qvtest::DrawScene(s);
    const int pad = 37, stride = s.Width + pad;
    std::vector<std::uint8_t> wide(static_cast<std::size_t>(stride) * s.Height, 0);
    for (int y = 0; y < s.Height; ++y)
        std::copy_n(D.Grey.begin() + static_cast<std::ptrdiff_t>(y) * s.Width, s.Width,
                    wide.begin() + static_cast<std::ptrdiff_t>(y) * stride);
    const qv::TGratGrid a = qv::DetectGraticule(D.Image());
    const qv::TGratGrid b = qv::DetectGraticule({wide.data(), s.Width, s.Height, stride});
    ASSERT_TRUE(a.Found);
    ASSERT_TRUE(b.Found);
    ASSERT_EQ(a.Nodes.size(), b.Nodes.size());
    for (std::size_t k = 0; k < a.Nodes.size(); ++k) {
        EXPECT_DOUBLE_EQ(a.Nodes[k].X, b.Nodes[k].X);
        EXPECT_DOUBLE_EQ(a.Nodes[k].Y, b.Nodes[k].Y);
    }
}

// Options out of range neither crash nor lose a plain grid.
TEST(DetectGraticule, OptionsOutOfRange)
{
    qvtest::TDetectScene s;
    s.Rotation = 5.0;
    s.Blur = 0.7;
    const qvtest::TDrawnScene D = qvtest::DrawScene(s);
    const double nan = std::nan("");
    // A search narrowed to 0° does not see lines turned by 5°, and a minimum spacing beyond the image
    // leaves nothing; values that are no numbers fall back to the defaults.
    struct TCase {
        double Rotation, Spacing;
        bool Findable;
    };
    const TCase cases[] = {{nan, 20.0, true},  {1e300, 20.0, true}, {-5.0, 20.0, false}, {12.0, nan, true},
                           {12.0, -1.0, true}, {12.0, 0.0, true},   {-1e300, 1e300, false}};
    for (const auto& [rot, spacing, findable] : cases) {
        SCOPED_TRACE(std::to_string(rot) + " " + std::to_string(spacing));
        qv::TGratDetectOptions o;
        o.MaxRotation = rot;
        o.MinSpacing = spacing;
        const qv::TGratGrid G = qv::DetectGraticule(D.Image(), o);
        EXPECT_EQ(G.Found, findable);
        if (G.Found)
            EXPECT_EQ(G.Nodes.size(), 42u);
        else
            EXPECT_EQ(G.Message, qv::NoGraticuleFound);
    }
}

TEST(DetectGraticule, ProgressRisesAndCancelStops)
{
    qvtest::TDetectScene s;
    s.Rotation = -4.0;
    const qvtest::TDrawnScene D = qvtest::DrawScene(s);
    std::vector<double> seen;
    qv::TGratDetectOptions o;
    o.Progress = [&](double d) {
        seen.push_back(d);
        return true;
    };
    const qv::TGratGrid G = qv::DetectGraticule(D.Image(), o);
    ASSERT_TRUE(G.Found);
    ASSERT_GE(seen.size(), 3u);
    for (std::size_t k = 1; k < seen.size(); ++k)
        EXPECT_GE(seen[k], seen[k - 1]);
    EXPECT_GE(seen.front(), 0.0);
    EXPECT_DOUBLE_EQ(seen.back(), 1.0);

    // Stopped at each report in turn: never a grid, always "cancelled".
    for (std::size_t stopAt = 0; stopAt < seen.size(); ++stopAt) {
        std::size_t calls = 0;
        o.Progress = [&](double) { return calls++ < stopAt; };
        const qv::TGratGrid C = qv::DetectGraticule(D.Image(), o);
        EXPECT_FALSE(C.Found);
        EXPECT_EQ(C.Message, "cancelled");
        EXPECT_TRUE(C.Nodes.empty());
        EXPECT_EQ(calls, stopAt + 1);
    }
}

}  // namespace
