// TCurveFit: an accumulator of (x, y) pairs with a least-squares line, a least-squares parabola and
// descriptive statistics. Sums are formed about the data's mean, so pixel coordinates in the thousands
// fit as precisely as small numbers.
#pragma once

#include <vector>

namespace qv {

class TCurveFit {
public:
    void Init();                         // empties the accumulator
    void EnterStatValue(double x, double y);
    int NumData() const { return static_cast<int>(FX.size()); }

    // Least-squares line y = k*x + d (slope first). FitQuality is the coefficient of determination R²
    // (1 for a perfect fit; 1 as well when all y are equal and the line reproduces them). With fewer
    // than 2 pairs or all x equal the line is undetermined: k = 0, d = mean of y (0 without pairs),
    // FitQuality = 0 and the result is false.
    bool CalcLinFit(double& k, double& d, double& FitQuality) const;

    // Least-squares parabola y = k0 + k1*x + k2*x². FitQuality is R² as above. With fewer than 3
    // distinct x values the parabola is undetermined: the coefficients are those of the line through
    // the pairs (k2 = 0), FitQuality as for that line, and the result is false.
    bool CalcParabolFit(double& k0, double& k1, double& k2, double& FitQuality) const;

    // Statistics of the entered pairs, all 0 without pairs, in this order of the eight outputs:
    //   1 NumData; 2 MeanX, 3 MeanY; 4 StdDevX, 5 StdDevY (sample standard deviations, n-1; 0 for a
    //   single pair); 6 Correlation (Pearson's r; 0 when either deviation is 0);
    //   7 RmsDiff = sqrt(mean of (y - x)²), the disagreement between x and y, 0 when every pair is equal
    //     (the calibration quality reports this seventh output);
    //   8 MeanDiff = mean of (y - x), the systematic part of that disagreement.
    void CalcStatistics(int& NumData, double& MeanX, double& MeanY, double& StdDevX, double& StdDevY,
                        double& Correlation, double& RmsDiff, double& MeanDiff) const;

private:
    std::vector<double> FX, FY;
};

}  // namespace qv
