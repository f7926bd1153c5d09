// Links against the installed qvgeo::core, includes its headers the way users do (<qvgeo/...>) and checks
// a value from two layers; then runs the installed geotool, which must find its library by itself.
#include <qvgeo/geobasics/ellipsoids.h>
#include <qvgeo/support/errors.h>
#include <qvgeo/support/text.h>

#ifdef QVGEO_CONSUMER_WIDGETS
#include <qvgeo/platform/canvas.h>
#endif

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

int main(int argc, char** argv)
{
    const double rf = qv::RecipFlattening(qv::gelWGS84);
    if (std::fabs(rf - 298.2572235604902) > 1e-9) {
        std::fprintf(stderr, "unexpected 1/f %.13f\n", rf);
        return 1;
    }
    try {
        qv::EllipsoidMinAxFlat(6378137.0, -1.0);
        return 1;
    } catch (const qv::EXELGeoBasicsError& e) {
        std::printf("consumer ok: 1/f(WGS 84) = %.10f, error text \"%s\"\n", rf, e.what());
    }
#ifdef QVGEO_CONSUMER_WIDGETS
    // A line leaves out its end point, drawn without any QApplication (no text involved).
    qv::TBitmap bmp(4, 1);
    bmp.Canvas().MoveTo(0, 0);
    bmp.Canvas().LineTo(3, 0);
    if (bmp.Pixel(2, 0) != 0x000000 || bmp.Pixel(3, 0) != 0xFFFFFF) {
        std::fprintf(stderr, "unexpected TBitmap pixels\n");
        return 1;
    }
    std::printf("consumer ok: qvgeo::widgets linked\n");
#endif
    if (argc > 1) {
        // The installed tool, run with a clean library path: its run path must lead to libqvgeo_core.
        const std::string cmd = std::string("env -u LD_LIBRARY_PATH ") + argv[1] + " zone 48.2 16.3";
        if (std::system(cmd.c_str()) != 0) {
            std::fprintf(stderr, "installed geotool did not run: %s\n", cmd.c_str());
            return 1;
        }
    }
    return 0;
}
