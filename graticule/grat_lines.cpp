// The coarse search on the reduced work image: ridge map, sheared strip projections, chains of peaks, and
// the choice of the regular lattice among the lines found.
#include <qvgeo/graticule/grat_internal.h>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace qv::grat_detail {

namespace {

// Solid ink (text, symbols, the frame) is clipped to this darkness so that it does not outweigh a faint
// line in a projection; a dashed silver line on white is about 60 levels dark.
constexpr int RidgeClip = 80;

struct TPeak {
    double T = 0.0, U = 0.0, Tau = 0.0, Str = 0.0;
};

struct TChain {
    std::vector<TPeak> Peaks;
    int LastStrip = 0;
    TLineCandidate Fit;
};

// Least squares polynomial of degree 0..2 through (t, u), computed in a centred, scaled variable.
void FitPolynomial(const std::vector<TPeak>& P, int Degree, TLineCandidate& C)
{
    double tMin = P.front().T, tMax = P.front().T;
    for (const TPeak& p : P) {
        tMin = std::min(tMin, p.T);
        tMax = std::max(tMax, p.T);
    }
    const double m = 0.5 * (tMin + tMax), h = std::max(1.0, 0.5 * (tMax - tMin));
    Degree = std::min<int>(Degree, static_cast<int>(P.size()) - 1);
    cv::Mat A(static_cast<int>(P.size()), Degree + 1, CV_64F), b(static_cast<int>(P.size()), 1, CV_64F);
    for (int i = 0; i < A.rows; ++i) {
        const double s = (P[static_cast<std::size_t>(i)].T - m) / h;
        double v = 1.0;
        for (int j = 0; j <= Degree; ++j, v *= s)
            A.at<double>(i, j) = v;
        b.at<double>(i) = P[static_cast<std::size_t>(i)].U;
    }
    cv::Mat x;
    cv::solve(A, b, x, cv::DECOMP_SVD);
    const double a0 = x.at<double>(0), a1 = Degree >= 1 ? x.at<double>(1) : 0.0,
                 a2 = Degree >= 2 ? x.at<double>(2) : 0.0;
    C.C2 = a2 / (h * h);
    C.C1 = a1 / h - 2.0 * a2 * m / (h * h);
    C.C0 = a0 - a1 * m / h + a2 * m * m / (h * h);
    C.From = tMin;
    C.To = tMax;
}

void FitChain(TChain& C, double W)
{
    double t0 = C.Peaks.front().T, t1 = C.Peaks.back().T;
    const int degree = (C.Peaks.size() >= 5 && t1 - t0 >= 0.25 * W) ? 2 : 1;
    FitPolynomial(C.Peaks, degree, C.Fit);
    double s = 0.0;
    for (const TPeak& p : C.Peaks)
        s += p.Str;
    C.Fit.Strength = s;
}

// Whether every peak of B lies on A's curve (tolerance growing with the distance A is extrapolated).
bool FitsOn(const TChain& A, const TChain& B)
{
    for (const TPeak& p : B.Peaks) {
        const double out = std::max({0.0, A.Fit.From - p.T, p.T - A.Fit.To});
        if (std::abs(A.Fit.At(p.T) - p.U) > 2.0 + 0.02 * out)
            return false;
    }
    return true;
}

// Peaks of one strip: local maxima over u of the best sheared projection.
void StripPeaks(const std::vector<float>& Prof, int H, int NumSlopes, int Sw, int K, double Tc, double MinSpacing,
                std::vector<TPeak>& Out)
{
    std::vector<float> best(static_cast<std::size_t>(H), -1.0f);
    std::vector<int> arg(static_cast<std::size_t>(H), 0);
    for (int k = 0; k < NumSlopes; ++k) {
        const float* a = Prof.data() + static_cast<std::ptrdiff_t>(k) * H;
        for (int y = 0; y < H; ++y)
            if (a[y] > best[static_cast<std::size_t>(y)]) {
                best[static_cast<std::size_t>(y)] = a[y];
                arg[static_cast<std::size_t>(y)] = k;
            }
    }
    // Prominence over the local background: the lower of the mean levels a few pixels above and below
    // (a neighbouring line on one side does not hide this one; a dense patch of text or roads raises
    // both sides and so does not pass for a line).
    std::vector<double> cum(static_cast<std::size_t>(H) + 1, 0.0);
    for (int y = 0; y < H; ++y)
        cum[static_cast<std::size_t>(y) + 1] = cum[static_cast<std::size_t>(y)] + best[static_cast<std::size_t>(y)];
    const auto mean = [&](int a, int b) {  // over [a, b), clipped to the profile
        a = std::clamp(a, 0, H);
        b = std::clamp(b, 0, H);
        return b > a ? (cum[static_cast<std::size_t>(b)] - cum[static_cast<std::size_t>(a)]) / (b - a) : 1e30;
    };
    constexpr int R1 = 4, R2 = 12;
    std::vector<float> prom(static_cast<std::size_t>(H));
    for (int y = 0; y < H; ++y) {
        const double bg = std::min(mean(y - R2, y - R1 + 1), mean(y + R1, y + R2 + 1));
        const double v = best[static_cast<std::size_t>(y)];
        prom[static_cast<std::size_t>(y)] = static_cast<float>(bg < 1e29 ? v - bg : 0.0);
    }
    std::vector<float> sorted = prom;
    const auto mid = sorted.begin() + H / 2;
    std::nth_element(sorted.begin(), mid, sorted.end());
    const float median = *mid;
    for (float& v : sorted)
        v = std::abs(v - median);
    std::nth_element(sorted.begin(), mid, sorted.end());
    const double mad = 1.4826 * *mid;
    const double threshold = std::max(1.0, 4.0 * mad);
    // A small radius: a faint line a few pixels from the black frame must survive as its own peak.
    const int r = std::max(2, std::min(3, static_cast<int>(MinSpacing / 2.0)));
    for (int y = 1; y + 1 < H; ++y) {
        const float v = best[static_cast<std::size_t>(y)];
        if (prom[static_cast<std::size_t>(y)] <= threshold)
            continue;
        bool isMax = true;
        for (int d = -r; d <= r && isMax; ++d) {
            const int yy = y + d;
            if (d == 0 || yy < 0 || yy >= H)
                continue;
            const float w = best[static_cast<std::size_t>(yy)];
            isMax = d < 0 ? v > w : v >= w;
        }
        if (!isMax)
            continue;
        const int k = arg[static_cast<std::size_t>(y)];
        const float* a = Prof.data() + static_cast<std::ptrdiff_t>(k) * H;
        const double den = a[y - 1] - 2.0 * a[y] + a[y + 1];
        const double off = den < 0.0 ? std::clamp(0.5 * (a[y - 1] - a[y + 1]) / den, -0.5, 0.5) : 0.0;
        Out.push_back({Tc, y + off, static_cast<double>(k - K) / Sw, prom[static_cast<std::size_t>(y)]});
    }
}

}  // namespace

