// geotool ellipsoids: the ellipsoid catalogue.
#include "command.h"
#include "line_io.h"

#include <qvgeo/geobasics/ellipsoids.h>

#include <charconv>

namespace {

// Shortest text that reads back as the same double.
void Shortest(geotool::RecordWriter& out, double v)
{
    out.Text(qv::ShortestText(v));
}

int RunEllipsoids(geotool::Args& args)
{
    if (!args.Positional().empty())
        throw geotool::UsageError{"no arguments expected"};
    geotool::RecordWriter out(stdout);
    for (int i = 0; i < qv::NumGeoEllipsoids; ++i) {
        const auto e = static_cast<qv::TGeoEllipsoid>(i);
        out.Int(i).Char('\t').Text(qv::GeoEllipsoidId[e]).Char('\t').Text(qv::GeoEllipsoidName[e]).Char('\t');
        Shortest(out, qv::GeoEllipsoidData[e].a);
        out.Char('\t');
        Shortest(out, qv::GeoEllipsoidData[e].b);
        out.Char('\t');
        Shortest(out, qv::RecipFlattening(e));
        out.EndLine();
    }
    return 0;
}

const geotool::Registrar reg({"ellipsoids", "list the 61 reference ellipsoids",
                              "usage: geotool ellipsoids\n\n"
                              "One line per ellipsoid, fields separated by a tab: ordinal, identifier, name,\n"
                              "semi-major axis a (m), semi-minor axis b (m), reciprocal flattening 1/f (0 for\n"
                              "a sphere). Numbers are printed with the fewest digits that read back exactly.",
                              RunEllipsoids});

}  // namespace
