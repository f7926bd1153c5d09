// TSLine: an infinite straight line in the plane and its clipping to an axis-parallel box.
#pragma once

namespace qv {

class TSLine {
public:
    // The line through (x1, y1) and (x2, y2). Two equal points define no line: the result is false and
    // ClipBox then reports a miss.
    bool LineFrom2Points(double x1, double y1, double x2, double y2);

    // The part of the line inside the closed box spanned by the limits (given in either order): its end
    // points in (X1, Y1) and (X2, Y2), ordered along the line's direction from the first defining point
    // to the second. A line that only touches a corner gives two equal end points. A line that misses
    // the box (or an undefined line) returns false and leaves the outputs untouched.
    bool ClipBox(double Left, double Top, double Right, double Bottom,
                 double& X1, double& Y1, double& X2, double& Y2) const;

    bool Defined() const { return FDefined; }

private:
    double FX0 = 0, FY0 = 0, FDX = 0, FDY = 0;  // point and direction
    bool FDefined = false;
};

}  // namespace qv