cv::Mat LineRidges(const cv::Mat& Grey, int KernelLength)
{
    cv::Mat ridge;
    const cv::Mat kernel = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(1, KernelLength));
    cv::morphologyEx(Grey, ridge, cv::MORPH_BLACKHAT, kernel, cv::Point(-1, -1), 1, cv::BORDER_REPLICATE);
    cv::min(ridge, RidgeClip, ridge);
    return ridge;
}

std::vector<TLineCandidate> FindLineCandidates(const cv::Mat& Ridge, double MaxRotation, double MinSpacing,
                                               double MinSpan)
{
    const int W = Ridge.cols, H = Ridge.rows;
    const int Sw = std::clamp(W / 8, 16, 96);
    const int half = std::max(1, Sw / 2);
    const double tanMax = std::tan(std::clamp(MaxRotation, 0.0, 30.0) * std::numbers::pi / 180.0);
    const int K = static_cast<int>(std::ceil(tanMax * Sw));
    const int NumSlopes = 2 * K + 1;
    const int Margin = K / 2 + 2;

    // Prefix sums along each row, stored column by column (row x of PT holds column x's prefix for every
    // y), padded above and below so that a shifted read never leaves the array.
    cv::Mat S(H, W + 1, CV_32S);
    for (int y = 0; y < H; ++y) {
        const std::uint8_t* r = Ridge.ptr<std::uint8_t>(y);
        std::int32_t* s = S.ptr<std::int32_t>(y);
        s[0] = 0;
        for (int x = 0; x < W; ++x)
            s[x + 1] = s[x] + r[x];
    }
    cv::Mat ST, PT;
    cv::transpose(S, ST);
    cv::copyMakeBorder(ST, PT, 0, 0, Margin, Margin, cv::BORDER_CONSTANT, cv::Scalar(0));

    const int numStrips = std::max(1, (W - Sw) / half + 1);
    const double pitch = numStrips > 1 ? static_cast<double>(W - Sw) / (numStrips - 1) : 0.0;
    std::vector<float> prof(static_cast<std::size_t>(NumSlopes) * static_cast<std::size_t>(H));
    std::vector<std::vector<TPeak>> strips(static_cast<std::size_t>(numStrips));
    std::vector<double> centres(static_cast<std::size_t>(numStrips));
    for (int s = 0; s < numStrips; ++s) {
        const int x0 = std::min(W - std::min(W, Sw), static_cast<int>(std::lround(s * pitch)));
        const int x1 = std::min(W, x0 + Sw);
        const double xc = 0.5 * (x0 + x1 - 1);
        centres[static_cast<std::size_t>(s)] = xc;
        for (int k = 0; k < NumSlopes; ++k) {
            const double tau = static_cast<double>(k - K) / Sw;
            float* a = prof.data() + static_cast<std::ptrdiff_t>(k) * H;
            std::fill(a, a + H, 0.0f);
            int x = x0;
            while (x < x1) {
                const int d = static_cast<int>(std::lround((x - xc) * tau));
                int e = x + 1;
                while (e < x1 && static_cast<int>(std::lround((e - xc) * tau)) == d)
                    ++e;
                const std::int32_t* pa = PT.ptr<std::int32_t>(x) + Margin + d;
                const std::int32_t* pb = PT.ptr<std::int32_t>(e) + Margin + d;
                for (int y = 0; y < H; ++y)
                    a[y] += static_cast<float>(pb[y] - pa[y]);
                x = e;
            }
            const float inv = 1.0f / static_cast<float>(x1 - x0);
            for (int y = 0; y < H; ++y)
                a[y] *= inv;
        }
        StripPeaks(prof, H, NumSlopes, Sw, K, xc, MinSpacing, strips[static_cast<std::size_t>(s)]);
    }

    // Link peaks into chains, strip by strip, each chain predicting where its line crosses the next strip.
    std::vector<TChain> chains;
    for (int s = 0; s < numStrips; ++s) {
        std::vector<TPeak>& peaks = strips[static_cast<std::size_t>(s)];
        struct TPair {
            double Err;
            std::size_t Chain, Peak;
        };
        std::vector<TPair> pairs;
        for (std::size_t c = 0; c < chains.size(); ++c) {
            if (chains[c].LastStrip < s - 3)
                continue;
            const TPeak& p = chains[c].Peaks.back();
            const double dt = centres[static_cast<std::size_t>(s)] - p.T;
            for (std::size_t q = 0; q < peaks.size(); ++q) {
                if (std::abs(p.Tau - peaks[q].Tau) > 0.06)
                    continue;
                const double err = std::abs(p.U + 0.5 * (p.Tau + peaks[q].Tau) * dt - peaks[q].U);
                if (err <= 1.5 + 0.01 * dt)
                    pairs.push_back({err, c, q});
            }
        }
        std::sort(pairs.begin(), pairs.end(), [](const TPair& a, const TPair& b) { return a.Err < b.Err; });
        std::vector<char> chainUsed(chains.size(), 0), peakUsed(peaks.size(), 0);
        for (const TPair& p : pairs) {
            if (chainUsed[p.Chain] || peakUsed[p.Peak])
                continue;
            chainUsed[p.Chain] = peakUsed[p.Peak] = 1;
            chains[p.Chain].Peaks.push_back(peaks[p.Peak]);
            chains[p.Chain].LastStrip = s;
        }
        for (std::size_t q = 0; q < peaks.size(); ++q)
            if (!peakUsed[q])
                chains.push_back({{peaks[q]}, s, {}});
    }
    std::erase_if(chains, [](const TChain& c) { return c.Peaks.size() < 2; });
    for (TChain& c : chains)
        FitChain(c, W);

    // Fragments of one line broken by a stain or a label: merge chains that lie on each other's curves.
    for (bool merged = true; merged;) {
        merged = false;
        for (std::size_t i = 0; i < chains.size() && !merged; ++i)
            for (std::size_t j = i + 1; j < chains.size() && !merged; ++j) {
                TChain& a = chains[i];
                TChain& b = chains[j];
                const double overlap = std::min(a.Fit.To, b.Fit.To) - std::max(a.Fit.From, b.Fit.From);
                if (overlap > Sw || !FitsOn(a, b) || !FitsOn(b, a))
                    continue;
                a.Peaks.insert(a.Peaks.end(), b.Peaks.begin(), b.Peaks.end());
                std::sort(a.Peaks.begin(), a.Peaks.end(), [](const TPeak& p, const TPeak& q) { return p.T < q.T; });
                FitChain(a, W);
                chains.erase(chains.begin() + static_cast<std::ptrdiff_t>(j));
                merged = true;
            }
    }

    std::vector<TLineCandidate> out;
    for (const TChain& c : chains)
        if (c.Peaks.size() >= 3 && c.Fit.To - c.Fit.From + Sw >= MinSpan)
            out.push_back(c.Fit);
    if (out.empty())
        return out;
    std::vector<double> mids;
    for (const TLineCandidate& c : out)
        mids.push_back(0.5 * (c.From + c.To));
    std::nth_element(mids.begin(), mids.begin() + static_cast<std::ptrdiff_t>(mids.size() / 2), mids.end());
    const double ref = mids[mids.size() / 2];
    for (TLineCandidate& c : out)
        c.Pos = c.C0 + c.C1 * ref + c.C2 * ref * ref;
    std::sort(out.begin(), out.end(), [](const TLineCandidate& a, const TLineCandidate& b) { return a.Pos < b.Pos; });
    return out;
}

