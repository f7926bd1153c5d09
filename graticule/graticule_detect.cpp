// The graticule finder: a coarse search for regularly spaced lines on a reduced image, then each line
// measured at full resolution, checked again for regularity, and the crossings solved.
#include <qvgeo/graticule/graticule_detect.h>

#include <qvgeo/graticule/grat_internal.h>
#include <qvgeo/support/errors.h>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <string>

namespace qv {

using namespace grat_detail;

namespace {

// The coarse search runs on at most about this many pixels: enough for 1-pixel lines to stay visible,
// few enough for a 20-megapixel scan to be searched in a fraction of a second.
constexpr double WorkPixels = 1.5e6;
// The two families must cross at right angles within this many degrees.
constexpr double MaxSkewDegrees = 25.0;
// A measured line must be seen over this share of its length and scatter less than this about its curve.
constexpr double MinCoverage = 0.45;
constexpr double MaxLineRms = 1.5;

struct TCancelled {};

// One family as measured: its refined lines with their lattice numbers.
struct TFamily {
    std::vector<TRefinedLine> Lines;
    std::vector<int> Index;
    double Spacing = 0.0;  // full-resolution pixels per lattice step
    int Step = 4;          // pixels between samples along the lines
};

// Where the curve u = P(t) of one family meets the curve of the other, whose own running coordinate is
// this one's u: t = Q(u). Returns t of the crossing.
template <typename TP, typename TQ>
bool Cross(const TP& P, const TQ& Q, double Start, double& T, double& U)
{
    double t = Start;
    for (int i = 0; i < 50; ++i) {
        const double u = P(t);
        const double next = Q(u);
        if (!std::isfinite(next))
            return false;
        if (std::abs(next - t) < 1e-9) {
            T = next;
            U = P(next);
            return true;
        }
        t = next;
    }
    T = t;
    U = P(t);
    return std::abs(Q(U) - t) < 1e-3;
}

// Keeps the lines of F that RegularLines keeps.
void KeepRegular(TFamily& F, const std::vector<std::vector<double>>& Pos)
{
    TFamily out;
    out.Spacing = F.Spacing;
    out.Step = F.Step;
    for (std::size_t k : RegularLines(F.Index, Pos, F.Spacing)) {
        out.Lines.push_back(std::move(F.Lines[k]));
        out.Index.push_back(F.Index[k]);
    }
    F = std::move(out);
}

TGratCurve ToCurve(const TRefinedLine& L, TGratLineKind Kind, int Index)
{
    TGratCurve c;
    c.Kind = Kind;
    c.Index = Index;
    c.C0 = L.C0;
    c.C1 = L.C1;
    c.C2 = L.C2;
    c.From = L.From;
    c.To = L.To;
    c.RmsPixels = L.Rms;
    c.Coverage = L.Coverage;
    for (const TGratPoint& p : L.Samples)
        c.Samples.push_back(Kind == gtlParallel ? p : TGratPoint{p.Y, p.X});
    return c;
}

// The line near running coordinate t: a fit of place and slope, with the whole line's curvature, to its
// samples within Reach when there are enough on both sides (a quadratic over the whole line misses the
// quartic part of a strongly curved parallel by a few tenths of a pixel), else the whole line.
TRefinedLine LocalLine(const TRefinedLine& L, double t, double Reach, int Step)
{
    std::vector<TGratPoint> pts;
    int before = 0, after = 0;
    for (const TGratPoint& p : L.Samples)
        if (std::abs(p.X - t) <= Reach) {
            pts.push_back(p);
            (p.X < t ? before : after) += 1;
        }
    if (before >= 4 && after >= 4) {
        TRefinedLine local = FitCurve(pts, 0.5, Step, L.C2);
        if (local.Ok)
            return local;
    }
    return L;
}

// Fills the grid from the two measured families: curves, crossings, rotation, confidence.
void Assemble(TGratGrid& G, const TFamily& P, const TFamily& M)
{
    for (std::size_t i = 0; i < P.Lines.size(); ++i)
        G.Parallels.push_back(ToCurve(P.Lines[i], gtlParallel, P.Index[i]));
    for (std::size_t j = 0; j < M.Lines.size(); ++j)
        G.Meridians.push_back(ToCurve(M.Lines[j], gtlMeridian, M.Index[j]));
    // Seen: each line has a measured point within half a spacing of the other family of the crossing.
    const auto near = [](const TRefinedLine& L, double t, double Reach) {
        const auto it = std::lower_bound(L.Samples.begin(), L.Samples.end(), t - Reach,
                                         [](const TGratPoint& p, double v) { return p.X < v; });
        return it != L.Samples.end() && it->X <= t + Reach;
    };
    const double xMax = G.Width - 1.0, yMax = G.Height - 1.0;
    for (std::size_t i = 0; i < P.Lines.size(); ++i)
        for (std::size_t j = 0; j < M.Lines.size(); ++j) {
            const TRefinedLine& p = P.Lines[i];
            const TRefinedLine& m = M.Lines[j];
            double y = 0.0, x = 0.0;
            if (!Cross([&](double t) { return m.At(t); }, [&](double t) { return p.At(t); }, 0.5 * yMax, y, x))
                continue;
            if (!(x >= 0.0 && x <= xMax && y >= 0.0 && y <= yMax))
                continue;
            // Again on the lines' local shapes about the crossing.
            const TRefinedLine lp = LocalLine(p, x, std::max(40.0, 1.2 * M.Spacing), P.Step);
            const TRefinedLine lm = LocalLine(m, y, std::max(40.0, 1.2 * P.Spacing), M.Step);
            double y2 = 0.0, x2 = 0.0;
            if (Cross([&](double t) { return lm.At(t); }, [&](double t) { return lp.At(t); }, y, y2, x2) &&
                std::abs(x2 - x) < 3.0 && std::abs(y2 - y) < 3.0) {
                x = x2;
                y = y2;
            }
            if (!(x >= 0.0 && x <= xMax && y >= 0.0 && y <= yMax))
                continue;
            TGratNode n;
            n.Row = P.Index[i];
            n.Col = M.Index[j];
            n.X = x;
            n.Y = y;
            n.Sigma = std::hypot(lp.SigmaAt(x), lm.SigmaAt(y));
            n.Seen = near(p, x, std::max(15.0, 0.5 * M.Spacing)) && near(m, y, std::max(15.0, 0.5 * P.Spacing));
            G.Nodes.push_back(n);
        }

    // Rotation: the parallels' slope at the image centre, interpolated between the two parallels nearest
    // to it (or the nearest one when the centre lies outside the family).
    const double xc = 0.5 * xMax, yc = 0.5 * yMax;
    double slope = 0.0, bestBelow = -1e300, bestAbove = 1e300, sBelow = 0.0, sAbove = 0.0;
    for (const TRefinedLine& l : P.Lines) {
        const double y = l.At(xc), s = l.C1 + 2.0 * l.C2 * xc;
        if (y <= yc && y > bestBelow) {
            bestBelow = y;
            sBelow = s;
        }
        if (y > yc && y < bestAbove) {
            bestAbove = y;
            sAbove = s;
        }
    }
    if (bestBelow > -1e300 && bestAbove < 1e300)
        slope = sBelow + (sAbove - sBelow) * (yc - bestBelow) / (bestAbove - bestBelow);
    else
        slope = bestBelow > -1e300 ? sBelow : sAbove;
    G.Rotation = std::atan(slope) * 180.0 / std::numbers::pi;

    // Confidence: enough lines, seen over most of their length, tightly on their curves, few gaps.
    double cov = 0.0, rms = 0.0;
    for (const TFamily* F : {&P, &M})
        for (const TRefinedLine& l : F->Lines) {
            cov += l.Coverage;
            rms += l.Rms;
        }
    const double nLines = static_cast<double>(P.Lines.size() + M.Lines.size());
    cov /= nLines;
    rms /= nLines;
    const double n = static_cast<double>(std::min(P.Lines.size(), M.Lines.size()));
    const double cCount = std::min(1.0, 0.4 + 0.15 * (n - MinGratLines));
    const double cCov = std::clamp((cov - 0.3) / 0.5, 0.0, 1.0);
    const double cRms = std::clamp(1.5 - rms, 0.0, 1.0);
    const auto filled = [](const TFamily& F) {
        return static_cast<double>(F.Lines.size()) / (F.Index.back() - F.Index.front() + 1);
    };
    G.Confidence = std::clamp(cCount * cCov * cRms * filled(P) * filled(M), 0.0, 1.0);
    G.Found = true;
    G.Message.clear();
}

class TFinder {
public:
    TFinder(const TGreyImage& Image, const TGratDetectOptions& Options) : Img(Image), Opt(Options) {}

