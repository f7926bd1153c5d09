// The datum table itself, private to the geodesy sources; everyone else goes through GeoDatum().
#pragma once

#include <qvgeo/geobasics/datums.h>

#include <array>

namespace qv::detail {

// Index 0 holds datum number 1.
extern const std::array<TGeoDatum, NumGeoDatums> GeoDatumTable;

}  // namespace qv::detail
