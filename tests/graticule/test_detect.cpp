// The graticule finder on drawn scenes with exact crossings: straight, turned and curved grids, dashed
// lines under JPEG, missing lines, frames, and our own generated empty maps.
#include "detect_scenes.h"

#include <qvgeo/graticule/graticule_detect.h>
#include <qvgeo/mapview/empty_map.h>
#include <qvgeo/platform/bitmap.h>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <set>

namespace {

using qvtest::DrawScene;
using qvtest::TDetectScene;
using qvtest::TDrawnScene;

struct TMatch {
    int Nodes = 0, Missed = 0;
    double MaxErr = 0.0;
};

// Every detected node must sit on the true crossing its lattice numbers name (one offset for all rows,
// one for all columns) within Tol, and every true crossing of drawn lines inside the image (Margin pixels
// in) must have been detected.
TMatch Compare(const qv::TGratGrid& G, const std::vector<std::vector<std::pair<double, double>>>& Truth,
               const std::vector<bool>& RowDrawn, double Tol, int Width, int Height, double Margin = 12.0)
{
    TMatch m;
    if (G.Nodes.empty()) {
        ADD_FAILURE() << "no nodes";
        return m;
    }
    // Lattice offsets from the true crossing nearest to the first node.
    int oi = 0, oj = 0;
    double best = 1e300;
    for (std::size_t i = 0; i < Truth.size(); ++i)
        for (std::size_t j = 0; j < Truth[i].size(); ++j) {
            const double d = std::hypot(Truth[i][j].first - G.Nodes[0].X, Truth[i][j].second - G.Nodes[0].Y);
            if (d < best) {
                best = d;
                oi = static_cast<int>(i) - G.Nodes[0].Row;
                oj = static_cast<int>(j) - G.Nodes[0].Col;
            }
        }
    std::set<std::pair<int, int>> found;
    for (const qv::TGratNode& n : G.Nodes) {
        const int i = n.Row + oi, j = n.Col + oj;
        if (i < 0 || j < 0 || i >= static_cast<int>(Truth.size()) || j >= static_cast<int>(Truth[0].size())) {
            ADD_FAILURE() << "node " << n.Row << "," << n.Col << " at " << n.X << "," << n.Y << " is no crossing";
            continue;
        }
        EXPECT_TRUE(RowDrawn[static_cast<std::size_t>(i)]) << "a node on the missing parallel " << i;
        const double err = std::hypot(Truth[i][j].first - n.X, Truth[i][j].second - n.Y);
        m.MaxErr = std::max(m.MaxErr, err);
        EXPECT_LE(err, Tol) << "node " << n.Row << "," << n.Col << " at " << n.X << "," << n.Y << " true "
                            << Truth[i][j].first << "," << Truth[i][j].second;
        found.insert({i, j});
        ++m.Nodes;
    }
    for (std::size_t i = 0; i < Truth.size(); ++i)
        for (std::size_t j = 0; j < Truth[i].size(); ++j) {
            const auto [x, y] = Truth[i][j];
            if (!RowDrawn[i] || x < Margin || y < Margin || x > Width - 1 - Margin || y > Height - 1 - Margin)
                continue;
            if (!found.count({static_cast<int>(i), static_cast<int>(j)})) {
                ++m.Missed;
                ADD_FAILURE() << "true crossing " << i << "," << j << " at " << x << "," << y << " not found";
            }
        }
    return m;
}

TMatch CheckScene(const TDetectScene& S, double Tol)
{
    const TDrawnScene D = DrawScene(S);
    const qv::TGratGrid G = qv::DetectGraticule(D.Image());
    EXPECT_TRUE(G.Found) << G.Message;
    if (!G.Found)
        return {};
    EXPECT_EQ(G.Width, S.Width);
    EXPECT_EQ(G.Height, S.Height);
    EXPECT_TRUE(G.Message.empty()) << G.Message;
    return Compare(G, D.Nodes, D.RowDrawn, Tol, S.Width, S.Height);
}

struct TStraightCase {
    double Rotation, Blur, Noise;
    int Jpeg;
    bool Dashed;
    double LineWidth;
};

TEST(DetectGraticule, StraightGridsTurnedBlurredAndCompressed)
{
    const TStraightCase cases[] = {
        {0.0, 0.0, 0.0, 0, false, 1.0},   {3.3, 0.7, 2.0, 0, false, 1.5},  {10.0, 0.8, 3.0, 90, false, 2.0},
        {-10.0, 0.8, 3.0, 90, false, 1.0}, {-6.5, 1.2, 4.0, 60, true, 1.0}, {11.5, 0.6, 2.0, 75, false, 3.0},
    };
    for (const TStraightCase& c : cases) {
        SCOPED_TRACE("rotation " + std::to_string(c.Rotation) + " jpeg " + std::to_string(c.Jpeg));
        TDetectScene s;
        s.Rotation = c.Rotation;
        s.Blur = c.Blur;
        s.Noise = c.Noise;
        s.JpegQuality = c.Jpeg;
        s.Dashed = c.Dashed;
        s.LineWidth = c.LineWidth;
        const TDrawnScene D = DrawScene(s);
        const qv::TGratGrid G = qv::DetectGraticule(D.Image());
        ASSERT_TRUE(G.Found) << G.Message;
        EXPECT_EQ(G.Parallels.size(), 6u);
        EXPECT_EQ(G.Meridians.size(), 7u);
        EXPECT_NEAR(G.Rotation, c.Rotation, 0.05);
        EXPECT_GT(G.Confidence, 0.7);
        const TMatch m = Compare(G, D.Nodes, D.RowDrawn, 0.3, s.Width, s.Height);
        EXPECT_EQ(m.Nodes, 42);
        for (const qv::TGratNode& n : G.Nodes) {
            EXPECT_TRUE(n.Seen);
            EXPECT_GT(n.Sigma, 0.0);
            EXPECT_LT(n.Sigma, 0.3);
        }
        for (const auto* fam : {&G.Parallels, &G.Meridians})
            for (std::size_t k = 0; k < fam->size(); ++k) {
                EXPECT_EQ((*fam)[k].Index, static_cast<int>(k));
                EXPECT_GT((*fam)[k].Coverage, 0.8);
                EXPECT_LT((*fam)[k].RmsPixels, 0.5);
                EXPECT_GT((*fam)[k].Samples.size(), 20u);
            }
    }
}

// A scan beyond the coarse search's working size: the lines are found on a reduced image and measured
// at full resolution, so both coordinate systems must meet exactly.
TEST(DetectGraticule, LargeScanSearchedReduced)
{
    TDetectScene s;
    s.Width = 2600;
    s.Height = 1900;
    s.CX = 1290.0;
    s.CY = 960.0;
    s.SpacingX = 330.0;
    s.SpacingY = 270.0;
    s.Rotation = -7.0;
    s.LineWidth = 2.5;
    s.Blur = 1.0;
    s.Noise = 3.0;
    s.Dashed = true;
    const TDrawnScene D = DrawScene(s);
    const qv::TGratGrid G = qv::DetectGraticule(D.Image());
    ASSERT_TRUE(G.Found) << G.Message;
    EXPECT_EQ(G.Parallels.size(), 6u);
    EXPECT_EQ(G.Meridians.size(), 7u);
    EXPECT_NEAR(G.Rotation, -7.0, 0.05);
    const TMatch m = Compare(G, D.Nodes, D.RowDrawn, 0.3, s.Width, s.Height);
    EXPECT_EQ(m.Nodes, 42);
}

TEST(DetectGraticule, CurvedParallelsAndConvergingMeridians)
{
    struct TConic {
        double AX, AY, R0, A0, DA;
        int Jpeg;
    };
    const TConic cases[] = {{450, -1500, 1600, -0.2, 0.05, 0}, {300, -900, 1000, -0.05, 0.04, 80},
                            {700, -2500, 2600, -0.14, 0.035, 60}};
    for (const TConic& c : cases) {
        SCOPED_TRACE("apex " + std::to_string(c.AX) + "," + std::to_string(c.AY));
        TDetectScene s;
        s.Conic = true;
        s.AX = c.AX;
        s.AY = c.AY;
        s.R0 = c.R0;
        s.A0 = c.A0;
        s.DA = c.DA;
        s.Blur = 0.8;
        s.Noise = 3.0;
        s.JpegQuality = c.Jpeg;
        const TMatch m = CheckScene(s, 0.3);
        EXPECT_EQ(m.Missed, 0);
        EXPECT_GE(m.Nodes, 30);
    }
}

TEST(DetectGraticule, MissingLineLeavesItsNumberOut)
{
    TDetectScene s;
    s.Rotation = 4.0;
    s.Blur = 0.7;
    s.SkipRows = {2};
    const TDrawnScene D = DrawScene(s);
    const qv::TGratGrid G = qv::DetectGraticule(D.Image());
    ASSERT_TRUE(G.Found) << G.Message;
    std::vector<int> rows;
    for (const qv::TGratCurve& c : G.Parallels)
        rows.push_back(c.Index);
    EXPECT_EQ(rows, (std::vector<int>{0, 1, 3, 4, 5}));
    Compare(G, D.Nodes, D.RowDrawn, 0.3, s.Width, s.Height);
    EXPECT_LT(G.Confidence, 1.0);
}

TEST(DetectGraticule, FrameIsALineOnlyWhereItLiesOnTheGrid)
{
    for (const bool onGrid : {false, true}) {
        SCOPED_TRACE(onGrid ? "frame on the grid" : "frame off the grid");
        TDetectScene s;
        s.Rows = 5;
        s.Cols = 6;
        s.SpacingX = s.SpacingY = 100.0;
        s.Rotation = -3.0;
        s.Blur = 0.7;
        s.Frame = true;
        s.FrameGap = onGrid ? 100.0 : 23.0;
        const TDrawnScene D = DrawScene(s);
        const qv::TGratGrid G = qv::DetectGraticule(D.Image());
        ASSERT_TRUE(G.Found) << G.Message;
        EXPECT_EQ(G.Parallels.size(), onGrid ? 7u : 5u);
        EXPECT_EQ(G.Meridians.size(), onGrid ? 8u : 6u);
        if (!onGrid)
            Compare(G, D.Nodes, D.RowDrawn, 0.3, s.Width, s.Height);
    }
}

// Labels set on the parallels just inside the outer meridians, as our own maps place them: the crossings
// at the ends of the parallels must not be pulled towards the letters.
TEST(DetectGraticule, LabelsOnTheLinesEnds)
{
    TDetectScene s;
    s.Rotation = 1.5;
    s.Blur = 0.8;
    s.Noise = 2.0;
    s.Darkness = 63;  // dashed silver on white, the ink of the labels black
    s.Dashed = true;
    s.LineWidth = 1.0;
    TDrawnScene D = DrawScene(s);
    cv::Mat m(s.Height, s.Width, CV_8U, D.Grey.data());
    for (std::size_t i = 0; i < D.Nodes.size(); ++i) {
        const auto [x0, y0] = D.Nodes[i].front();
        const auto [x1, y1] = D.Nodes[i].back();
        // Text 13 pixels tall whose ink lies mostly above the baseline's midpoint: off-centre on the line.
        const std::string label = " 4" + std::to_string(i) + "'30 N";
        cv::putText(m, label, cv::Point(static_cast<int>(x0) + 6, static_cast<int>(y0) + 5), cv::FONT_HERSHEY_SIMPLEX,
                    0.45, cv::Scalar(40), 1, cv::LINE_AA);
        cv::putText(m, label, cv::Point(static_cast<int>(x1) - 80, static_cast<int>(y1) + 5), cv::FONT_HERSHEY_SIMPLEX,
                    0.45, cv::Scalar(40), 1, cv::LINE_AA);
    }
    const qv::TGratGrid G = qv::DetectGraticule(D.Image());
    ASSERT_TRUE(G.Found) << G.Message;
    const TMatch r = Compare(G, D.Nodes, D.RowDrawn, 0.3, s.Width, s.Height);
    EXPECT_EQ(r.Nodes, 42);
}

TEST(DetectGraticule, ClutterAcrossTheLines)
{
    TDetectScene s;
    s.Rotation = -7.0;
    s.Blur = 0.8;
    s.Noise = 4.0;
    s.JpegQuality = 70;
    s.Clutter = true;
    s.Seed = 5;
    const TMatch m = CheckScene(s, 0.35);
    EXPECT_EQ(m.Missed, 0);
}

// Our own generated map: dashed silver lines on white, a black frame at 30 and a dotted one at 26 pixels,
// labels beside the lines; turned about its centre and saved as JPEG at quality 40.
TEST(DetectGraticule, GeneratedEmptyMapTurnedUnderJpeg40)
{
    qv::TEmptyMapRequest r;
    r.LatMin = 40.3;
    r.LatMax = 47.6;
    r.LongMin = 5.2;
    r.LongMax = 16.2;
    r.LatGratDist = 1.0;
    r.LongGratDist = 1.5;
    r.Width = 1000;
    r.Height = 800;
    qv::TBitmap bmp;
    qv::TCalibData cal;
    qv::GenerateEmptyMap(r, bmp, cal);
    const int W = bmp.Width(), H = bmp.Height();
    cv::Mat grey(H, W, CV_8U);
    for (int y = 0; y < H; ++y) {
        const std::uint32_t* row = bmp.ScanLine(y);
        for (int x = 0; x < W; ++x)
            grey.at<std::uint8_t>(y, x) = static_cast<std::uint8_t>(
                (((row[x] >> 16) & 0xff) * 299 + ((row[x] >> 8) & 0xff) * 587 + (row[x] & 0xff) * 114) / 1000);
    }
    // The drawn rows and columns, as the generator places them.
    std::vector<double> rows, cols;
    for (double lat = std::trunc(r.LatMin); lat < r.LatMax; lat += r.LatGratDist) {
        const double y = (H - std::round((lat - r.LatMin) / (r.LatMax - r.LatMin) * (H - 60))) - 30;
        if (y > 30 && y < H - 30)
            rows.insert(rows.begin(), y);
    }
    for (double lon = 1.5 * std::trunc(r.LongMin / 1.5); lon < r.LongMax; lon += r.LongGratDist) {
        const double x = std::round((lon - r.LongMin) / (r.LongMax - r.LongMin) * (W - 60)) + 30;
        if (x > 30 && x < W - 30)
            cols.push_back(x);
    }
    ASSERT_EQ(rows.size(), 7u);
    ASSERT_EQ(cols.size(), 7u);
    for (const double angle : {0.0, 8.0, -9.5}) {
        SCOPED_TRACE("turned by " + std::to_string(angle));
        // Turned clockwise by angle about the centre onto a larger sheet of paper.
        const int SW = W + 200, SH = H + 200;
        const cv::Mat M = cv::getRotationMatrix2D(cv::Point2f((SW - 1) / 2.0f, (SH - 1) / 2.0f), -angle, 1.0);
        cv::Mat sheet(SH, SW, CV_8U, cv::Scalar(255)), scan;
        grey.copyTo(sheet(cv::Rect(100, 100, W, H)));
        cv::warpAffine(sheet, scan, M, sheet.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar(255));
        std::vector<std::uint8_t> pix(scan.data, scan.data + static_cast<std::size_t>(SW) * SH);
        pix = qvtest::JpegRoundTrip(pix, SW, SH, 40);
        std::vector<std::vector<std::pair<double, double>>> truth(rows.size());
        for (std::size_t i = 0; i < rows.size(); ++i)
            for (const double x : cols) {
                const double px = x + 100, py = rows[i] + 100;
                truth[i].push_back({M.at<double>(0, 0) * px + M.at<double>(0, 1) * py + M.at<double>(0, 2),
                                    M.at<double>(1, 0) * px + M.at<double>(1, 1) * py + M.at<double>(1, 2)});
            }
        const qv::TGratGrid G = qv::DetectGraticule({pix.data(), SW, SH, SW});
        ASSERT_TRUE(G.Found) << G.Message;
        EXPECT_EQ(G.Parallels.size(), rows.size());
        EXPECT_EQ(G.Meridians.size(), cols.size());
        EXPECT_NEAR(G.Rotation, angle, 0.1);
        const TMatch m = Compare(G, truth, std::vector<bool>(rows.size(), true), 0.3, SW, SH);
        EXPECT_EQ(m.Nodes, 49);
    }
}

}  // namespace
