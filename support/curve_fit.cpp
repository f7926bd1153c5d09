#include <qvgeo/support/curve_fit.h>

#include <algorithm>
#include <cmath>
#include <set>

namespace qv {

namespace {

double Mean(const std::vector<double>& v)
{
    double s = 0.0;
    for (const double x : v)
        s += x;
    return v.empty() ? 0.0 : s / static_cast<double>(v.size());
}

// R² = 1 - SSres/SStot; a constant y reproduced exactly counts as a perfect fit.
double Determination(double ssRes, double ssTot)
{
    if (ssTot <= 0.0)
        return ssRes <= 0.0 ? 1.0 : 0.0;
    return std::clamp(1.0 - ssRes / ssTot, 0.0, 1.0);
}

}  // namespace

void TCurveFit::Init()
{
    FX.clear();
    FY.clear();
}

void TCurveFit::EnterStatValue(double x, double y)
{
    FX.push_back(x);
    FY.push_back(y);
}

bool TCurveFit::CalcLinFit(double& k, double& d, double& FitQuality) const
{
    const std::size_t n = FX.size();
    const double mx = Mean(FX), my = Mean(FY);
    double sxx = 0.0, sxy = 0.0, syy = 0.0;
    for (std::size_t i = 0; i < n; ++i) {
        const double dx = FX[i] - mx, dy = FY[i] - my;
        sxx += dx * dx;
        sxy += dx * dy;
        syy += dy * dy;
    }
    if (n < 2 || sxx == 0.0) {
        k = 0.0;
        d = my;
        FitQuality = 0.0;
        return false;
    }
    k = sxy / sxx;
    d = my - k * mx;
    double ssRes = 0.0;
    for (std::size_t i = 0; i < n; ++i) {
        const double r = FY[i] - (k * FX[i] + d);
        ssRes += r * r;
    }
    FitQuality = Determination(ssRes, syy);
    return true;
}

bool TCurveFit::CalcParabolFit(double& k0, double& k1, double& k2, double& FitQuality) const
{
    const std::size_t n = FX.size();
    const std::set<double> distinct(FX.begin(), FX.end());
    auto lineFallback = [&] {
        CalcLinFit(k1, k0, FitQuality);
        k2 = 0.0;
        return false;
    };
    if (distinct.size() < 3)
        return lineFallback();

    // Fit in t = (x - mx) / s with |t| <= 1: the normal equations of raw pixel coordinates (x⁴ ~ 1e13)
    // would lose most of their digits.
    const double mx = Mean(FX);
    double s = 0.0;
    for (const double x : FX)
        s = std::max(s, std::fabs(x - mx));
    double St[5] = {0, 0, 0, 0, 0}, Sy[3] = {0, 0, 0};
    for (std::size_t i = 0; i < n; ++i) {
        const double t = (FX[i] - mx) / s;
        double p = 1.0;
        for (int k = 0; k < 5; ++k) {
            St[k] += p;
            if (k < 3)
                Sy[k] += p * FY[i];
            p *= t;
        }
    }
    double m[3][4] = {{St[0], St[1], St[2], Sy[0]}, {St[1], St[2], St[3], Sy[1]}, {St[2], St[3], St[4], Sy[2]}};
    for (int col = 0; col < 3; ++col) {
        int pivot = col;
        for (int r = col + 1; r < 3; ++r)
            if (std::fabs(m[r][col]) > std::fabs(m[pivot][col]))
                pivot = r;
        if (std::fabs(m[pivot][col]) <= 1e-12 * St[0])
            return lineFallback();
        for (int c = 0; c < 4; ++c)
            std::swap(m[col][c], m[pivot][c]);
        for (int r = 0; r < 3; ++r) {
            if (r == col)
                continue;
            const double f = m[r][col] / m[col][col];
            for (int c = col; c < 4; ++c)
                m[r][c] -= f * m[col][c];
        }
    }
    const double a = m[0][3] / m[0][0], b = m[1][3] / m[1][1], c = m[2][3] / m[2][2];
    k2 = c / (s * s);
    const double b1 = b / s;
    k1 = b1 - 2.0 * k2 * mx;
    k0 = a - b1 * mx + k2 * mx * mx;

    const double my = Mean(FY);
    double ssRes = 0.0, ssTot = 0.0;
    for (std::size_t i = 0; i < n; ++i) {
        const double t = (FX[i] - mx) / s;
        const double r = FY[i] - (a + b * t + c * t * t);
        ssRes += r * r;
        ssTot += (FY[i] - my) * (FY[i] - my);
    }
    FitQuality = Determination(ssRes, ssTot);
    return true;
}

void TCurveFit::CalcStatistics(int& NumData, double& MeanX, double& MeanY, double& StdDevX, double& StdDevY,
                               double& Correlation, double& RmsDiff, double& MeanDiff) const
{
    const std::size_t n = FX.size();
    NumData = static_cast<int>(n);
    MeanX = Mean(FX);
    MeanY = Mean(FY);
    StdDevX = StdDevY = Correlation = MeanDiff = RmsDiff = 0.0;
    if (n == 0)
        return;
    double sxx = 0.0, syy = 0.0, sxy = 0.0, sd = 0.0, sdd = 0.0;
    for (std::size_t i = 0; i < n; ++i) {
        const double dx = FX[i] - MeanX, dy = FY[i] - MeanY, diff = FY[i] - FX[i];
        sxx += dx * dx;
        syy += dy * dy;
        sxy += dx * dy;
        sd += diff;
        sdd += diff * diff;
    }
    const double dn = static_cast<double>(n);
    if (n > 1) {
        StdDevX = std::sqrt(sxx / (dn - 1.0));
        StdDevY = std::sqrt(syy / (dn - 1.0));
    }
    if (sxx > 0.0 && syy > 0.0)
        Correlation = sxy / std::sqrt(sxx * syy);
    MeanDiff = sd / dn;
    RmsDiff = std::sqrt(sdd / dn);
}

}  // namespace qv
