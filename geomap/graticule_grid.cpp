#include <qvgeo/geomap/graticule_grid.h>

#include <qvgeo/geomap/calibration.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <set>
#include <tuple>
#include <utility>

namespace qv {

namespace {

// Leave-one-out refits per model: every quad up to this many, an even selection beyond (the conic
// search costs about a millisecond per refit, and 40 left-out points estimate an rms well enough).
constexpr int kMaxLeaveOneOut = 40;

// A simpler model is kept unless a later one predicts left-out points better by more than this share
// and this many pixels: differences within the measuring noise say nothing about the map.
constexpr double kBetterShare = 0.05;
constexpr double kBetterPixels = 0.02;

// The smallest grid that is a calibration at all, and the one that deserves trust: 3 x 3 crossings give
// each direction's spacing twice, so that one wrongly numbered line shows in the residuals.
constexpr int kMinQuads = 4;
constexpr int kMinConfidentRows = 3;
// Below this the finder itself doubts that its lines form a graticule (it scores regularity, coverage
// and contrast); above it the residuals decide.
constexpr double kMinFinderConfidence = 0.3;

std::string Format(const char* Pattern, double A, double B = 0.0)
{
    char text[200];
    std::snprintf(text, sizeof text, Pattern, A, B);
    return text;
}

// Evenly spread picks of Count out of the sorted values All, keeping the first and the last.
std::vector<int> SpreadPick(const std::vector<int>& All, int Count)
{
    const int n = static_cast<int>(All.size());
    if (Count >= n)
        return All;
    std::vector<int> picked;
    for (int i = 0; i < Count; ++i) {
        const int k = Count == 1 ? 0 : static_cast<int>(std::lround(static_cast<double>(i) * (n - 1) / (Count - 1)));
        if (picked.empty() || picked.back() != All[static_cast<std::size_t>(k)])
            picked.push_back(All[static_cast<std::size_t>(k)]);
    }
    return picked;
}

// The nodes the quads are made from: the seen ones (all when fewer than 9 are seen), thinned to at most
// MaxCalQuads by keeping whole rows and columns of the lattice spread evenly over it, so that the quads
// still span the grid and keep its regular pattern.
std::vector<int> ChooseNodes(const TGratGrid& Grid)
{
    std::vector<int> use;
    for (std::size_t i = 0; i < Grid.Nodes.size(); ++i)
        if (Grid.Nodes[i].Seen)
            use.push_back(static_cast<int>(i));
    if (use.size() < 9) {
        use.clear();
        for (std::size_t i = 0; i < Grid.Nodes.size(); ++i)
            use.push_back(static_cast<int>(i));
    }
    if (use.size() <= static_cast<std::size_t>(MaxCalQuads))
        return use;
    std::set<int> rowSet, colSet;
    for (int i : use) {
        rowSet.insert(Grid.Nodes[static_cast<std::size_t>(i)].Row);
        colSet.insert(Grid.Nodes[static_cast<std::size_t>(i)].Col);
    }
    const std::vector<int> rows(rowSet.begin(), rowSet.end()), cols(colSet.begin(), colSet.end());
    // Shrink rows and columns in proportion until the kept crossings fit.
    for (double f = 1.0; f > 0.0; f -= 0.02) {
        const int nr = std::max(2, static_cast<int>(std::floor(static_cast<double>(rows.size()) * f)));
        const int nc = std::max(2, static_cast<int>(std::floor(static_cast<double>(cols.size()) * f)));
        const std::vector<int> r = SpreadPick(rows, nr), c = SpreadPick(cols, nc);
        std::vector<int> kept;
        for (int i : use) {
            const TGratNode& n = Grid.Nodes[static_cast<std::size_t>(i)];
            if (std::binary_search(r.begin(), r.end(), n.Row) && std::binary_search(c.begin(), c.end(), n.Col))
                kept.push_back(i);
        }
        if (kept.size() <= static_cast<std::size_t>(MaxCalQuads))
            return kept;
    }
    use.resize(static_cast<std::size_t>(MaxCalQuads));
    return use;
}

// Pixel of a quad's place under Fit, unrounded; false when the fit gives none.
bool PredictPixel(const TCalibFit& Fit, const TCalQuad& Q, double& X, double& Y)
{
    const bool ok = Fit.Model() == cmUTM ? Fit.CalcPixelPositionUTM(Q.Latitude, Q.Longitude, X, Y)
                                         : Fit.CalcPixelPosition(Q.Latitude, Q.Longitude, X, Y);
    return ok && std::isfinite(X) && std::isfinite(Y);
}

// Root mean square distance of left-out quads from the pixel the fit made without them predicts. -1
// when a refit gives no pixel.
double LeaveOneOutRms(const TCalibData& Data, TCalibModel Model, const TGratGrid& Grid, const std::vector<int>& NodeOfQuad)
{
    const std::int32_t Width = Grid.Width, Height = Grid.Height;
    const int n = ValidCalQuads(Data);
    const int count = std::min(n, kMaxLeaveOneOut);
    double sum = 0.0;
    for (int k = 0; k < count; ++k) {
        const int left = count == n ? k : static_cast<int>(static_cast<long long>(k) * n / count);
        TCalibData d = Data;
        d.CalQuads[static_cast<std::size_t>(left)] = d.CalQuads[static_cast<std::size_t>(n - 1)];
        d.NumCalQuads = n - 1;
        TCalibFit fit;
        fit.SetModel(Model);
        fit.SetProjection(d);
        fit.FitModel(d, Width, Height);
        const TCalQuad& q = Data.CalQuads[static_cast<std::size_t>(left)];
        double x = 0.0, y = 0.0;
        if (!PredictPixel(fit, q, x, y))
            return -1.0;
        // Against the crossing as found, not its whole-pixel quad: the rounding is the record's, not the
        // model's, and would hide the model's own error under half a pixel of noise.
        const TGratNode& n = Grid.Nodes[static_cast<std::size_t>(NodeOfQuad[static_cast<std::size_t>(left)])];
        sum += (x - n.X) * (x - n.X) + (y - n.Y) * (y - n.Y);
    }
    return count > 0 ? std::sqrt(sum / count) : -1.0;
}

// The found curves as graticule lines of Data, each with 10 whole-pixel points spread over its extent:
// each point is taken where the curve passes closest to a whole pixel within a few pixels of its even
// spot, so that rounding costs the line almost nothing. At most MaxCalLines, both families kept in
// proportion and spread evenly (first and last kept). Returns the lattice number of each line added.
std::vector<std::pair<TGratLineKind, int>> AddGratLines(const TGratGrid& Grid, const TGratLabels& Labels,
                                                        TCalibData& Data)
{
    std::vector<std::pair<TGratLineKind, int>> added;
    Data.NumCalLines = 0;
    const int np = static_cast<int>(Grid.Parallels.size()), nm = static_cast<int>(Grid.Meridians.size());
    if (np + nm == 0)
        return added;
    int keepP = np, keepM = nm;
    while (keepP + keepM > MaxCalLines)
        (keepP * nm > keepM * np ? keepP : keepM) -= 1;
    for (const auto& [curves, keep, label] :
         {std::tuple{&Grid.Parallels, keepP, &Labels.Parallels}, std::tuple{&Grid.Meridians, keepM, &Labels.Meridians}}) {
        std::vector<int> all(curves->size());
        for (std::size_t i = 0; i < all.size(); ++i)
            all[i] = static_cast<int>(i);
        for (int i : SpreadPick(all, keep)) {
            const TGratCurve& c = (*curves)[static_cast<std::size_t>(i)];
            double value = 0.0;
            // Whole-pixel points need a curve within the 32-bit pixel range (a caller's curve may hold anything).
            constexpr double kFar = 1e8;
            if (!GratLineValue(*label, c.Index, value) || !(c.To > c.From) || !(c.From > -kFar) || !(c.To < kFar))
                continue;
            TCalibLine& line = Data.CalLines[static_cast<std::size_t>(Data.NumCalLines++)];
            line.LineType = c.Kind;
            line.LineValue = value;
            line.NumPoints = 0;
            for (int k = 0; k < MaxCalLinePoints; ++k) {
                const double even = c.From + (c.To - c.From) * k / (MaxCalLinePoints - 1);
                double bestT = std::round(even), bestOff = 1.0;
                for (int d = -4; d <= 4; ++d) {
                    const double t = std::round(even) + d, v = c.At(t);
                    if (t < c.From - 0.5 || t > c.To + 0.5)
                        continue;
                    const double off = std::fabs(v - std::nearbyint(v));
                    if (off < bestOff)
                        bestOff = off, bestT = t;
                }
                const double at = c.At(bestT);
                if (!(std::fabs(at) < kFar))
                    continue;
                const auto along = static_cast<std::int32_t>(bestT);
                const auto across = static_cast<std::int32_t>(std::nearbyint(at));
                line.CalPoints[static_cast<std::size_t>(line.NumPoints++)] =
                    c.Kind == gtlParallel ? TPoint{along, across} : TPoint{across, along};
            }
            added.emplace_back(c.Kind, c.Index);
        }
    }
    return added;
}

// The parabolic model's expected error between crossings: each line left out in turn and its crossings
// predicted from the lines either side of it, or, for an outermost line, extrapolated from the two next
// to it. The error of interpolating linearly grows with the square of the gap, so each distance is
// scaled to the widest cell the model will use (below). The rms of those over all crossings, and their
// largest in Max; -1 when no line can be left out or a prediction fails.
double LeaveOneLineOutRms(const TCalibData& Data, const std::vector<std::pair<TGratLineKind, int>>& Lines,
                          const TGratGrid& Grid, const TGratLabels& Labels, double& Max)
{
    Max = 0.0;
    double sum = 0.0;
    int count = 0;
    const int n = ValidCalLines(Data);
    for (int l = 0; l < n; ++l) {
        const TGratLineKind kind = Data.CalLines[static_cast<std::size_t>(l)].LineType;
        const int index = Lines[static_cast<std::size_t>(l)].second;
        // The lattice numbers of this family's other lines, and the widest gap between neighbours (a
        // missing line makes a cell of two spacings, which errs four times as much as a single one).
        std::vector<int> others, family;
        for (int o = 0; o < n; ++o)
            if (Lines[static_cast<std::size_t>(o)].first == kind) {
                family.push_back(Lines[static_cast<std::size_t>(o)].second);
                if (o != l)
                    others.push_back(Lines[static_cast<std::size_t>(o)].second);
            }
        std::sort(others.begin(), others.end());
        std::sort(family.begin(), family.end());
        if (others.size() < 2)
            continue;
        double widest = 1.0;
        for (std::size_t k = 1; k < family.size(); ++k)
            widest = std::max(widest, double(family[k]) - double(family[k - 1]));
        // With c the change of the spacing from one spacing to the next: interpolating over gaps a and
        // b misses the left-out line by c·a·b/2, extrapolating a beyond two lines b apart by
        // c·a·(a + b)/2, while the widest cell in use errs at most c·G²/8.
        const auto up = std::upper_bound(others.begin(), others.end(), index);
        double scale = 0.0;
        if (up != others.begin() && up != others.end())
            scale = 4.0 * (double(index) - *(up - 1)) * (double(*up) - index) / (widest * widest);
        else if (up == others.end())
            scale = 4.0 * (double(index) - others.back()) * (double(index) - others[others.size() - 2]) / (widest * widest);
        else
            scale = 4.0 * (double(others.front()) - index) * (double(others[1]) - index) / (widest * widest);
        TCalibData d = Data;
        d.CalLines[static_cast<std::size_t>(l)] = d.CalLines[static_cast<std::size_t>(n - 1)];
        d.NumCalLines = n - 1;
        TCalibFit fit;
        fit.SetModel(cmParabolicIp);
        if (!fit.FitGratMat(d))
            return -1.0;
        for (const TGratNode& node : Grid.Nodes) {
            if ((kind == gtlParallel ? node.Row : node.Col) != Lines[static_cast<std::size_t>(l)].second || !node.Seen)
                continue;
            double lat = 0.0, lon = 0.0, x = 0.0, y = 0.0;
            GratLineValue(Labels.Parallels, node.Row, lat);
            GratLineValue(Labels.Meridians, node.Col, lon);
            if (!fit.CalcPixelPosition(lat, lon, x, y) || !std::isfinite(x) || !std::isfinite(y))
                return -1.0;
            const double e = std::hypot(x - node.X, y - node.Y) / std::max(scale, 1.0);
            Max = std::max(Max, e);
            sum += e * e;
            ++count;
        }
    }
    return count > 0 ? std::sqrt(sum / count) : -1.0;
}

const char* ModelName(TCalibModel M)
{
    return CalibModelKeywords[static_cast<std::size_t>(M)].data();
}

}  // namespace

void ScaleGratGrid(TGratGrid& G, double Sx, double Sy, std::int32_t Width, std::int32_t Height)
{
    G.Width = Width;
    G.Height = Height;
    const auto fx = [Sx](double u) { return (u + 0.5) * Sx - 0.5; };
    const auto fy = [Sy](double v) { return (v + 0.5) * Sy - 0.5; };
    for (auto* family : {&G.Parallels, &G.Meridians})
        for (TGratCurve& c : *family) {
            const bool parallel = c.Kind == gtlParallel;
            const double across = parallel ? Sy : Sx, along = parallel ? Sx : Sy;
            // The running coordinate t of the picture is a·T + b in the reduced one; the curve's value
            // then scales like a coordinate across it.
            const double a = 1.0 / along, b = 0.5 / along - 0.5;
            const double k0 = c.C0 + c.C1 * b + c.C2 * b * b, k1 = c.C1 * a + 2.0 * c.C2 * a * b, k2 = c.C2 * a * a;
            c.C0 = k0 * across + 0.5 * across - 0.5;
            c.C1 = k1 * across;
            c.C2 = k2 * across;
            c.From = parallel ? fx(c.From) : fy(c.From);
            c.To = parallel ? fx(c.To) : fy(c.To);
            c.RmsPixels *= across;
            for (TGratPoint& p : c.Samples)
                p = {fx(p.X), fy(p.Y)};
        }
    for (TGratNode& n : G.Nodes) {
        n.X = fx(n.X);
        n.Y = fy(n.Y);
        n.Sigma *= std::max(Sx, Sy);
    }
}

bool GratLineValue(const TGratAxisLabel& Label, int Index, double& Value)
{
    // Lattice numbers are subtracted as doubles: any two 32-bit numbers may come from a caller.
    double spacing = Label.Spacing;
    if (Label.HasSecond) {
        if (Label.Index2 == Label.Index)
            return false;
        spacing = (Label.Value2 - Label.Value) / (double(Label.Index2) - double(Label.Index));
    }
    if (!std::isfinite(spacing) || spacing == 0.0 || !std::isfinite(Label.Value))
        return false;
    const double v = Label.Value + spacing * (double(Index) - double(Label.Index));
    if (!std::isfinite(v))
        return false;
    Value = v;
    return true;
}

TGratCalibration FitGraticule(const TGratGrid& Grid, const TGratLabels& Labels, const TGratFitOptions& Options)
{
    TGratCalibration R;
    if (!Grid.Found) {
        R.Reason = Grid.Message.empty() ? NoGraticuleFound : Grid.Message;
        return R;
    }
    const bool utm = Labels.UTMZone != 0;
    if (utm && (Labels.UTMZone < 1 || Labels.UTMZone > 60)) {
        R.Reason = "UTM zone must be 1 to 60";
        return R;
    }
    double probe = 0.0;
    if (!GratLineValue(Labels.Parallels, 0, probe) || !GratLineValue(Labels.Meridians, 0, probe)) {
        R.Reason = "each family needs a line with its value and either the spacing or a second line";
        return R;
    }

    TCalibData& d = R.Data;
    d.UTMZone = utm ? Labels.UTMZone : -1;
    d.UTMSouth = utm && Labels.UTMSouth;
    d.Ellipsoid = gelWGS84;
    for (int i : ChooseNodes(Grid)) {
        const TGratNode& n = Grid.Nodes[static_cast<std::size_t>(i)];
        double lat = 0.0, lon = 0.0;
        GratLineValue(Labels.Parallels, n.Row, lat);
        GratLineValue(Labels.Meridians, n.Col, lon);
        const bool inRange = utm ? (lat >= 0.0 && lat <= 10000000.0 && lon >= 0.0 && lon <= 1000000.0)
                                 : (std::fabs(lat) <= 90.0 && std::fabs(lon) <= 180.0);
        if (!inRange || !std::isfinite(n.X) || !std::isfinite(n.Y) || std::fabs(n.X) > 1e9 || std::fabs(n.Y) > 1e9)
            continue;
        TCalQuad& q = d.CalQuads[static_cast<std::size_t>(d.NumCalQuads++)];
        q.Latitude = lat;
        q.Longitude = lon;
        // The record holds whole pixels: half a pixel at most, which the fit over many crossings averages.
        q.MapX = static_cast<std::int32_t>(std::nearbyint(n.X));
        q.MapY = static_cast<std::int32_t>(std::nearbyint(n.Y));
        R.NodeOfQuad.push_back(i);
    }
    if (d.NumCalQuads < kMinQuads) {
        R.Reason = Format("only %.0f crossings have places on the earth; at least %.0f are needed",
                          d.NumCalQuads, kMinQuads);
        return R;
    }

    // Every candidate model, judged by how well it predicts crossings it was not fitted to: the residuals
    // at the fitted points always favour the model with more coefficients, the left-out ones do not.
    const std::vector<TCalibModel> models =
        utm ? std::vector<TCalibModel>{cmUTM}
            : std::vector<TCalibModel>(std::begin(GratCandidateModels), std::end(GratCandidateModels));
    std::vector<std::pair<TGratLineKind, int>> lines;
    if (!utm && Options.Parabolic)
        lines = AddGratLines(Grid, Labels, d);
    int best = -1;
    for (TCalibModel m : models) {
        TGratCandidate c;
        c.Model = m;
        if (m == cmParabolicIp) {
            if (!Options.Parabolic || utm)
                continue;
            TCalibFit fit;
            fit.SetModel(m);
            if (fit.FitGratMat(d)) {
                c.LeaveOneOutRms = LeaveOneLineOutRms(d, lines, Grid, Labels, c.MaxPixels);
                // Residuals at the crossings themselves: the lines pass through them by construction.
                double sum = 0.0;
                for (std::size_t q = 0; q < R.NodeOfQuad.size(); ++q) {
                    const TGratNode& n = Grid.Nodes[static_cast<std::size_t>(R.NodeOfQuad[q])];
                    double x = 0.0, y = 0.0;
                    if (PredictPixel(fit, d.CalQuads[q], x, y))
                        sum += (x - n.X) * (x - n.X) + (y - n.Y) * (y - n.Y);
                }
                c.RmsPixels = R.NodeOfQuad.empty() ? 0.0 : std::sqrt(sum / static_cast<double>(R.NodeOfQuad.size()));
            } else {
                c.Diagnosis = cdgTooFewPoints;
            }
            R.Candidates.push_back(c);
            if (c.LeaveOneOutRms >= 0.0 && std::isfinite(c.LeaveOneOutRms) &&
                (best < 0 || c.LeaveOneOutRms < R.Candidates[static_cast<std::size_t>(best)].LeaveOneOutRms * (1.0 - kBetterShare) - kBetterPixels))
                best = static_cast<int>(R.Candidates.size()) - 1;
            continue;
        }
        TCalibFit fit;
        fit.SetModel(m);
        fit.SetProjection(d);
        fit.FitModel(d, Grid.Width, Grid.Height);
        const TCalibResiduals res = CalibResiduals(d, fit, Grid.Width, Grid.Height, false);
        c.Diagnosis = res.Diagnosis;
        c.RmsPixels = res.RmsPixels;
        bool allValid = !res.Quads.empty();
        for (const TQuadResidual& q : res.Quads) {
            allValid = allValid && q.Valid;
            c.MaxPixels = std::max(c.MaxPixels, q.Pixels);
        }
        if (res.Diagnosis == cdgOK && allValid)
            c.LeaveOneOutRms = LeaveOneOutRms(d, m, Grid, R.NodeOfQuad);
        R.Candidates.push_back(c);
        if (c.LeaveOneOutRms < 0.0 || !std::isfinite(c.LeaveOneOutRms))
            continue;
        const int idx = static_cast<int>(R.Candidates.size()) - 1;
        if (best < 0) {
            best = idx;
            continue;
        }
        const double bestLoo = R.Candidates[static_cast<std::size_t>(best)].LeaveOneOutRms;
        if (c.LeaveOneOutRms < bestLoo * (1.0 - kBetterShare) - kBetterPixels)
            best = idx;
    }
    if (best < 0) {
        R.Reason = "no model could be fitted to the crossings (too few, or all on one line)";
        return R;
    }
    const TGratCandidate& chosen = R.Candidates[static_cast<std::size_t>(best)];
    R.Model = chosen.Model;
    R.Fit.SetModel(R.Model);
    R.Fit.SetProjection(d);
    R.Fit.FitGratMat(d);
    R.Fit.FitModel(d, Grid.Width, Grid.Height);

    // Corners and resolution as a map with this calibration would compute them.
    TMapCalibration cal;
    cal.SetImageSize(Grid.Width, Grid.Height);
    cal.LoadCalibData(d, R.Model);
    cal.CalcExtentsAndResolution();
    d.Corners = cal.CalibData().Corners;
    d.Resolution = cal.CalibData().Resolution;
    R.Residuals = CalibResiduals(d, R.Fit, Grid.Width, Grid.Height, false);
    R.Ok = true;

    std::set<int> rows, cols;
    for (int i : R.NodeOfQuad) {
        rows.insert(Grid.Nodes[static_cast<std::size_t>(i)].Row);
        cols.insert(Grid.Nodes[static_cast<std::size_t>(i)].Col);
    }
    std::string why = std::string(ModelName(R.Model)) +
                      Format(": predicts left-out crossings to %.2f px (rms), largest residual %.2f px",
                             chosen.LeaveOneOutRms, chosen.MaxPixels);
    if (static_cast<int>(rows.size()) < kMinConfidentRows || static_cast<int>(cols.size()) < kMinConfidentRows)
        R.Reason = "doubtful: fewer than 3 parallels or 3 meridians cross, so a misnumbered line cannot show; " + why;
    else if (chosen.LeaveOneOutRms > Options.MaxLeaveOneOutRms || chosen.MaxPixels > Options.MaxResidual)
        R.Reason = "doubtful: the crossings do not fit any model well (a line missed or taken twice, or a "
                   "wrong spacing?); " + why;
    else if (Grid.Confidence < kMinFinderConfidence)
        R.Reason = Format("doubtful: the finder is not sure this is a graticule (confidence %.2f); ", Grid.Confidence) + why;
    else {
        R.Confident = true;
        R.Reason = why;
    }
    return R;
}

}  // namespace qv
