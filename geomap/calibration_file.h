// The calibration file: a line-oriented XML-like text holding one or more calibrations (elements
// "geomap" told apart by their id). The free writer and the record reader ParseCalibData live here;
// the map-level readers and writers are members of TMapCalibration (calibration.h).
//
// The format is not general XML: the opening geomap tag stands on one line, every value list on one
// line, and nothing is escaped. Written files use "\n" line ends; readers accept "\r\n" as well.
#pragma once

#include <qvgeo/geomap/calib_types.h>

#include <iosfwd>
#include <string>
#include <string_view>

namespace qv {

// Writes one calibration to an open stream. Latitudes, longitudes and corner positions with exactly 5
// decimals, the resolution with 3 (only when positive), UTM zone and hemisphere only for zones 1..59,
// graticule-line values in the shortest general form with up to 15 digits and the decimal separator of
// the C library's current locale. Raises EXELGeoMapError for an ellipsoid outside the catalogue and
// when the stream fails.
void WriteRawCalDataToOpenXMLFile(std::ostream& F, bool WithHeader, std::string_view Id, const TCalibData& CalData,
                                  TCalibModel Model);

// Reads the calibration Id (compared case-insensitively; empty: the first) into CalData and Model,
// without fitting anything. Only NumCalLines is reset before reading; other fields keep their values
// unless the file sets them. Model becomes cmBiquadraticPn, or the model keyword's value (an unknown
// keyword gives cmUndefined). Graticule lines with fewer than 3 points are kept.
// True when a matching calibration was found; the file variant returns false when it cannot open FName.
// Raises EXELGeoMapError ("ParseCalibData: ...") for a bad graticule-line type, a point count that does
// not match its list, more than 25 lines, 10 points per line or 200 quads, and unknown ellipsoids.
bool ParseCalibData(const std::string& FName, std::string_view Id, TCalibData& CalData, TCalibModel& Model);
bool ParseCalibData(std::istream& Stream, std::string_view Id, TCalibData& CalData, TCalibModel& Model);

// The map image a calibration file names, looked for beside that file: the leaf of ImageName (any
// directory in it, also a Windows one, dropped) in CalFile's folder, matched case-insensitively when the
// exact name is missing there, since the reader lower-cases the name it finds and a case-sensitive file
// system keeps the original. The exact-case path when no file matches.
std::string FindImageBeside(const std::string& CalFile, const std::string& ImageName);

// The number formats of the file family. F5/F3: fixed point with 5/3 decimals, "." separator, never
// "-0.00000". G: shortest general form with up to 15 significant digits ("16.5", "48", "1E-5"), with the
// current C locale's decimal separator.
std::string FormatF5(double Value);
std::string FormatF3(double Value);
std::string FormatG(double Value);

}  // namespace qv
