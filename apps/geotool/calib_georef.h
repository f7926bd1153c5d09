// geotool calib import of the formats read through GDAL: a georeferenced raster, a world file with its
// coordinate system, the `.map` calibration format and `.points` control-point lists. cmd_calib.cpp
// hands these formats over when geotool is built with GDAL (QVGEO_WITH_GDAL).
#pragma once

#include "command.h"

#include <string>

namespace geotool {

// calib import --format geotiff|worldfile|map|points; the remaining options are read here.
int RunGeoRefImport(Args& args, const std::string& format);

}  // namespace geotool