    TGratGrid Run();

private:
    const TGreyImage& Img;
    const TGratDetectOptions& Opt;
    double Fx = 1.0, Fy = 1.0;  // full-resolution pixels per work pixel, across x and y

    void Report(double Done) const
    {
        if (Opt.Progress && !Opt.Progress(Done))
            throw TCancelled{};
    }
    // A coarse candidate as a function of full-resolution t.
    std::function<double(double)> FullCurve(const TLineCandidate& C, bool Transposed) const
    {
        const double ft = Transposed ? Fy : Fx, fu = Transposed ? Fx : Fy;
        return [C, ft, fu](double t) { return (C.At((t + 0.5) / ft - 0.5) + 0.5) * fu - 0.5; };
    }
    TFamily Measure(const std::vector<TLineCandidate>& Own, const std::vector<TLineCandidate>& Other,
                    bool Transposed, double OtherSpacing, double Done0, double Done1);
};

TFamily TFinder::Measure(const std::vector<TLineCandidate>& Own, const std::vector<TLineCandidate>& Other,
                         bool Transposed, double OtherSpacing, double Done0, double Done1)
{
    TFamily fam;
    const double fu = Transposed ? Fx : Fy;
    fam.Spacing = (Own.back().Pos - Own.front().Pos) / std::max(1, Own.back().Index - Own.front().Index) * fu;
    TFamilyImage image{Img.Pixels, Img.Stride, Img.Width, Img.Height, Transposed};
    TRefineParams p;
    p.Step = std::max(3, static_cast<int>(std::lround(image.RunLength() / 600.0)));
    p.AlongHalf = std::clamp(static_cast<int>(0.12 * OtherSpacing), 3, 10);
    p.SkipHalf = p.AlongHalf + 3.0;
    fam.Step = p.Step;
    const double f = std::max(Fx, Fy);
    p.AcrossHalf = std::clamp(static_cast<int>(std::lround(2.0 + 1.5 * f)), 4,
                              std::max(4, static_cast<int>(0.3 * fam.Spacing)));
    std::vector<std::vector<double>> crossings;
    std::vector<std::size_t> from;  // the candidate each measured line came from
    for (std::size_t i = 0; i < Own.size(); ++i) {
        const auto curve = FullCurve(Own[i], Transposed);
        std::vector<double> cross;
        for (const TLineCandidate& o : Other) {
            const auto other = FullCurve(o, !Transposed);
            double t = 0.0, u = 0.0;
            if (Cross(other, curve, 0.5 * image.AcrossLength(), u, t))
                cross.push_back(t);
        }
        std::sort(cross.begin(), cross.end());
        TRefinedLine line = RefineLine(image, curve, cross, p, 1.5 * f + 1.0);
        if (line.Ok && line.Coverage >= MinCoverage && line.Rms <= MaxLineRms) {
            fam.Lines.push_back(std::move(line));
            fam.Index.push_back(Own[i].Index);
            crossings.push_back(std::move(cross));
            from.push_back(i);
        }
        Report(Done0 + (Done1 - Done0) * static_cast<double>(i + 1) / static_cast<double>(Own.size()));
    }
    if (fam.Lines.empty())
        return fam;
    // A line seen over much less than the others' length is a piece of something else, unless the
    // image's edge cuts it short.
    {
        std::vector<double> spans;
        for (const TRefinedLine& l : fam.Lines)
            spans.push_back(l.To - l.From);
        std::nth_element(spans.begin(), spans.begin() + static_cast<std::ptrdiff_t>(spans.size() / 2), spans.end());
        const double typical = spans[spans.size() / 2];
        for (std::size_t k = fam.Lines.size(); k-- > 0;)
            if (fam.Lines[k].To - fam.Lines[k].From < 0.5 * std::min(typical, fam.Lines[k].Open)) {
                fam.Lines.erase(fam.Lines.begin() + static_cast<std::ptrdiff_t>(k));
                fam.Index.erase(fam.Index.begin() + static_cast<std::ptrdiff_t>(k));
                crossings.erase(crossings.begin() + static_cast<std::ptrdiff_t>(k));
                from.erase(from.begin() + static_cast<std::ptrdiff_t>(k));
            }
    }
    // Curvature changes slowly across a family (parallels of one cone, straight meridians). A line bent
    // away from its neighbours' curvature has followed a road or a river along part of its length: measure
    // it again with the curvature its neighbours give it.
    if (fam.Lines.size() >= 4) {
        std::vector<std::size_t> all(fam.Lines.size());
        std::vector<double> c2(fam.Lines.size());
        for (std::size_t k = 0; k < all.size(); ++k) {
            all[k] = k;
            c2[k] = fam.Lines[k].C2;
        }
        for (std::size_t k = 0; k < all.size(); ++k) {
            TRefinedLine& l = fam.Lines[k];
            const double want = PredictFromNeighbours(Neighbours(fam.Index, c2, all, k), fam.Index[k], 1);
            const double half = 0.5 * (l.To - l.From);
            if (std::abs(l.C2 - want) * half * half <= std::max(2.0, 4.0 * l.Rms))
                continue;
            TRefinedLine again = RefineLine(image, FullCurve(Own[from[k]], Transposed), crossings[k], p,
                                            1.5 * f + 1.0, want);
            if (again.Ok && again.Coverage >= MinCoverage && again.Rms <= MaxLineRms)
                l = std::move(again);
        }
    }
    // Regularity at full resolution, near both ends of the lines' common stretch.
    std::vector<double> starts, ends;
    for (const TRefinedLine& l : fam.Lines) {
        starts.push_back(l.From);
        ends.push_back(l.To);
    }
    const auto median = [](std::vector<double> v) {
        std::nth_element(v.begin(), v.begin() + static_cast<std::ptrdiff_t>(v.size() / 2), v.end());
        return v[v.size() / 2];
    };
    const double t0 = median(starts), t1 = median(ends);
    std::vector<std::vector<double>> pos(2);
    for (const TRefinedLine& l : fam.Lines) {
        pos[0].push_back(l.At(t0 + 0.15 * (t1 - t0)));
        pos[1].push_back(l.At(t1 - 0.15 * (t1 - t0)));
    }
    KeepRegular(fam, pos);
    if (!fam.Index.empty()) {
        // Numbers from 0, and counting the spacing that is left: when only every second line of a
        // lattice at half the spacing held up, the numbers step by 2 and are divided.
        const int first = fam.Index.front();
        int step = 0;
        for (int& i : fam.Index) {
            i -= first;
            step = std::gcd(step, i);
        }
        if (step > 1) {
            for (int& i : fam.Index)
                i /= step;
            fam.Spacing *= step;
        }
    }
    return fam;
}

TGratGrid TFinder::Run()
{
    TGratGrid grid;
    grid.Width = Img.Width;
    grid.Height = Img.Height;
    grid.Message = NoGraticuleFound;
    try {
        const cv::Mat full(Img.Height, Img.Width, CV_8U, const_cast<std::uint8_t*>(Img.Pixels),
                           static_cast<std::size_t>(Img.Stride));
        const double f = std::max(1.0, std::sqrt(static_cast<double>(Img.Width) * Img.Height / WorkPixels));
        cv::Mat work;
        if (f > 1.0)
            cv::resize(full, work,
                       cv::Size(std::max(32, static_cast<int>(std::lround(Img.Width / f))),
                                std::max(32, static_cast<int>(std::lround(Img.Height / f)))),
                       0, 0, cv::INTER_AREA);
        else
            work = full;
        Fx = static_cast<double>(Img.Width) / work.cols;
        Fy = static_cast<double>(Img.Height) / work.rows;
        Report(0.05);
        // Longer than the widest line (3 pixels, blurred) but short enough to ignore filled areas.
        const int kernel = std::max(7, 2 * static_cast<int>(std::ceil(7.0 / f)) + 3);
        const double minSpacing = Opt.MinSpacing / f;
        cv::Mat turned;
        cv::transpose(work, turned);
        const auto par = SelectLattice(
            FindLineCandidates(LineRidges(work, kernel), Opt.MaxRotation, minSpacing, 0.3 * work.cols), minSpacing);
        Report(0.25);
        const auto mer = SelectLattice(
            FindLineCandidates(LineRidges(turned, kernel), Opt.MaxRotation, minSpacing, 0.3 * work.rows), minSpacing);
        Report(0.45);
        if (par.size() < static_cast<std::size_t>(MinGratLines) || mer.size() < static_cast<std::size_t>(MinGratLines))
            return grid;
        const auto skew = [](const std::vector<TLineCandidate>& L) {
            double s = 0.0;
            for (const TLineCandidate& c : L)
                s += std::atan(c.C1 + c.C2 * (c.From + c.To));
            return s / static_cast<double>(L.size()) * 180.0 / std::numbers::pi;
        };
        if (std::abs(skew(par) + skew(mer)) > MaxSkewDegrees)
            return grid;
        const double parSpacing = (par.back().Pos - par.front().Pos) / (par.back().Index - par.front().Index) * Fy;
        const double merSpacing = (mer.back().Pos - mer.front().Pos) / (mer.back().Index - mer.front().Index) * Fx;
        TFamily P = Measure(par, mer, false, merSpacing, 0.45, 0.7);
        TFamily M = Measure(mer, par, true, parSpacing, 0.7, 0.95);
        if (P.Lines.size() < static_cast<std::size_t>(MinGratLines) ||
            M.Lines.size() < static_cast<std::size_t>(MinGratLines))
            return grid;
        Assemble(grid, P, M);
        Report(1.0);
    } catch (const TCancelled&) {
        TGratGrid cancelled;
        cancelled.Width = Img.Width;
        cancelled.Height = Img.Height;
        cancelled.Message = "cancelled";
        return cancelled;
    }
    return grid;
}

}  // namespace

TGratGrid DetectGraticule(const TGreyImage& Image, const TGratDetectOptions& Options)
{
    if (Image.Pixels == nullptr)
        throw EXELGeoMapError("DetectGraticule: no image");
    if (Image.Width < 32 || Image.Height < 32)
        throw EXELGeoMapError("DetectGraticule: image of " + std::to_string(Image.Width) + " x " +
                              std::to_string(Image.Height) + " pixels is below 32 x 32");
    if (Image.Stride < Image.Width)
        throw EXELGeoMapError("DetectGraticule: stride " + std::to_string(Image.Stride) +
                              " is shorter than a row of " + std::to_string(Image.Width) + " pixels");
    // Options out of range are taken as the nearest sensible ones rather than refused: a search over
    // more than 30° either way would take the other family for this one.
    TGratDetectOptions o = Options;
    o.MaxRotation = std::isfinite(o.MaxRotation) ? std::clamp(o.MaxRotation, 0.0, 30.0) : 12.0;
    o.MinSpacing = std::isfinite(o.MinSpacing) ? std::max(o.MinSpacing, 4.0) : 20.0;
    return TFinder(Image, o).Run();
}

}  // namespace qv