std::vector<TLineCandidate> SelectLattice(std::vector<TLineCandidate> Candidates, double MinSpacing)
{
    // Chains of noise peaks that happen to line up are far fainter than any drawn line: below a tenth of
    // the strong candidates they take no part (else a few of them, at random places, find a lattice).
    if (!Candidates.empty()) {
        std::vector<double> s;
        for (const TLineCandidate& c : Candidates)
            s.push_back(c.Strength);
        const auto at = s.begin() + static_cast<std::ptrdiff_t>((s.size() * 9) / 10);
        std::nth_element(s.begin(), at, s.end());
        const double floor = 0.1 * *at;
        std::erase_if(Candidates, [&](const TLineCandidate& c) { return c.Strength < floor; });
    }
    // The search below is cubic in the candidates: a hatched or densely written sheet keeps its strongest.
    constexpr std::size_t MaxCandidates = 200;
    if (Candidates.size() > MaxCandidates) {
        std::nth_element(Candidates.begin(), Candidates.begin() + MaxCandidates, Candidates.end(),
                         [](const TLineCandidate& a, const TLineCandidate& b) { return a.Strength > b.Strength; });
        Candidates.resize(MaxCandidates);
        std::sort(Candidates.begin(), Candidates.end(),
                  [](const TLineCandidate& a, const TLineCandidate& b) { return a.Pos < b.Pos; });
    }
    const std::size_t n = Candidates.size();
    if (n < static_cast<std::size_t>(MinGratLines))
        return {};
    struct TMember {
        std::size_t Cand;
        int Index;
    };
    // A graticule's lines of one family are drawn with one pen: lines much fainter than the lattice's
    // typical line (noise, a faint fold) count less, lines much darker (the frame, a black road) no more.
    const auto Score = [&](const std::vector<TMember>& Members) {
        std::vector<double> s;
        for (const auto& m : Members)
            s.push_back(Candidates[m.Cand].Strength);
        std::nth_element(s.begin(), s.begin() + static_cast<std::ptrdiff_t>(s.size() / 2), s.end());
        const double typical = s[s.size() / 2];
        double sum = 0.0;
        for (const auto& m : Members)
            sum += std::min(1.0, Candidates[m.Cand].Strength / (0.5 * typical));
        return sum;
    };
    // From the members so far (indices and positions, in walking order), the next line: the candidate
    // nearest to where 1, 2 or 3 further spacings put it, the spacing extrapolated from the last gaps.
    const auto extend = [&](std::vector<TMember>& m, int dir, std::vector<char>& used) {
        for (;;) {
            const std::size_t k = m.size();
            const double pLast = Candidates[m[k - 1].Cand].Pos, pPrev = Candidates[m[k - 2].Cand].Pos;
            // Displacement per lattice step in the walking direction (negative when walking upwards).
            double g = (pLast - pPrev) / std::abs(m[k - 1].Index - m[k - 2].Index);
            if (k >= 3) {
                const double g0 =
                    (pPrev - Candidates[m[k - 3].Cand].Pos) / std::abs(m[k - 2].Index - m[k - 3].Index);
                g *= std::clamp(g / g0, 0.85, 1.18);
            }
            bool found = false;
            for (int steps = 1; steps <= 3 && !found; ++steps) {
                const double want = pLast + steps * g;
                // Once the spacing is extrapolated from the last two gaps, Mercator-like spacing and
                // perspective leave only a small error, and a loose tolerance would let noise form
                // lattices; from one gap, the next may differ by a tenth.
                const double tol = 1.0 + (k >= 3 ? 0.03 : 0.1) * std::abs(g) * steps;
                std::size_t best = n;
                double bestErr = tol;
                for (std::size_t c = 0; c < n; ++c) {
                    const double err = std::abs(Candidates[c].Pos - want);
                    if (!used[c] && err < bestErr) {
                        best = c;
                        bestErr = err;
                    }
                }
                if (best < n) {
                    used[best] = 1;
                    m.push_back({best, m[k - 1].Index + dir * steps});
                    found = true;
                }
            }
            if (!found)
                return;
        }
    };

    // Three lines with a number left out between them are too little evidence of a lattice: the least
    // accepted is three lines in a row, or more lines with a gap.
    std::vector<TMember> bestSet;
    double bestScore = MinGratLines - 0.5;
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = i + 1; j < n; ++j) {
            const double g = Candidates[j].Pos - Candidates[i].Pos;
            if (g < MinSpacing)
                continue;
            std::vector<char> used(n, 0);
            used[i] = used[j] = 1;
            std::vector<TMember> fwd{{i, 0}, {j, 1}};
            extend(fwd, 1, used);
            std::vector<TMember> back{{j, 1}, {i, 0}};
            extend(back, -1, used);
            std::vector<TMember> all(back.rbegin(), back.rend() - 2);
            all.insert(all.end(), fwd.begin(), fwd.end());
            if (all.size() < static_cast<std::size_t>(MinGratLines))
                continue;
            double score = Score(all);
            const int missing = all.back().Index - all.front().Index + 1 - static_cast<int>(all.size());
            // A number left out costs more than half a line, so that half the true spacing with one stray
            // line between two true ones does not tie with the true lattice.
            score -= 0.75 * missing;
            if (score > bestScore) {
                bestScore = score;
                bestSet = all;
            }
        }
    std::vector<TLineCandidate> out;
    if (bestSet.empty())
        return out;
    for (const TMember& m : bestSet) {
        out.push_back(Candidates[m.Cand]);
        out.back().Index = m.Index - bestSet.front().Index;
    }
    return out;
}

