#include "detect_scenes.h"

#include <qvgeo/platform/bitmap.h>
#include <qvgeo/platform/image_files.h>

#include <QTemporaryDir>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace qvtest {

namespace {

// Share of a pixel covered by a line of width W whose centre is D pixels away (a box filter's edge).
double Cover(double D, double W)
{
    return std::clamp(W / 2.0 + 0.5 - std::abs(D), 0.0, 1.0);
}

double Dash(double Along, bool Dashed)
{
    if (!Dashed)
        return 1.0;
    const double m = std::fmod(std::fmod(Along, 6.0) + 6.0, 6.0);
    return m < 4.0 ? 1.0 : 0.0;
}

}  // namespace

TDrawnScene DrawScene(const TDetectScene& S)
{
    TDrawnScene out;
    out.Width = S.Width;
    out.Height = S.Height;
    const double pi = 3.14159265358979323846;
    const double th = S.Rotation * pi / 180.0, c = std::cos(th), s = std::sin(th);
    // Straight grid: line i of the parallels at v = (i - (Rows-1)/2)·SpacingY in the turned frame.
    const double v0 = -(S.Rows - 1) / 2.0 * S.SpacingY, u0 = -(S.Cols - 1) / 2.0 * S.SpacingX;
    out.RowDrawn.assign(static_cast<std::size_t>(S.Rows), true);
    for (int r : S.SkipRows)
        out.RowDrawn[static_cast<std::size_t>(r)] = false;
    out.Nodes.assign(static_cast<std::size_t>(S.Rows), std::vector<std::pair<double, double>>(S.Cols));
    for (int i = 0; i < S.Rows; ++i)
        for (int j = 0; j < S.Cols; ++j) {
            if (S.Conic) {
                const double r = S.R0 + i * S.DR, a = S.A0 + j * S.DA;
                out.Nodes[i][j] = {S.AX + r * std::sin(a), S.AY + r * std::cos(a)};
            } else {
                const double u = u0 + j * S.SpacingX, v = v0 + i * S.SpacingY;
                out.Nodes[i][j] = {S.CX + u * c - v * s, S.CY + u * s + v * c};
            }
        }
    cv::Mat img(S.Height, S.Width, CV_64F, cv::Scalar(0.0));  // darkness 0..1
    for (int y = 0; y < S.Height; ++y)
        for (int x = 0; x < S.Width; ++x) {
            // p: across the parallels (which parallel), q: across the meridians; both in line units.
            double dp, dq, alongP, alongQ, p, q;
            if (S.Conic) {
                const double dx = x - S.AX, dy = y - S.AY, rho = std::hypot(dx, dy), phi = std::atan2(dx, dy);
                p = (rho - S.R0) / S.DR;
                q = (phi - S.A0) / S.DA;
                const double ip = std::round(p), iq = std::round(q);
                dp = rho - (S.R0 + ip * S.DR);
                dq = rho * std::sin(phi - (S.A0 + iq * S.DA));
                alongP = rho * phi;
                alongQ = rho;
            } else {
                const double dx = x - S.CX, dy = y - S.CY, u = dx * c + dy * s, v = -dx * s + dy * c;
                p = (v - v0) / S.SpacingY;
                q = (u - u0) / S.SpacingX;
                dp = (p - std::round(p)) * S.SpacingY;
                dq = (q - std::round(q)) * S.SpacingX;
                alongP = u;
                alongQ = v;
            }
            const int ip = static_cast<int>(std::lround(p)), iq = static_cast<int>(std::lround(q));
            // Lines run from the first to the last line of the other family.
            const bool inP = q > -0.02 && q < S.Cols - 1 + 0.02, inQ = p > -0.02 && p < S.Rows - 1 + 0.02;
            double d = 0.0;
            if (inP && ip >= 0 && ip < S.Rows && out.RowDrawn[static_cast<std::size_t>(ip)])
                d = std::max(d, Cover(dp, S.LineWidth) * Dash(alongP, S.Dashed));
            if (inQ && iq >= 0 && iq < S.Cols)
                d = std::max(d, Cover(dq, S.LineWidth) * Dash(alongQ, S.Dashed));
            img.at<double>(y, x) = d;
        }
    cv::Mat grey(S.Height, S.Width, CV_64F, cv::Scalar(255.0));
    grey -= img * S.Darkness;
    if (S.Frame) {
        // The frame around the outer lines (straight grids only), a plain black line.
        const double fu = -u0 + S.FrameGap, fv = -v0 + S.FrameGap;
        std::vector<cv::Point> pts;
        for (const auto& [a, b] : {std::pair{-1, -1}, {1, -1}, {1, 1}, {-1, 1}}) {
            const double u = a * fu, v = b * fv;
            pts.emplace_back(static_cast<int>(std::lround((S.CX + u * c - v * s) * 16)),
                             static_cast<int>(std::lround((S.CY + u * s + v * c) * 16)));
        }
        cv::polylines(grey, pts, true, cv::Scalar(20.0), 2, cv::LINE_AA, 4);
    }
    cv::Mat g8;
    grey.convertTo(g8, CV_8U);
    out.Grey.assign(g8.data, g8.data + static_cast<std::size_t>(S.Width) * S.Height);
    if (S.Clutter)
        out.Grey = DrawClutter(std::move(out.Grey), S.Width, S.Height, S.Seed, true, true);
    cv::Mat m(S.Height, S.Width, CV_8U, out.Grey.data());
    if (S.Blur > 0.0)
        cv::GaussianBlur(m, m, cv::Size(0, 0), S.Blur);
    if (S.Noise > 0.0) {
        cv::Mat n(S.Height, S.Width, CV_16S);
        cv::RNG rng(S.Seed);
        rng.fill(n, cv::RNG::NORMAL, 0.0, S.Noise);
        cv::Mat m16;
        m.convertTo(m16, CV_16S);
        m16 += n;
        m16.convertTo(m, CV_8U);
    }
    if (S.JpegQuality > 0)
        out.Grey = JpegRoundTrip(out.Grey, S.Width, S.Height, S.JpegQuality);
    return out;
}

