// Harness of the graticule calibration: a found grid and the user's values decoded from the bytes (any
// lattice numbers, coordinates, curves and values, NaN and infinities included), calibrated, scaled and
// converted. What a finder of another make, or a caller's own code, may hand to FitGraticule.
#include <qvgeo/fuzz/harness.h>

#include <qvgeo/geomap/graticule_grid.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace qvfuzz {

namespace {

// Reads the bytes in order; past their end every value is 0.
class TReader {
public:
    explicit TReader(TBytes Data) : FData(Data) {}
    template <typename T>
    T Take()
    {
        T v{};
        if (FPos + sizeof(T) <= FData.size())
            std::memcpy(&v, FData.data() + FPos, sizeof(T));
        FPos += sizeof(T);
        return v;
    }

private:
    TBytes FData;
    std::size_t FPos = 0;
};

[[noreturn]] void Violated(const char* What)
{
    std::fprintf(stderr, "qvgeo fuzz: %s\n", What);
    std::abort();
}

qv::TGratAxisLabel TakeLabel(TReader& R)
{
    qv::TGratAxisLabel l;
    l.Index = R.Take<std::int32_t>();
    l.Value = R.Take<double>();
    l.HasSecond = (R.Take<std::uint8_t>() & 1) != 0;
    l.Index2 = R.Take<std::int32_t>();
    l.Value2 = R.Take<double>();
    l.Spacing = R.Take<double>();
    return l;
}

qv::TGratCurve TakeCurve(TReader& R, qv::TGratLineKind Kind)
{
    qv::TGratCurve c;
    c.Kind = Kind;
    c.Index = R.Take<std::int32_t>();
    c.C0 = R.Take<double>();
    c.C1 = R.Take<float>();
    c.C2 = R.Take<float>();
    c.From = R.Take<float>();
    c.To = R.Take<float>();
    return c;
}

}  // namespace

void GraticuleFit(TBytes Data)
{
    TReader r(Data);
    const std::uint8_t shape = r.Take<std::uint8_t>();
    const int parallels = shape & 15, meridians = shape >> 4;
    const std::uint8_t flags = r.Take<std::uint8_t>();
    qv::TGratGrid g;
    g.Found = (flags & 1) == 0;
    g.Width = r.Take<std::int32_t>();
    g.Height = r.Take<std::int32_t>();
    g.Confidence = r.Take<float>();
    qv::TGratLabels labels;
    labels.Parallels = TakeLabel(r);
    labels.Meridians = TakeLabel(r);
    if (flags & 2)
        labels.UTMZone = r.Take<std::int8_t>();
    qv::TGratFitOptions options;
    options.Parabolic = (flags & 4) == 0;
    for (int i = 0; i < parallels; ++i)
        g.Parallels.push_back(TakeCurve(r, qv::gtlParallel));
    for (int i = 0; i < meridians; ++i)
        g.Meridians.push_back(TakeCurve(r, qv::gtlMeridian));
    // A lattice of crossings: small numbers with a few hostile ones, positions near a regular grid.
    const int nodes = r.Take<std::uint8_t>();
    for (int i = 0; i < nodes; ++i) {
        qv::TGratNode n;
        const std::int8_t row = r.Take<std::int8_t>(), col = r.Take<std::int8_t>();
        n.Row = row == -128 ? r.Take<std::int32_t>() : row;
        n.Col = col == -128 ? r.Take<std::int32_t>() : col;
        n.X = 100.0 * n.Col + r.Take<std::int8_t>() / 16.0;
        n.Y = 100.0 * n.Row + r.Take<std::int8_t>() / 16.0;
        if (flags & 8)
            n.X = r.Take<double>();
        n.Seen = (r.Take<std::uint8_t>() & 1) != 0;
        g.Nodes.push_back(n);
    }

    const qv::TGratCalibration c = qv::FitGraticule(g, labels, options);
    if (c.Data.NumCalQuads < 0 || c.Data.NumCalQuads > qv::MaxCalQuads || c.Data.NumCalLines < 0 ||
        c.Data.NumCalLines > qv::MaxCalLines)
        Violated("a graticule calibration beyond the record's limits");
    if (c.NodeOfQuad.size() != static_cast<std::size_t>(c.Data.NumCalQuads))
        Violated("quads without their crossing");
    if (c.Confident && !c.Ok)
        Violated("trusted but not made");
    if (c.Ok) {
        for (const double lat : {-30.0, 0.0, 45.5})
            for (const double lon : {-120.0, 10.0}) {
                double x = 0, y = 0;
                c.Fit.CalcPixelPosition(lat, lon, x, y);
                std::int32_t ix = 0, iy = 0;
                c.Fit.CalcPixelCoords(lat, lon, ix, iy);
            }
    }
    double v = 0.0;
    qv::GratLineValue(labels.Parallels, r.Take<std::int32_t>(), v);
    qv::ScaleGratGrid(g, r.Take<float>(), r.Take<float>(), r.Take<std::int32_t>(), r.Take<std::int32_t>());
}

}  // namespace qvfuzz
