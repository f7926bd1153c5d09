// The graticule finder on synthetic scans (tests/graticule/scan_generator.h), in two parts:
// - benchmarks: DetectGraticule on a 4 MP and a 20 MP scan, beside OpenCV's Canny + HoughLinesP on the
//   same image as a reference for what a plain line search costs (it finds segments, not a graticule);
//   FitGraticule on the grid found;
// - with --report [DIR] [--scans A..B] [--quads-only] the accuracy report instead (--quads-only: without
//   the parabolic model, as the viewer and geotool fit by default): the fixed set of 200 graticule scans
//   and 20 without one, each detected, labelled as a user would (one crossing near the centre, the two
//   spacings), fitted, and the calibration compared with the ground truth. DIR receives scans.csv and
//   the failing scans as PNG.
//
// The ground-truth error of a scan is the RMS and the maximum, over the positions every quarter spacing
// inside the detected lattice and inside the image, of the distance between the fit's unrounded pixel
// and the scan's true pixel of that position.
#include "qt_main.h"
#include "scan_generator.h"

#include <qvgeo/geomap/graticule_grid.h>
#include <qvgeo/graticule/graticule_detect.h>
// The scan generator draws through the widget library: this include also links the program with it.
#include <qvgeo/platform/bitmap.h>

#include <benchmark/benchmark.h>

#include <opencv2/imgproc.hpp>

#include <QApplication>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace {

using namespace qv;
using qvtest::TSyntheticScan;

TGreyImage Image(const TSyntheticScan& S) { return {S.Grey.data(), S.Width, S.Height, S.Width}; }

// The speed cases: world map 3 (Miller, turned, cluttered) at the pixel count asked.
const TSyntheticScan& SpeedScan(double Pixels)
{
    static std::map<double, TSyntheticScan> scans;
    auto it = scans.find(Pixels);
    if (it == scans.end()) {
        qvtest::TScanRecipe r = qvtest::BenchmarkRecipe(3);
        r.TargetPixels = Pixels;
        it = scans.emplace(Pixels, qvtest::MakeScan(r)).first;
    }
    return it->second;
}

// ---- labelling as the user does it -------------------------------------------------------------------

struct TLabelled {
    bool Ok = false;
    std::string Why;
    TGratLabels Labels;
    const TGratNode* Node = nullptr;
    double Distance = 0;  // of the true crossing from the node, pixels
};

// The detected node nearest the image centre (a seen one when there is any), and the true crossing of
// the drawn graticule nearest to it within 3 px: its values and the known spacings are the labels.
TLabelled LabelCentralNode(const TSyntheticScan& S, const TGratGrid& G)
{
    TLabelled l;
    const double cx = (S.Width - 1) / 2.0, cy = (S.Height - 1) / 2.0;
    double best = 1e300;
    for (bool seenOnly : {true, false}) {
        for (const TGratNode& n : G.Nodes) {
            const double d = std::hypot(n.X - cx, n.Y - cy);
            if ((n.Seen || !seenOnly) && d < best) {
                best = d;
                l.Node = &n;
            }
        }
        if (l.Node)
            break;
    }
    if (!l.Node) {
        l.Why = "labelling failed: no node";
        return l;
    }
    double lat = 0, lon = 0;
    l.Distance = 1e300;
    for (double phi : S.Latitudes)
        for (double lam : S.Longitudes) {
            double x = 0, y = 0;
            if (S.Truth(phi, lam, x, y) && std::hypot(x - l.Node->X, y - l.Node->Y) < l.Distance) {
                l.Distance = std::hypot(x - l.Node->X, y - l.Node->Y);
                lat = phi;
                lon = lam;
            }
        }
    if (l.Distance > 3) {
        l.Why = "labelling failed: no true crossing near the central node";
        return l;
    }
    l.Labels.Parallels = {l.Node->Row, lat, false, 0, 0.0, -S.LatSpacing};
    l.Labels.Meridians = {l.Node->Col, lon, false, 0, 0.0, S.LongSpacing};
    l.Ok = true;
    return l;
}

// The report's fit options (--quads-only).
TGratFitOptions FitOptions;

