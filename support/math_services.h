// Small numeric services: floating-point limits, 1-2-5 rounding, great-circle distance, a random
// source for rendering, exchange helpers, and the global progress/abort hook of long computations.
#pragma once

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
extern double ProcStat;
extern std::function<void(double)> MathFeedBackProc;
extern bool AbortMathProc;

// One outer step of a long computation as described above; false means "abort requested".
bool MathProgressStep();

}  // namespace qv
