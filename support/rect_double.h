// TRectDouble: a rectangle of four doubles in the base library's order (left, top, right, bottom).
// In geographic use Left and Right are longitudes and Top and Bottom latitudes (degrees), Top north of
// Bottom.
#pragma once

namespace qv {

struct TRectDouble {
    double Left = 0;
    double Top = 0;
    double Right = 0;
    double Bottom = 0;
};

}  // namespace qv