struct TTruthError {
    int Points = 0;
    double Rms = 0, Max = 0;
};

// The fit against the truth over the detected lattice's area, every quarter spacing, inside the image.
TTruthError TruthError(const TSyntheticScan& S, const TGratGrid& G, const TLabelled& L, const TGratCalibration& C)
{
    TTruthError e;
    if (G.Parallels.empty() || G.Meridians.empty())
        return e;
    const double latA = L.Labels.Parallels.Value + (G.Parallels.front().Index - L.Node->Row) * -S.LatSpacing;
    const double latB = L.Labels.Parallels.Value + (G.Parallels.back().Index - L.Node->Row) * -S.LatSpacing;
    const double lonA = L.Labels.Meridians.Value + (G.Meridians.front().Index - L.Node->Col) * S.LongSpacing;
    const double lonB = L.Labels.Meridians.Value + (G.Meridians.back().Index - L.Node->Col) * S.LongSpacing;
    const double latLo = std::min(latA, latB), latHi = std::max(latA, latB);
    const double lonLo = std::min(lonA, lonB), lonHi = std::max(lonA, lonB);
    double sum = 0;
    const int nLat = static_cast<int>(std::lround((latHi - latLo) / S.LatSpacing * 4));
    const int nLon = static_cast<int>(std::lround((lonHi - lonLo) / S.LongSpacing * 4));
    for (int i = 0; i <= nLat; ++i)
        for (int j = 0; j <= nLon; ++j) {
            const double lat = latLo + i * S.LatSpacing / 4, lon = lonLo + j * S.LongSpacing / 4;
            double tx = 0, ty = 0, fx = 0, fy = 0;
            if (!S.Truth(lat, lon, tx, ty) || tx < 0 || ty < 0 || tx > S.Width - 1 || ty > S.Height - 1)
                continue;
            const double d = C.Fit.CalcPixelPosition(lat, lon, fx, fy) ? std::hypot(fx - tx, fy - ty) : 1e9;
            sum += d * d;
            e.Max = std::max(e.Max, d);
            ++e.Points;
        }
    e.Rms = e.Points > 0 ? std::sqrt(sum / e.Points) : 0;
    return e;
}

// The floor the models set: the drawn graticule's true crossings inside the image, numbered as the finder
// numbers them (parallels from the north, meridians from the west), fitted as if found exactly. Above
// 1 px no finder can meet the goal on that scan with these models.
double IdealFitRms(const TSyntheticScan& S)
{
    TGratGrid g;
    g.Found = true;
    g.Width = S.Width;
    g.Height = S.Height;
    g.Confidence = 1;
    const int rows = static_cast<int>(S.Latitudes.size()), cols = static_cast<int>(S.Longitudes.size());
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c) {
            TGratNode n{r, c, 0, 0, 0.1, true};
            if (S.Truth(S.Latitudes[static_cast<std::size_t>(rows - 1 - r)], S.Longitudes[static_cast<std::size_t>(c)], n.X, n.Y) &&
                n.X >= 0 && n.Y >= 0 && n.X <= S.Width - 1 && n.Y <= S.Height - 1)
                g.Nodes.push_back(n);
        }
    g.Parallels.resize(static_cast<std::size_t>(rows));
    g.Meridians.resize(static_cast<std::size_t>(cols));
    for (int r = 0; r < rows; ++r)
        g.Parallels[static_cast<std::size_t>(r)].Index = r;
    for (int c = 0; c < cols; ++c) {
        g.Meridians[static_cast<std::size_t>(c)].Kind = gtlMeridian;
        g.Meridians[static_cast<std::size_t>(c)].Index = c;
    }
    if (g.Nodes.empty())
        return -1;
    TLabelled l;
    l.Node = &g.Nodes.front();
    l.Labels.Parallels = {l.Node->Row, S.Latitudes[static_cast<std::size_t>(rows - 1 - l.Node->Row)], false, 0, 0.0, -S.LatSpacing};
    l.Labels.Meridians = {l.Node->Col, S.Longitudes[static_cast<std::size_t>(l.Node->Col)], false, 0, 0.0, S.LongSpacing};
    const TGratCalibration c = FitGraticule(g, l.Labels, FitOptions);
    return c.Ok ? TruthError(S, g, l, c).Rms : -1;
}

