// Pieces of the synthetic scans: strokes with an exact centre line and map content (scan_content.h).
#include "scan_content.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cctype>
#include <string>

namespace qvtest::scan {

TStrokeLayer::TStrokeLayer(int W, int H) : FCov(H, W, CV_32F, cv::Scalar(0)) {}

void TStrokeLayer::Stroke(const TLine& Line, double Width, double Dash, double Gap)
{
    if (Dash <= 0) {
        for (std::size_t i = 1; i < Line.size(); ++i)
            Segment(Line[i - 1], Line[i], Width);
        return;
    }
    double phase = 0;
    for (std::size_t i = 1; i < Line.size(); ++i) {
        const cv::Point2d a = Line[i - 1], d = Line[i] - a;
        const double len = std::hypot(d.x, d.y);
        double t = 0;
        while (t < len) {
            const bool on = phase < Dash;
            const double step = std::min(len - t, on ? Dash - phase : Dash + Gap - phase);
            if (on)
                Segment(a + d * (t / len), a + d * ((t + step) / len), Width);
            t += step;
            phase += step;
            if (phase >= Dash + Gap - 1e-9)
                phase = 0;
        }
    }
}

void TStrokeLayer::Composite(cv::Mat& Img, const cv::Scalar& Colour, double Opacity)
{
    for (int y = 0; y < Img.rows; ++y) {
        float* c = FCov.ptr<float>(y);
        auto* p = Img.ptr<cv::Vec3b>(y);
        for (int x = 0; x < Img.cols; ++x) {
            if (c[x] <= 0)
                continue;
            const double a = c[x] * Opacity;
            for (int k = 0; k < 3; ++k)
                p[x][k] = cv::saturate_cast<uchar>(p[x][k] * (1 - a) + Colour[k] * a);
            c[x] = 0;
        }
    }
}

void TStrokeLayer::Segment(cv::Point2d A, cv::Point2d B, double Width)
{
    const double r = Width / 2 + 0.5;
    const int x0 = std::max(0, static_cast<int>(std::floor(std::min(A.x, B.x) - r)));
    const int x1 = std::min(FCov.cols - 1, static_cast<int>(std::ceil(std::max(A.x, B.x) + r)));
    const int y0 = std::max(0, static_cast<int>(std::floor(std::min(A.y, B.y) - r)));
    const int y1 = std::min(FCov.rows - 1, static_cast<int>(std::ceil(std::max(A.y, B.y) + r)));
    const cv::Point2d d = B - A;
    const double len2 = d.dot(d);
    for (int y = y0; y <= y1; ++y) {
        float* row = FCov.ptr<float>(y);
        for (int x = x0; x <= x1; ++x) {
            const cv::Point2d p(x - A.x, y - A.y);
            const double t = len2 > 0 ? std::clamp(p.dot(d) / len2, 0.0, 1.0) : 0.0;
            const auto cov = static_cast<float>(std::clamp(r - std::hypot(p.x - t * d.x, p.y - t * d.y), 0.0, 1.0));
            row[x] = std::max(row[x], cov);
        }
    }
}

namespace {

std::vector<cv::Point> Fixed(const TLine& Line)  // 4 fractional bits for OpenCV's drawing
{
    std::vector<cv::Point> out;
    out.reserve(Line.size());
    for (const cv::Point2d& p : Line)
        out.emplace_back(static_cast<int>(std::lround(p.x * 16)), static_cast<int>(std::lround(p.y * 16)));
    return out;
}

void Polyline(cv::Mat& Img, const TLine& Line, const cv::Scalar& Colour, int Thickness)
{
    const std::vector<std::vector<cv::Point>> pts{Fixed(Line)};
    cv::polylines(Img, pts, false, Colour, Thickness, cv::LINE_AA, 4);
}

// A smooth wandering curve: heading and curvature drift, a point every 6 px, until it leaves the image
// or reaches Length.
TLine Wander(TRandom& R, int W, int H, double Length)
{
    TLine line{{R.Range(0, W), R.Range(0, H)}};
    double heading = R.Range(0, 2 * Pi), bend = 0;
    for (double run = 0; run < Length; run += 6) {
        bend = std::clamp(bend + R.Range(-0.0006, 0.0006), -0.005, 0.005);
        heading += bend * 6;
        const cv::Point2d p = line.back() + cv::Point2d(std::cos(heading), std::sin(heading)) * 6.0;
        line.push_back(p);
        if (p.x < -20 || p.y < -20 || p.x > W + 20 || p.y > H + 20)
            break;
    }
    return line;
}

std::string PlaceName(TRandom& R)
{
    static const char* const syllables[] = {"ber", "lin", "ska", "to", "ra", "vel", "dor", "mun", "ka",
                                            "sen", "ol", "bro", "ny", "gar", "e", "fo", "ste", "wa"};
    std::string s;
    const int n = R.Int(2, 4);
    for (int i = 0; i < n; ++i)
        s += syllables[R.Int(0, 17)];
    s[0] = static_cast<char>(s[0] - 'a' + 'A');
    if (R.Chance(0.2))
        for (char& ch : s)
            ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
    return s;
}

}  // namespace

void DrawAreas(cv::Mat& Img, TRandom& R)
{
    static const cv::Scalar tints[] = {{150, 215, 160}, {235, 205, 160}, {150, 225, 245}, {200, 190, 235},
                                       {185, 185, 185}};
    cv::Mat over = Img.clone();
    const int n = R.Int(2, 6);
    const double size = std::min(Img.cols, Img.rows);
    for (int i = 0; i < n; ++i) {
        const cv::Point2d c(R.Range(0, Img.cols), R.Range(0, Img.rows));
        const double radius = R.Range(0.04, 0.18) * size;
        const double a1 = R.Range(0, 2 * Pi), a2 = R.Range(0, 2 * Pi), w1 = R.Range(0.1, 0.3), w2 = R.Range(0.05, 0.15);
        TLine poly;
        for (int k = 0; k < 48; ++k) {
            const double t = 2 * Pi * k / 48;
            const double rr = radius * (1 + w1 * std::sin(2 * t + a1) + w2 * std::sin(5 * t + a2));
            poly.push_back(c + cv::Point2d(std::cos(t), std::sin(t)) * rr);
        }
        const std::vector<std::vector<cv::Point>> pts{Fixed(poly)};
        cv::fillPoly(over, pts, tints[R.Int(0, 4)], cv::LINE_AA, 4);
    }
    cv::addWeighted(Img, 0.5, over, 0.5, 0, Img);
}

void DrawFeatures(cv::Mat& Img, TRandom& R)
{
    const int W = Img.cols, H = Img.rows;
    const double side = std::max(W, H);
    for (int i = R.Int(1, 4); i > 0; --i)
        Polyline(Img, Wander(R, W, H, R.Range(0.5, 2.0) * side), {190, 120, 40}, R.Int(1, 4));
    static const cv::Scalar roads[] = {{40, 40, 200}, {0, 140, 255}, {60, 60, 60}, {40, 80, 140}, {20, 20, 20}};
    for (int i = R.Int(2, 8); i > 0; --i) {
        const TLine road = Wander(R, W, H, R.Range(0.3, 1.5) * side);
        const int width = R.Int(1, 5);
        if (width >= 3 && R.Chance(0.5)) {
            Polyline(Img, road, {30, 30, 30}, width + 2);
            Polyline(Img, road, {80, 220, 250}, width);
        } else {
            Polyline(Img, road, roads[R.Int(0, 4)], width);
        }
    }
    for (int i = R.Int(0, 3); i > 0; --i) {
        const double angle = (R.Chance(0.5) ? 0 : Pi / 2) + (R.Chance(0.5) ? 1 : -1) * R.Range(0.4, 3.0) * Rad;
        const cv::Point2d c(R.Range(0, W), R.Range(0, H)), d(std::cos(angle), std::sin(angle));
        const TLine line{c - d * side * 0.6 * R.Range(0.3, 1.0), c + d * side * 0.6 * R.Range(0.3, 1.0)};
        Polyline(Img, line, {50, 50, 50}, R.Int(1, 2));
    }
    static const int fonts[] = {cv::FONT_HERSHEY_SIMPLEX, cv::FONT_HERSHEY_DUPLEX, cv::FONT_HERSHEY_COMPLEX,
                                cv::FONT_HERSHEY_TRIPLEX};
    static const cv::Scalar inks[] = {{0, 0, 0}, {40, 50, 90}, {110, 40, 20}, {60, 60, 60}};
    const int names = static_cast<int>(R.Range(4, 14) * W * H / 1e6);
    for (int i = 0; i < names; ++i) {
        const cv::Point at(R.Int(0, W - 1), R.Int(0, H - 1));
        const cv::Scalar ink = inks[R.Int(0, 3)];
        cv::putText(Img, PlaceName(R), at, fonts[R.Int(0, 3)], R.Range(0.5, 1.6), ink, R.Int(1, 2), cv::LINE_AA);
        const cv::Point2d s(at.x - 8.0, at.y - 6.0);
        const double size = R.Range(3, 7);
        switch (R.Int(0, 2)) {
        case 0: cv::circle(Img, cv::Point(static_cast<int>(s.x * 16), static_cast<int>(s.y * 16)),
                           static_cast<int>(size * 16), ink, R.Chance(0.5) ? -1 : 1, cv::LINE_AA, 4); break;
        case 1: cv::rectangle(Img, cv::Rect(static_cast<int>(s.x - size), static_cast<int>(s.y - size),
                              static_cast<int>(2 * size), static_cast<int>(2 * size)), ink, -1); break;
        default: {
            const TLine tri{s + cv::Point2d(0, -size), s + cv::Point2d(size, size), s + cv::Point2d(-size, size)};
            const std::vector<std::vector<cv::Point>> pts{Fixed(tri)};
            cv::fillPoly(Img, pts, ink, cv::LINE_AA, 4);
        }
        }
    }
}

}  // namespace qvtest::scan
