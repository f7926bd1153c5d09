// Calibrated empty maps on disk for the map and atlas tests.
#pragma once

#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/mapview/empty_map.h>
#include <qvgeo/support/text.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace qvtest {

// An empty map of the rectangle written as Dir/Base.xml + Dir/Base.bmp, its calibration rewritten with
// caption Base, Resolution (0: the computed one kept) and the image named as ImageRef (empty: the bare
// name of the image written beside it). Returns the calibration file.
inline std::string WriteCalibratedMap(const std::filesystem::path& Dir, const std::string& Base, double LatMin,
                                      double LongMin, double LatMax, double LongMax, int W, int H,
                                      double Resolution = 0, const std::string& ImageRef = "")
{
    std::filesystem::create_directories(Dir);
    qv::TEmptyMapRequest r;
    r.LatMin = LatMin, r.LongMin = LongMin, r.LatMax = LatMax, r.LongMax = LongMax, r.Width = W, r.Height = H;
    const qv::TEmptyMapFiles f = qv::WriteEmptyMapFiles((Dir / Base).string(), r);
    qv::TCalibData cal;
    qv::TCalibModel model = qv::cmUndefined;
    EXPECT_TRUE(qv::ParseCalibData(f.CalibFile, "", cal, model));
    if (Resolution != 0)
        cal.Resolution = Resolution;
    cal.Caption = Base, cal.MapFName = ImageRef.empty() ? qv::StripPath(f.ImageFile) : ImageRef;
    std::ofstream out(f.CalibFile, std::ios::trunc);
    qv::WriteRawCalDataToOpenXMLFile(out, true, "m", cal, model);
    return f.CalibFile;
}

}  // namespace qvtest