// ---- benchmarks ----------------------------------------------------------------------------------------

void BM_DetectGraticule(benchmark::State& State)
{
    const TSyntheticScan& s = SpeedScan(static_cast<double>(State.range(0)) * 1e6);
    int lines = 0;
    for (auto _ : State) {
        const TGratGrid g = DetectGraticule(Image(s));
        lines = static_cast<int>(g.Parallels.size() + g.Meridians.size());
        benchmark::DoNotOptimize(g.Nodes.data());
    }
    State.counters["lines"] = lines;
    State.counters["MP"] = s.Width * static_cast<double>(s.Height) / 1e6;
}

// The peer: edges and probabilistic Hough segments over the same grey image.
void BM_CannyHoughLinesP(benchmark::State& State)
{
    const TSyntheticScan& s = SpeedScan(static_cast<double>(State.range(0)) * 1e6);
    const cv::Mat grey(s.Height, s.Width, CV_8UC1, const_cast<std::uint8_t*>(s.Grey.data()));
    std::size_t segments = 0;
    for (auto _ : State) {
        cv::Mat edges;
        std::vector<cv::Vec4i> found;
        cv::Canny(grey, edges, 50, 150);
        cv::HoughLinesP(edges, found, 1, CV_PI / 180, 200, 0.2 * std::min(s.Width, s.Height), 20);
        segments = found.size();
        benchmark::DoNotOptimize(found.data());
    }
    State.counters["segments"] = static_cast<double>(segments);
}

void BM_FitGraticule(benchmark::State& State)
{
    const TSyntheticScan& s = SpeedScan(4e6);
    static const TGratGrid grid = DetectGraticule(Image(s));
    const TLabelled l = LabelCentralNode(s, grid);
    if (!grid.Found || !l.Ok) {
        State.SkipWithError(grid.Found ? l.Why.c_str() : "no graticule found in the speed scan");
        return;
    }
    for (auto _ : State) {
        const TGratCalibration c = FitGraticule(grid, l.Labels);
        benchmark::DoNotOptimize(c.Ok);
    }
    State.counters["nodes"] = static_cast<double>(grid.Nodes.size());
}

BENCHMARK(BM_DetectGraticule)->Arg(4)->Arg(20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CannyHoughLinesP)->Arg(4)->Arg(20)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FitGraticule)->Unit(benchmark::kMillisecond);

// ---- the accuracy report -------------------------------------------------------------------------------

enum TOutcome { oCalibrated, oWrongConfident, oLowConfidence, oNotFound, oLabelFailed, oFitFailed, oNoGridClean,
                oNoGridFound };
const char* const OutcomeNames[] = {"calibrated", "WRONG but confident", "low confidence", "not found",
                                    "labelling failed", "fit failed", "no grid: none found", "no grid: FOUND"};

struct TResult {
    int N = 0;
    qvtest::TScanRecipe Recipe;
    std::string Description;
    TOutcome Outcome = oNotFound;
    std::string What;  // what went wrong, or the model chosen
    int Width = 0, Height = 0, Parallels = 0, Meridians = 0, Nodes = 0;
    double Confidence = 0, DetectMs = 0;
    double IdealRms = -1;  // the models' floor on this scan (IdealFitRms)
    bool Confident = false, HasFit = false;
    TTruthError Error;
};

bool Failed(const TResult& R) { return R.Outcome != oCalibrated && R.Outcome != oNoGridClean; }

