#include <qvgeo/support/math_services.h>

#include <cmath>
#include <random>
#include <utility>

namespace qv {

thread_local double ProcStat = 0.0;
thread_local std::function<void(double)> MathFeedBackProc;
thread_local bool AbortMathProc = false;

bool MathProgressStep(TMathProgress* Progress)
{
    if (Progress) {
        // Only the computing thread writes Stat, so load-then-store loses no step.
        const double v = Progress->Stat.load(std::memory_order_relaxed) + 1.0;
        Progress->Stat.store(v, std::memory_order_relaxed);
        if (Progress->FeedBack)
            Progress->FeedBack(v);
        return !Progress->Abort.load(std::memory_order_relaxed);
    }
    ProcStat += 1.0;
    if (MathFeedBackProc)
        MathFeedBackProc(ProcStat);
    return !AbortMathProc;
}

double Round125(double x)
{
    if (x == 0.0 || !std::isfinite(x))
        return x;
    const double a = std::fabs(x);
    double power = std::pow(10.0, std::floor(std::log10(a)));
    // log10 of values just below a power of ten can round up; keep the mantissa in [1, 10).
    if (a / power >= 10.0)
        power *= 10.0;
    else if (a / power < 1.0)
        power /= 10.0;
    const double m = a / power;
    double r;
    if (m < 1.4142135623730951)
        r = 1.0;
    else if (m < 3.1622776601683795)
        r = 2.0;
    else if (m < 7.0710678118654755)
        r = 5.0;
    else
        r = 10.0;
    return std::copysign(r * power, x);
}

double SphereGreatCircleDist(double Lat1, double Long1, double Lat2, double Long2, double Radius)
{
    // The atan2 form of the central angle: well conditioned everywhere, where the haversine form loses
    // about a decimetre of an Earth-sized distance near antipodal points.
    constexpr double rad = 3.141592653589793 / 180.0;
    const double p1 = Lat1 * rad, p2 = Lat2 * rad, dl = (Long2 - Long1) * rad;
    const double c1 = std::cos(p1), s1 = std::sin(p1), c2 = std::cos(p2), s2 = std::sin(p2);
    const double cdl = std::cos(dl), sdl = std::sin(dl);
    const double x = c2 * sdl;
    const double y = c1 * s2 - s1 * c2 * cdl;
    return Radius * std::atan2(std::sqrt(x * x + y * y), s1 * s2 + c1 * c2 * cdl);
}

namespace {
std::mt19937_64& RandomEngine()
{
    static std::mt19937_64 engine(0x5EED5EEDULL);
    return engine;
}
}  // namespace

double BRandom(double x)
{
    // 53 random bits give a uniform value in [0, 1).
    const double u = static_cast<double>(RandomEngine()() >> 11) * 0x1.0p-53;
    return u * x;
}

void BRandomize(std::uint64_t Seed) { RandomEngine().seed(Seed); }

void ExChange(int& a, int& b) noexcept { std::swap(a, b); }
void ExChange(double& a, double& b) noexcept { std::swap(a, b); }

}  // namespace qv