// Prediction of Value at lattice number At from a low-order fit through up to four (Index, Value) pairs.
double PredictFromNeighbours(const std::vector<std::pair<int, double>>& Others, int At, int MaxDegree)
{
    const int degree = static_cast<int>(std::min<std::size_t>(static_cast<std::size_t>(MaxDegree), Others.size() - 1));
    cv::Mat A(static_cast<int>(Others.size()), degree + 1, CV_64F), b(A.rows, 1, CV_64F), x;
    for (int r = 0; r < A.rows; ++r) {
        const double s = Others[static_cast<std::size_t>(r)].first - At;
        for (int c = 0; c <= degree; ++c)
            A.at<double>(r, c) = std::pow(s, c);
        b.at<double>(r) = Others[static_cast<std::size_t>(r)].second;
    }
    cv::solve(A, b, x, cv::DECOMP_SVD);
    return x.at<double>(0);
}

// The up to four lines nearest to line A by lattice number, as (Index, Value) pairs.
std::vector<std::pair<int, double>> Neighbours(const std::vector<int>& Index, const std::vector<double>& Value,
                                               const std::vector<std::size_t>& Keep, std::size_t A)
{
    std::vector<std::size_t> others;
    for (std::size_t b = 0; b < Keep.size(); ++b)
        if (b != A)
            others.push_back(Keep[b]);
    const int ia = Index[Keep[A]];
    std::sort(others.begin(), others.end(),
              [&](std::size_t p, std::size_t q) { return std::abs(Index[p] - ia) < std::abs(Index[q] - ia); });
    others.resize(std::min<std::size_t>(others.size(), 4));
    std::vector<std::pair<int, double>> out;
    for (std::size_t o : others)
        out.push_back({Index[o], Value[o]});
    return out;
}