TResult RunScan(int N, const std::string& Dir)
{
    TResult r;
    r.N = N;
    r.Recipe = qvtest::BenchmarkRecipe(N);
    const TSyntheticScan s = qvtest::MakeScan(r.Recipe);
    r.Description = s.Description;
    r.Width = s.Width;
    r.Height = s.Height;
    const auto t0 = std::chrono::steady_clock::now();
    const TGratGrid g = DetectGraticule(Image(s));
    r.DetectMs = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
    r.Parallels = static_cast<int>(g.Parallels.size());
    r.Meridians = static_cast<int>(g.Meridians.size());
    r.Nodes = static_cast<int>(g.Nodes.size());
    r.Confidence = g.Confidence;
    if (s.HasGrid)
        r.IdealRms = IdealFitRms(s);
    if (!s.HasGrid) {
        r.Outcome = g.Found ? oNoGridFound : oNoGridClean;
        r.What = g.Found ? "a graticule reported where none is drawn" : g.Message;
    } else if (!g.Found) {
        r.Outcome = oNotFound;
        r.What = g.Message;
    } else if (const TLabelled l = LabelCentralNode(s, g); !l.Ok) {
        r.Outcome = oLabelFailed;
        r.What = l.Why;
    } else if (const TGratCalibration c = FitGraticule(g, l.Labels, FitOptions); !c.Ok) {
        r.Outcome = oFitFailed;
        r.What = c.Reason;
    } else {
        r.HasFit = true;
        r.Confident = c.Confident;
        r.Error = TruthError(s, g, l, c);
        r.What = std::string(CalibModelKeywords[c.Model]) + (c.Confident ? "" : ": " + c.Reason);
        // Every candidate's expected error between crossings and largest residual, for choosing thresholds.
        for (const TGratCandidate& k : c.Candidates)
            r.What += " | " + std::string(CalibModelKeywords[k.Model]) + " " + std::to_string(k.LeaveOneOutRms).substr(0, 6) +
                      " " + std::to_string(k.MaxPixels).substr(0, 6);
        if (r.Error.Points == 0) {
            r.Outcome = oFitFailed;
            r.What = "no position of the lattice's area inside the image and the drawn graticule";
        } else if (r.Error.Rms > 1.0) {
            r.Outcome = c.Confident ? oWrongConfident : oLowConfidence;
        } else {
            r.Outcome = c.Confident ? oCalibrated : oLowConfidence;
        }
    }
    if (!Dir.empty() && Failed(r))
        qvtest::SaveScan(s, Dir + "/scan_" + std::to_string(N) + ".png");
    return r;
}

double Percentile(std::vector<double> V, double P)
{
    if (V.empty())
        return 0;
    std::sort(V.begin(), V.end());
    return V[static_cast<std::size_t>(std::lround(P * static_cast<double>(V.size() - 1)))];
}

bool WriteCsv(const std::vector<TResult>& Results, const std::string& FName)
{
    std::ofstream out(FName);
    if (!out)
        return false;
    out << "n,seed,base,projection,rotation,scale,perspective,jpeg,blur,noise,stains,clutter,width,height,"
           "outcome,parallels,meridians,nodes,confidence,confident,rms_px,max_px,points,ideal_rms_px,detect_ms,what\n";
    for (const TResult& r : Results) {
        const qvtest::TScanRecipe& q = r.Recipe;
        char line[512];
        std::snprintf(line, sizeof line,
                      "%d,%u,%d,%d,%.3f,%.4f,%.5f,%d,%.3f,%.3f,%d,%d,%d,%d,%s,%d,%d,%d,%.3f,%d,%.4f,%.4f,%d,%.4f,%.1f,", r.N,
                      q.Seed, int{q.Base}, int{q.Projection}, q.Rotation, q.Scale, q.Perspective, q.JpegQuality, q.Blur,
                      q.Noise, q.Stains, q.Clutter ? 1 : 0, r.Width, r.Height, OutcomeNames[r.Outcome], r.Parallels,
                      r.Meridians, r.Nodes, r.Confidence, r.Confident ? 1 : 0, r.Error.Rms, r.Error.Max,
                      r.Error.Points, r.IdealRms, r.DetectMs);
        std::string what = r.What;
        std::replace(what.begin(), what.end(), '"', '\'');
        out << line << '"' << what << "\"\n";
    }
    out.close();
    return static_cast<bool>(out);
}

