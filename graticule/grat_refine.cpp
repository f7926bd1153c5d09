// Measuring the lines at full resolution: profiles across each line, their darkness centroids, and the
// robust curve through them.
#include <qvgeo/graticule/grat_internal.h>

#include <opencv2/core.hpp>

#include <algorithm>
#include <cmath>

namespace qv::grat_detail {

namespace {

// A line must stand at least this many grey levels above its surroundings to be measured.
constexpr double MinContrast = 3.0;
constexpr int BaselineSamples = 3;

}  // namespace

double TFamilyImage::Value(int t, double u) const
{
    const int n = AcrossLength();
    u = std::clamp(u, 0.0, static_cast<double>(n - 1));
    const int i = std::min(static_cast<int>(u), n - 2);
    const double f = u - i;
    double a, b;
    if (Transposed) {
        const std::uint8_t* row = Pixels + static_cast<std::ptrdiff_t>(t) * Stride;
        a = row[i];
        b = row[i + 1];
    } else {
        const std::uint8_t* p = Pixels + static_cast<std::ptrdiff_t>(i) * Stride + t;
        a = p[0];
        b = p[Stride];
    }
    return a + (b - a) * f;
}

double TRefinedLine::SigmaAt(double t) const
{
    const double s = (t - Mid) / Half;
    const double v[3] = {1.0, s, s * s};
    double q = 0.0;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            q += v[i] * Cov[static_cast<std::size_t>(i * 3 + j)] * v[j];
    const double rms = std::max(Rms, 0.05);
    return rms * std::sqrt(std::max(q, 0.0));
}

bool MeasureCentre(const TFamilyImage& Image, int t, double u0, const std::vector<double>& Shape,
                   const TRefineParams& Params, double& Centre, int* Width)
{
    const int A = Params.AlongHalf, h = Params.AcrossHalf, E = h + BaselineSamples;
    const int L = Image.RunLength();
    std::vector<double> prof(static_cast<std::size_t>(2 * E + 1)), dark(prof.size()), before(prof.size());
    double c = u0;
    int core = 0;
    for (int iter = 0; iter < 4; ++iter) {
        // The profile across the line, averaged along the predicted curve.
        std::fill(prof.begin(), prof.end(), 0.0);
        std::fill(before.begin(), before.end(), 0.0);
        int count = 0, countBefore = 0;
        for (int v = -A; v <= A; ++v) {
            const int tt = t + v;
            if (tt < 0 || tt >= L)
                continue;
            const double base = c + Shape[static_cast<std::size_t>(v + A)];
            for (int k = -E; k <= E; ++k) {
                const double value = Image.Value(tt, base + k);
                prof[static_cast<std::size_t>(k + E)] += value;
                if (v < 0)
                    before[static_cast<std::size_t>(k + E)] += value;
            }
            ++count;
            countBefore += v < 0 ? 1 : 0;
        }
        if (count == 0)
            return false;
        for (double& p : prof)
            p /= count;
        // Paper level on either side: the means of the outermost samples.
        double left = 0.0, right = 0.0;
        for (int i = 0; i < BaselineSamples; ++i) {
            left += prof[static_cast<std::size_t>(i)];
            right += prof[static_cast<std::size_t>(2 * E - i)];
        }
        left /= BaselineSamples;
        right /= BaselineSamples;
        double noise = 0.0;
        for (int i = 0; i < BaselineSamples; ++i)
            noise += (prof[static_cast<std::size_t>(i)] - left) * (prof[static_cast<std::size_t>(i)] - left) +
                     (prof[static_cast<std::size_t>(2 * E - i)] - right) *
                         (prof[static_cast<std::size_t>(2 * E - i)] - right);
        noise = std::sqrt(noise / (2 * BaselineSamples));
        // Darkness below the brighter side. The centroid below weighs darkness above a share of the peak,
        // so a constant paper level cancels out; a sloping one would pull the centre towards a second
        // line or a letter lying among the outer samples, and the paper's own slope over a few pixels is
        // negligible.
        const double paper = std::max(left, right);
        int kMax = 0;
        double dMax = -1e9;
        for (int k = -E; k <= E; ++k) {
            dark[static_cast<std::size_t>(k + E)] = paper - prof[static_cast<std::size_t>(k + E)];
            if (std::abs(k) <= h && dark[static_cast<std::size_t>(k + E)] > dMax) {
                dMax = dark[static_cast<std::size_t>(k + E)];
                kMax = k;
            }
        }
        if (dMax < std::max(MinContrast, 5.0 * noise))
            return false;
        // The paper must be about as bright on both sides: a step (the edge of a filled area or of the
        // map on its sheet) with a little darkness at its foot is no line.
        if (std::abs(left - right) > dMax)
            return false;
        // A second line or a letter beside this one: a dip below half the peak, then a rise above 60 %.
        for (int dir = -1; dir <= 1; dir += 2) {
            bool dipped = false;
            for (int k = kMax + dir; std::abs(k) <= h; k += dir) {
                const double d = dark[static_cast<std::size_t>(k + E)];
                dipped = dipped || d < 0.5 * dMax;
                if (dipped && d > 0.6 * dMax)
                    return false;
            }
        }
        // The line's core: the run about the peak darker than half the peak (a second line a few pixels
        // away, such as a dotted frame, lies beyond it). The centroid of the darkness over the core and one
        // sample either side: with the profile sampled at the current estimate plus whole pixels, the
        // linear interpolation keeps the centroid of even a 1-pixel line exact, where weights above a
        // floor would stop short of the centre.
        int k0 = kMax, k1 = kMax;
        while (k0 - 1 >= -E && dark[static_cast<std::size_t>(k0 - 1 + E)] > 0.5 * dMax)
            --k0;
        while (k1 + 1 <= E && dark[static_cast<std::size_t>(k1 + 1 + E)] > 0.5 * dMax)
            ++k1;
        core = k1 - k0 + 1;
        k0 = std::max(-E, k0 - 1);
        k1 = std::min(E, k1 + 1);
        double sw = 0.0, swk = 0.0;
        for (int k = k0; k <= k1; ++k) {
            const double w = std::max(0.0, dark[static_cast<std::size_t>(k + E)]);
            sw += w;
            swk += w * k;
        }
        const double off = swk / sw;
        c += off;
        if (std::abs(c - u0) > Params.MaxShift)
            return false;
        if (std::abs(off) < 0.01 || iter == 3) {
            // The two halves of the stretch must agree: an edge or a letter crossing the stretch at a slant
            // moves the centre of one half only.
            const int countAfter = count - countBefore;
            if (countBefore > 0 && countAfter > 0) {
                double sa = 0.0, sak = 0.0, sb = 0.0, sbk = 0.0;
                for (int k = k0; k <= k1; ++k) {
                    const double total = prof[static_cast<std::size_t>(k + E)] * count;
                    const double db = paper - before[static_cast<std::size_t>(k + E)] / countBefore;
                    const double da = paper - (total - before[static_cast<std::size_t>(k + E)]) / countAfter;
                    sb += std::max(0.0, db);
                    sbk += std::max(0.0, db) * k;
                    sa += std::max(0.0, da);
                    sak += std::max(0.0, da) * k;
                }
                if (!(sa > 0.0 && sb > 0.0) || std::abs(sak / sa - sbk / sb) > 0.6)
                    return false;
            }
            break;
        }
    }
    Centre = c;
    if (Width)
        *Width = core;
    return true;
}

TRefinedLine FitCurve(const std::vector<TGratPoint>& Points, double MinTolerance, int Step, double FixedC2)
{
    TRefinedLine out;
    const std::size_t n = Points.size();
    if (n < 6)
        return out;
    double tMin = Points.front().X, tMax = Points.front().X;
    for (const TGratPoint& p : Points) {
        tMin = std::min(tMin, p.X);
        tMax = std::max(tMax, p.X);
    }
    out.Mid = 0.5 * (tMin + tMax);
    out.Half = std::max(1.0, 0.5 * (tMax - tMin));
    std::vector<double> w(n, 1.0), r(n, 0.0);
    cv::Vec3d a;
    cv::Matx33d inv;
    const auto solve = [&]() {
        cv::Matx33d N = cv::Matx33d::zeros();
        cv::Vec3d b(0, 0, 0);
        double sw = 0.0;
        for (std::size_t i = 0; i < n; ++i) {
            if (w[i] <= 0.0)
                continue;
            const double s = (Points[i].X - out.Mid) / out.Half;
            const cv::Vec3d v(1.0, s, s * s);
            for (int j = 0; j < 3; ++j) {
                for (int k = 0; k < 3; ++k)
                    N(j, k) += w[i] * v[j] * v[k];
                b[j] += w[i] * v[j] * Points[i].Y;
            }
            sw += w[i];
        }
        if (sw < 6.0)
            return false;
        if (std::isfinite(FixedC2)) {
            // A stiff prior on the quadratic coefficient (in the scaled variable) holds it in place.
            const double prior = 1e9 * sw;
            N(2, 2) += prior;
            b[2] += prior * FixedC2 * out.Half * out.Half;
        }
        double det = cv::determinant(N);
        if (!(std::abs(det) > 1e-12))
            return false;
        inv = N.inv();
        a = inv * b;
        for (std::size_t i = 0; i < n; ++i) {
            const double s = (Points[i].X - out.Mid) / out.Half;
            r[i] = Points[i].Y - (a[0] + (a[1] + a[2] * s) * s);
        }
        return true;
    };
    const auto robustSigma = [&]() {
        std::vector<double> ar;
        for (std::size_t i = 0; i < n; ++i)
            ar.push_back(std::abs(r[i]));
        const auto mid = ar.begin() + static_cast<std::ptrdiff_t>(ar.size() / 2);
        std::nth_element(ar.begin(), mid, ar.end());
        return std::max(1.4826 * *mid, MinTolerance / 3.0);
    };
    // Tukey's biweight: samples on text or a crossing road lose their weight, the line's own keep it.
    for (int iter = 0; iter < 6; ++iter) {
        if (!solve())
            return out;
        const double c = 4.685 * robustSigma();
        for (std::size_t i = 0; i < n; ++i) {
            const double q = r[i] / c;
            w[i] = std::abs(q) < 1.0 ? (1.0 - q * q) * (1.0 - q * q) : 0.0;
        }
    }
    const double tol = std::max(MinTolerance, 3.0 * robustSigma());
    std::vector<std::size_t> in;
    for (std::size_t i = 0; i < n; ++i)
        if (std::abs(r[i]) <= tol)
            in.push_back(i);
    // Leave out small groups of inliers far from the rest at either end (a stray hit on the paper beyond
    // the line's end would otherwise stretch From..To).
    const double gap = std::max(8.0 * Step, 60.0);
    std::sort(in.begin(), in.end(), [&](std::size_t i, std::size_t j) { return Points[i].X < Points[j].X; });
    for (int side = 0; side < 2 && !in.empty(); ++side) {
        for (;;) {
            std::size_t run = 1;
            while (run < in.size()) {
                const std::size_t i = side == 0 ? run : in.size() - 1 - run;
                const std::size_t j = side == 0 ? run - 1 : in.size() - run;
                if (std::abs(Points[in[i]].X - Points[in[j]].X) > gap)
                    break;
                ++run;
            }
            if (run >= 4 || run == in.size())
                break;
            if (side == 0)
                in.erase(in.begin(), in.begin() + static_cast<std::ptrdiff_t>(run));
            else
                in.resize(in.size() - run);
        }
    }
    std::fill(w.begin(), w.end(), 0.0);
    for (std::size_t i : in)
        w[i] = 1.0;
    if (in.size() < 6 || !solve())
        return out;
    double ss = 0.0;
    for (std::size_t i : in)
        ss += r[i] * r[i];
    out.Rms = std::sqrt(ss / static_cast<double>(in.size()));
    const double m = out.Mid, h = out.Half;
    out.C2 = a[2] / (h * h);
    out.C1 = a[1] / h - 2.0 * a[2] * m / (h * h);
    out.C0 = a[0] - a[1] * m / h + a[2] * m * m / (h * h);
    for (int j = 0; j < 3; ++j)
        for (int k = 0; k < 3; ++k)
            out.Cov[static_cast<std::size_t>(j * 3 + k)] = inv(j, k);
    out.From = Points[in.front()].X;
    out.To = Points[in.back()].X;
    for (std::size_t i : in)
        out.Samples.push_back(Points[i]);
    out.Coverage = std::min(1.0, static_cast<double>(in.size()) * Step / (out.To - out.From + Step));
    out.Ok = true;
    return out;
}

TRefinedLine RefineLine(const TFamilyImage& Image, const std::function<double(double)>& Predict,
                        const std::vector<double>& Crossings, const TRefineParams& Params, double CoarseError,
                        double FixedC2)
{
    const int L = Image.RunLength(), N = Image.AcrossLength();
    std::vector<int> tried;  // sample positions not skipped at a crossing or the image's edge
    const auto pass = [&](const std::function<double(double)>& P, const TRefineParams& Q) {
        std::vector<TGratPoint> pts;
        std::vector<int> widths;
        tried.clear();
        std::vector<double> shape(static_cast<std::size_t>(2 * Q.AlongHalf + 1));
        const int edge = Q.AcrossHalf + BaselineSamples + 1;
        for (int t = Q.Step / 2; t < L; t += Q.Step) {
            const auto it = std::lower_bound(Crossings.begin(), Crossings.end(), t - Q.SkipHalf);
            if (it != Crossings.end() && *it <= t + Q.SkipHalf)
                continue;
            const double u0 = P(t);
            if (!(u0 >= edge && u0 <= N - 1 - edge))
                continue;
            tried.push_back(t);
            for (int v = -Q.AlongHalf; v <= Q.AlongHalf; ++v)
                shape[static_cast<std::size_t>(v + Q.AlongHalf)] = P(t + v) - u0;
            double c = 0.0;
            int w = 0;
            if (MeasureCentre(Image, t, u0, shape, Q, c, &w)) {
                pts.push_back({static_cast<double>(t), c});
                widths.push_back(w);
            }
        }
        // A line keeps its width; a label set on the line, or a letter touching it, is wider. Such samples
        // sit a pixel or two off in runs too long for the robust fit to see them as outliers.
        if (!widths.empty()) {
            std::vector<int> sorted = widths;
            std::nth_element(sorted.begin(), sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2),
                             sorted.end());
            const int limit = std::max(2 * sorted[sorted.size() / 2], sorted[sorted.size() / 2] + 2);
            std::vector<TGratPoint> kept;
            for (std::size_t i = 0; i < pts.size(); ++i)
                if (widths[i] <= limit)
                    kept.push_back(pts[i]);
            pts = std::move(kept);
        }
        return pts;
    };
    TRefineParams first = Params;
    first.AcrossHalf = Params.AcrossHalf + static_cast<int>(std::ceil(CoarseError));
    first.MaxShift = CoarseError + 2.0;
    TRefinedLine coarse = FitCurve(pass(Predict, first), 1.0, Params.Step, FixedC2);
    if (!coarse.Ok)
        return coarse;
    TRefineParams second = Params;
    second.MaxShift = std::max(1.5, 4.0 * coarse.Rms);
    TRefinedLine fine = FitCurve(pass([&](double t) { return coarse.At(t); }, second), 0.5, Params.Step, FixedC2);
    if (fine.Ok) {
        // Coverage counts only where a measurement was tried: the stretches skipped at crossings are
        // neither seen nor missed.
        const auto n = std::count_if(tried.begin(), tried.end(), [&](int t) { return t >= fine.From && t <= fine.To; });
        fine.Coverage =
            std::min(1.0, static_cast<double>(fine.Samples.size()) / static_cast<double>(std::max<long>(1, n)));
        fine.Open = tried.empty() ? 0.0 : static_cast<double>(tried.back() - tried.front());
    }
    return fine;
}

}  // namespace qv::grat_detail
