// Small numeric services: floating-point limits, 1-2-5 rounding, great-circle distance, a random
// source for rendering, exchange helpers, and the progress/abort hook of long computations.
#pragma once

#include <atomic>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>

namespace qv {

inline constexpr double uc_MaxDouble = std::numeric_limits<double>::max();
// The smallest positive double (4.9406564584124654e-324), a subnormal: not numeric_limits::min(), which
// is the smallest normalised one.
inline constexpr double uc_MinDouble = std::numeric_limits<double>::denorm_min();

// x rounded to the nearest value of the series 1, 2, 5 times a power of ten, nearest on a logarithmic
// scale (the switch points are sqrt(2), sqrt(10) and sqrt(50) times the power of ten). The sign is kept;
// 0 and non-finite values are returned unchanged.
double Round125(double x);

// v rounded to the nearest integer, ties to even (the default rounding mode), saturated to the 32-bit
// range; NaN gives 0. The one rounding of computed pixels: converting an out-of-range double to an integer
// would be undefined, and a view far outside its map must still give a defined pixel.
inline std::int32_t RoundSaturated(double v)
{
    if (std::isnan(v))
        return 0;
    const double r = std::nearbyint(v);
    if (r >= 2147483647.0)
        return INT32_MAX;
    if (r <= -2147483648.0)
        return INT32_MIN;
    return static_cast<std::int32_t>(r);
}

// Great-circle distance between two positions (degrees) on a sphere of the given radius, in the unit of
// the radius. Accurate to rounding for coincident, nearby and antipodal points alike.
double SphereGreatCircleDist(double Lat1, double Long1, double Lat2, double Long2, double Radius);

// A uniformly distributed random value in [0, x) (in (x, 0] for negative x). The sequence is
// reproducible: it starts from a fixed seed, and BRandomize restarts it.
double BRandom(double x);
void BRandomize(std::uint64_t Seed);

void ExChange(int& a, int& b) noexcept;
void ExChange(double& a, double& b) noexcept;

// Progress and abort hook of long computations. At each outer step a computation adds 1 to ProcStat,
// calls MathFeedBackProc (if set) with the new ProcStat, and stops with failure if AbortMathProc is
// true. The library never resets ProcStat or AbortMathProc; the application does.
//
// The three are per thread: a fit on one thread neither counts nor sees the abort of a fit on another.
// To watch or stop a computation from another thread (a GUI aborting a worker's fit), pass it a
// TMathProgress instead; the computations that take one fall back to the calling thread's globals when
// given none.
extern thread_local double ProcStat;
extern thread_local std::function<void(double)> MathFeedBackProc;
extern thread_local bool AbortMathProc;

// A progress counter, callback and abort flag owned by one computation. FeedBack runs on the
// computing thread; Abort may be set from any thread and is seen at the next outer step; Stat may be
// read from any thread.
struct TMathProgress {
    std::function<void(double)> FeedBack;
    std::atomic<bool> Abort{false};
    std::atomic<double> Stat{0.0};
};

// One outer step of a long computation as described above, counted in Progress or, when it is null, in
// the calling thread's globals; false means "abort requested".
bool MathProgressStep(TMathProgress* Progress = nullptr);

}  // namespace qv