// Failures per value of one recipe property: what the failing scans share. Each entry: failures/scans,
// and in brackets the failures on scans whose exact crossings fit to 1 px (not the models' limit).
void PrintGroups(const std::vector<TResult>& Results, const char* Title,
                 const std::function<std::string(const qvtest::TScanRecipe&)>& Key)
{
    struct TCount {
        int Scans = 0, Failures = 0, Fittable = 0;
    };
    std::map<std::string, TCount> groups;
    for (const TResult& r : Results)
        if (r.Recipe.Base != qvtest::sbNoGrid) {
            TCount& g = groups[Key(r.Recipe)];
            ++g.Scans;
            g.Failures += Failed(r);
            g.Fittable += Failed(r) && r.IdealRms <= 1.0;
        }
    std::printf("  %-12s", Title);
    for (const auto& [key, g] : groups)
        std::printf("  %s: %d/%d (%d)", key.c_str(), g.Failures, g.Scans, g.Fittable);
    std::printf("\n");
}

// "lo-hi" of the bin V falls in, "lo+" beyond the last edge.
std::string Bin(double V, std::initializer_list<double> Edges)
{
    char text[64];
    double lo = 0;
    for (double e : Edges) {
        if (V < e) {
            std::snprintf(text, sizeof text, "%g-%g", lo, e);
            return text;
        }
        lo = e;
    }
    std::snprintf(text, sizeof text, "%g+", lo);
    return text;
}