std::vector<std::size_t> RegularLines(const std::vector<int>& Index, const std::vector<std::vector<double>>& Pos,
                                      double Spacing)
{
    const double tol = 1.5 + 0.01 * Spacing;
    // How far the worst line of Keep lies beyond the tolerance (0: all regular).
    const auto excess = [&](const std::vector<std::size_t>& Keep) {
        double worst = 0.0;
        for (std::size_t a = 0; a < Keep.size(); ++a)
            for (const std::vector<double>& pos : Pos) {
                const double err =
                    std::abs(pos[Keep[a]] - PredictFromNeighbours(Neighbours(Index, pos, Keep, a), Index[Keep[a]]));
                worst = std::max(worst, err - tol);
            }
        return worst;
    };
    std::vector<std::size_t> keep(Index.size());
    for (std::size_t i = 0; i < keep.size(); ++i)
        keep[i] = i;
    while (keep.size() >= 4 && excess(keep) > 0.0) {
        std::size_t drop = 0;
        if (keep.size() > 4) {
            // The line that lies worst goes.
            double worst = -1.0;
            for (std::size_t a = 0; a < keep.size(); ++a)
                for (const std::vector<double>& pos : Pos) {
                    const double err = std::abs(pos[keep[a]] -
                                                PredictFromNeighbours(Neighbours(Index, pos, keep, a), Index[keep[a]]));
                    if (err > worst) {
                        worst = err;
                        drop = a;
                    }
                }
        } else {
            // Of four lines, a quadratic through three says nothing about the fourth's place but an
            // extrapolated end line looks worst whichever is off: keep the three that lie most evenly.
            double best = std::numeric_limits<double>::max();
            for (std::size_t a = 0; a < keep.size(); ++a) {
                std::vector<std::size_t> rest = keep;
                rest.erase(rest.begin() + static_cast<std::ptrdiff_t>(a));
                double e = 0.0;
                for (const std::vector<double>& pos : Pos) {
                    const double s =
                        static_cast<double>(Index[rest[1]] - Index[rest[0]]) / (Index[rest[2]] - Index[rest[0]]);
                    e = std::max(e, std::abs(pos[rest[1]] - (pos[rest[0]] + s * (pos[rest[2]] - pos[rest[0]]))));
                }
                if (e < best) {
                    best = e;
                    drop = a;
                }
            }
        }
        keep.erase(keep.begin() + static_cast<std::ptrdiff_t>(drop));
    }
    return keep;
}

}  // namespace qv::grat_detail