std::vector<std::uint8_t> JpegRoundTrip(const std::vector<std::uint8_t>& Grey, int Width, int Height, int Quality)
{
    qv::TBitmap bmp(Width, Height);
    for (int y = 0; y < Height; ++y) {
        std::uint32_t* row = bmp.ScanLine(y);
        for (int x = 0; x < Width; ++x) {
            const std::uint32_t g = Grey[static_cast<std::size_t>(y) * Width + x];
            row[x] = 0xff000000u | (g << 16) | (g << 8) | g;
        }
    }
    QTemporaryDir dir;
    const std::string name = dir.filePath(QStringLiteral("scan.jpg")).toStdString();
    qv::SaveJPEG(bmp, name, Quality);
    qv::TBitmap back;
    qv::LoadJPEG(back, name);
    std::vector<std::uint8_t> out(Grey.size());
    for (int y = 0; y < Height; ++y) {
        const std::uint32_t* row = back.ScanLine(y);
        for (int x = 0; x < Width; ++x)
            out[static_cast<std::size_t>(y) * Width + x] = static_cast<std::uint8_t>((row[x] >> 8) & 0xff);
    }
    return out;
}

std::vector<std::uint8_t> DrawClutter(std::vector<std::uint8_t> Grey, int Width, int Height, std::uint64_t Seed,
                                      bool Text, bool Shapes)
{
    cv::Mat m(Height, Width, CV_8U, Grey.data());
    cv::RNG rng(Seed * 7919 + 13);
    if (Shapes) {
        // A filled area (a lake), a winding river, a few roads at random angles.
        cv::ellipse(m, cv::Point(Width / 3, Height * 2 / 3), cv::Size(Width / 8, Height / 10), 20, 0, 360,
                    cv::Scalar(170), cv::FILLED, cv::LINE_AA);
        std::vector<cv::Point> river;
        for (int x = 0; x < Width; x += 8)
            river.emplace_back(x, static_cast<int>(Height * 0.4 + 40 * std::sin(x / 60.0)));
        cv::polylines(m, river, false, cv::Scalar(90), 2, cv::LINE_AA);
        for (int k = 0; k < 4; ++k) {
            const cv::Point a(rng.uniform(0, Width), rng.uniform(0, Height));
            const cv::Point b(rng.uniform(0, Width), rng.uniform(0, Height));
            cv::line(m, a, b, cv::Scalar(60), 3, cv::LINE_AA);
        }
    }
    if (Text) {
        // Place names in a plain stroke font, some in rows like a legend.
        static const char* const Words[] = {"Riverton", "LAKE", "Mt. Hollow", "Northgate", "1204", "Old Mill",
                                            "Fairview", "CANAL", "Eastbrook"};
        for (int k = 0; k < 36; ++k) {
            const int x = rng.uniform(0, Width - 100), y = rng.uniform(15, Height - 5);
            cv::putText(m, Words[rng.uniform(0, 9)], cv::Point(x, y), cv::FONT_HERSHEY_SIMPLEX,
                        rng.uniform(0.35, 0.7), cv::Scalar(25), 1, cv::LINE_AA);
        }
    }
    return Grey;
}

}  // namespace qvtest
