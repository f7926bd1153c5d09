// Links against the installed qvgeo::core and checks a value from each layer that is installed.
#include <geobasics/ellipsoids.h>
#include <support/errors.h>

#include <cmath>
#include <cstdio>

int main()
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
    return 0;
}