int Report(const std::string& Dir, int From, int To)
{
    std::error_code error;
    if (!Dir.empty() && !std::filesystem::create_directories(Dir, error) && error) {
        std::fprintf(stderr, "cannot create %s: %s\n", Dir.c_str(), error.message().c_str());
        return 1;
    }
    std::vector<TResult> results;
    for (int n = From; n <= To; ++n) {
        results.push_back(RunScan(n, Dir));
        const TResult& r = results.back();
        std::fprintf(stderr, "\r%d/%d %s          ", n - From + 1, To - From + 1, OutcomeNames[r.Outcome]);
    }
    std::fprintf(stderr, "\n");

    std::map<TOutcome, int> count;
    std::vector<double> rms, times;
    int grids = 0, noGrids = 0, rmsOk = 0;
    for (const TResult& r : results) {
        ++count[r.Outcome];
        times.push_back(r.DetectMs);
        if (r.Recipe.Base == qvtest::sbNoGrid) {
            ++noGrids;
            continue;
        }
        ++grids;
        if (r.HasFit && r.Error.Points > 0) {
            rms.push_back(r.Error.Rms);
            rmsOk += r.Error.Rms <= 1.0;
        }
    }
    auto share = [](int k, int n) { return n > 0 ? 100.0 * k / n : 0.0; };
    std::printf("Graticule scans: %d\n", grids);
    for (TOutcome o : {oCalibrated, oWrongConfident, oLowConfidence, oNotFound, oLabelFailed, oFitFailed})
        std::printf("  %-22s %4d  %5.1f %%\n", OutcomeNames[o], count[o], share(count[o], grids));
    int doubtedGood = 0;
    for (const TResult& r : results)
        doubtedGood += r.Outcome == oLowConfidence && r.Error.Rms <= 1.0;
    std::printf("  RMS <= 1 px, confident or not: %d (%.1f %%); goal: calibrated >= 95 %%, wrong but confident 0\n",
                rmsOk, share(rmsOk, grids));
    std::printf("  of the low-confidence ones %d were good (RMS <= 1 px), %d rightly doubted\n", doubtedGood,
                count[oLowConfidence] - doubtedGood);
    int floorHigh = 0, floorHighFailed = 0;
    for (const TResult& r : results)
        if (r.IdealRms > 1.0) {
            ++floorHigh;
            floorHighFailed += Failed(r);
        }
    std::printf("  the exact crossings themselves fit worse than 1 px on %d scans (%d of them failed): the models' limit\n",
                floorHigh, floorHighFailed);
    int failed = 0;
    for (const TResult& r : results)
        failed += r.Recipe.Base != qvtest::sbNoGrid && Failed(r);
    std::printf("  failures where the exact crossings fit to 1 px (the finder's or the fit's share): %d\n",
                failed - floorHighFailed);
    std::printf("Scans without a graticule: %d, graticule reported in %d\n", noGrids, count[oNoGridFound]);
    if (!rms.empty()) {
        std::printf("Ground-truth RMS over %zu fits: p50 %.3f  p90 %.3f  p95 %.3f  p99 %.3f  max %.3f px\n", rms.size(),
                    Percentile(rms, 0.5), Percentile(rms, 0.9), Percentile(rms, 0.95), Percentile(rms, 0.99),
                    Percentile(rms, 1.0));
        const double edges[] = {0.1, 0.2, 0.3, 0.5, 0.75, 1.0, 2.0, 5.0, 1e300};
        int bins[9] = {};
        for (double v : rms)
            ++bins[std::upper_bound(std::begin(edges), std::end(edges), v) - std::begin(edges)];
        double lo = 0;
        for (int i = 0; i < 9; ++i) {
            char label[32];
            std::snprintf(label, sizeof label, i == 8 ? "%g.. px" : "%g..%g px", lo, edges[i]);
            std::printf("  %-12s %4d %s\n", label, bins[i], std::string(static_cast<std::size_t>(bins[i]), '#').c_str());
            lo = edges[i];
        }
    }
    std::printf("Detection time per scan (information only): median %.0f ms, max %.0f ms\n", Percentile(times, 0.5),
                Percentile(times, 1.0));

    std::printf("Failures:\n");
    for (const TResult& r : results)
        if (Failed(r))
            std::printf("  #%d %s (rms %.2f, max %.2f px, %dx%d lines, confidence %.2f, exact crossings fit to %.2f px)"
                        ": %s\n    %s\n",
                        r.N, OutcomeNames[r.Outcome], r.Error.Rms, r.Error.Max, r.Parallels, r.Meridians, r.Confidence,
                        r.IdealRms, r.What.c_str(), r.Description.c_str());
    std::printf("Failures per group: failed/scans (failed although the exact crossings fit to 1 px)\n");
    static const char* const bases[] = {"empty", "world", "none"};
    static const char* const projections[] = {"equirect", "Miller", "conic"};
    PrintGroups(results, "base", [](const qvtest::TScanRecipe& q) {
        return q.Base == qvtest::sbWorld ? std::string(projections[q.Projection]) : std::string(bases[q.Base]);
    });
    PrintGroups(results, "|rotation|", [](const auto& q) { return Bin(std::fabs(q.Rotation), {3, 7}); });
    PrintGroups(results, "scale", [](const auto& q) { return Bin(q.Scale, {1.2, 1.8}); });
    PrintGroups(results, "perspective", [](const auto& q) { return Bin(q.Perspective, {0.007, 0.014}); });
    PrintGroups(results, "jpeg", [](const auto& q) { return Bin(q.JpegQuality, {56, 71}); });
    PrintGroups(results, "blur", [](const auto& q) { return Bin(q.Blur, {0.5, 1.0}); });
    PrintGroups(results, "noise", [](const auto& q) { return Bin(q.Noise, {3, 6}); });
    PrintGroups(results, "stains", [](const auto& q) { return std::to_string(q.Stains); });
    PrintGroups(results, "clutter", [](const auto& q) { return std::string(q.Clutter ? "on" : "off"); });
    if (!Dir.empty()) {
        if (!WriteCsv(results, Dir + "/scans.csv")) {
            std::fprintf(stderr, "cannot write %s/scans.csv\n", Dir.c_str());
            return 1;
        }
        std::printf("Written: %s/scans.csv and the failing scans as %s/scan_N.png\n", Dir.c_str(), Dir.c_str());
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "--report") == 0) {
            std::string dir;
            int from = 0, to = 219;
            for (int k = i + 1; k < argc; ++k) {
                if (std::strcmp(argv[k], "--quads-only") == 0) {
                    FitOptions.Parabolic = false;
                } else if (std::strcmp(argv[k], "--scans") == 0 && k + 1 < argc &&
                    std::sscanf(argv[k + 1], "%d..%d", &from, &to) >= 1) {
                    if (std::strchr(argv[k + 1], '.') == nullptr)
                        to = from;
                    ++k;
                } else {
                    dir = argv[k];
                }
            }
            if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
                qputenv("QT_QPA_PLATFORM", "offscreen");
            QApplication app(argc, argv);
            return Report(dir, from, to);
        }
    return RunQtBenchmarks(argc, argv);
}
