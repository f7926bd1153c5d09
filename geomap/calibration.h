// TMapCalibration: the calibration state of one map — its TCalibData, calibration model, fitted
// coefficient sets and last removed points — with the operations that edit reference points, fit the
// six models and convert between map pixels and geographic positions, and the calibration file reader.
//
// The object needs three things from the map control that owns it: the size of the loaded image, a
// repaint request and an image loader. They are hooks (TCalibrationOwner); without them the object
// keeps its own image name and size (SetImageSize), reads image sizes from file headers and repaints
// nothing, which is how geotool, the atlas and the tests use it.
//
// Units: latitude and longitude in degrees; northing and easting (UTM model) in metres; pixels are
// integer columns and rows of the unmagnified image with the origin at its top-left corner.
#pragma once

#include <qvgeo/geomap/calib_types.h>
#include <qvgeo/support/matrix.h>

#include <array>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

// What the owning map control provides. Every member may be empty.
struct TCalibrationOwner {
    // Width and height of the loaded map image in pixels (0 x 0: no image).
    std::function<void(std::int32_t& Width, std::int32_t& Height)> ImageSize;
    // File name of the loaded map image; written into the calibration file by the map-level writers.
    std::function<std::string()> ImageName;
    // Loads the map image FName (the owner's SetMapImgName). An empty name drops the image: name and
    // size become empty without any request event.
    std::function<void(const std::string& FName)> LoadImage;
    // Asks the owner to repaint.
    std::function<void()> Repaint;
};

// The last removed graticule-line point, restorable by RestoreLastDeletedCalPoint.
struct TParaIpOops {
    TGratLineKind LineKind = gtlMeridian;
    double LineValue = 0.0;
    std::int32_t X = 0;
    std::int32_t Y = 0;
};

// Coefficients of a function of two variables u, v: c[0] + c[1]·u + c[2]·v.
using TLinearPars = std::array<double, 3>;
// Coefficients of c[0] + c[1]·u + c[2]·v + c[3]·u² + c[4]·u·v + c[5]·v².
using TQuadraticPars = std::array<double, 6>;

// Copying an object copies its owner hooks as well, which still point at the old owner: a map control
// copies calibration state between maps with AssignCalibration instead.
class TMapCalibration {
public:
    TMapCalibration();

    // Copies the calibration state of Source (model, data, coefficients, removed points, image name and
    // size of an owner-less object); the name and the owner hooks stay as they are.
    void AssignCalibration(const TMapCalibration& Source);

    // ---- component identity and owner ----
    const std::string& Name() const { return FName; }
    void SetName(std::string Value) { FName = std::move(Value); }
    void SetOwner(TCalibrationOwner Owner) { FOwner = std::move(Owner); }
    const TCalibrationOwner& Owner() const { return FOwner; }

    // Image size and name: from the owner's hooks when set, else the object's own.
    void ImageSize(std::int32_t& Width, std::int32_t& Height) const;
    std::string ImageName() const;
    // The own image size (used without an ImageSize hook). Negative values count as 0.
    void SetImageSize(std::int32_t Width, std::int32_t Height);
    // Through the LoadImage hook, or without one: FName becomes the image name; when the file's header
    // gives a size (BMP, JPEG) that becomes the image size; a missing file empties name and size.
    void SetMapImgName(const std::string& FName);

    // ---- calibration data and points ----
    TCalibModel CalibModel() const { return FCalibModel; }
    void SetCalibModel(TCalibModel Value);  // stores, then RecalcCalibration; points are kept as they are
    const TCalibData& CalibData() const { return FCalibData; }
    // For callers that change the record directly; they run RecalcCalibration afterwards.
    TCalibData& CalibData() { return FCalibData; }
    // Takes over a record read elsewhere (ParseCalibData) and fits Model to it like the file reader does:
    // RecalcGratMat and the model's fit; Corners and Resolution keep the record's values. No repaint.
    bool LoadCalibData(const TCalibData& Data, TCalibModel Model);

    const std::string& MapCaption() const { return FCalibData.Caption; }
    void SetMapCaption(std::string Value) { FCalibData.Caption = std::move(Value); }

    std::int32_t UTMZone() const { return FCalibData.UTMZone; }
    void SetUTMZone(std::int32_t Value);  // 1..60; other values are ignored
    THemisphere UTMHemisphere() const { return FCalibData.UTMSouth ? hemiSouth : hemiNorth; }
    void SetUTMHemisphere(THemisphere Value) { FCalibData.UTMSouth = Value == hemiSouth; }

    // Graticule-line point (parabolic model only). Returns false always, whatever happened.
    bool AddCalibPoint(TGratLineKind LineKind, double LineValue, std::int32_t x, std::int32_t y);
    // Geographic quad (biquadratic, conic, Miller, equirect). False when the 200 quads are full.
    bool AddCalibPoint(double Lat, double Long, std::int32_t x, std::int32_t y);
    // UTM quad (UTM model only); Zone and Hemisphere must equal the map's UTMZone and UTMHemisphere.
    bool AddCalibPoint(double Northing, double Easting, std::int32_t Zone, THemisphere Hemisphere,
                       std::int32_t x, std::int32_t y);
    // Removes the point (x, y) from the line; a pixel not on the line removes the line's last point.
    // Returns false always.
    bool RemoveCalibPoint(TGratLineKind LineKind, double LineValue, std::int32_t x, std::int32_t y);
    // Removes the reference point nearest to (x, y), with no distance limit; true when one was removed.
    bool RemoveCalibPoint(std::int32_t x, std::int32_t y);
    void RestoreLastDeletedCalPoint();
    void ClearCalibData();
    // ClearCalibData, then model cmUndefined, image name and caption emptied, the image dropped.
    void Clear();
    // RecalcGratMat, the model's fit, CalcExtentsAndResolution, repaint.
    void RecalcCalibration();
    // Multiplies the pixel coordinates of every graticule-line point and quad by Factor (rounded half to
    // even, saturated to 32 bits), then RecalcCalibration: what resampling the map image by Factor needs.
    void ScaleCalibPoints(double Factor);

    // ---- fitting (calibration_fit.cpp) ----
    bool RecalcGratMat();
    void CalcEquiRectCalibration();
    void CalcBiquadraticCalibration();
    void CalcMillerCylCalibration();
    void CalcConicCalibration();
    // RMS disagreement in pixels between measured quad pixels and CalcPixelCoords of their positions,
    // per axis (0 for models without quads).
    void CalibQuality(double& QualX, double& QualY) const;

    // ---- transforms (calib_transforms.cpp) ----
    double CalcLatitude(std::int32_t x, std::int32_t y, bool& Valid) const;
    double CalcLatitude(TPoint P, bool& Valid) const { return CalcLatitude(P.X, P.Y, Valid); }
    double CalcLongitude(std::int32_t x, std::int32_t y, bool& Valid) const;
    double CalcLongitude(TPoint P, bool& Valid) const { return CalcLongitude(P.X, P.Y, Valid); }
    // Pixel of a position, rounded half to even. False on failure (and, beyond the documented cases,
    // when the pixel is not finite or outside the 32-bit range; x and y are then left unchanged).
    bool CalcPixelCoords(double Lat, double Long, std::int32_t& x, std::int32_t& y) const;
    bool CalcPixelCoordsUTM(double Northing, double Easting, std::int32_t& x, std::int32_t& y) const;
    std::int32_t CalcUTMyFromNorthingX(double Northing, std::int32_t x) const;
    std::int32_t CalcUTMxFromEastingY(double Easting, std::int32_t y) const;
    void CalcExtentsAndResolution();
    bool IsPositionWithinMap(double Lat, double Long) const;

    // ---- calibration file (calibration_file.cpp) ----
    // Runs CalcExtentsAndResolution, takes the loaded image's name as MapFName, then writes the
    // calibration with WriteRawCalDataToOpenXMLFile.
    void WriteCalDataToOpenXMLFile(std::ostream& F, bool WithHeader, std::string_view Id);
    // Creates or overwrites FName with the header variant; raises EXELGeoMapError when it cannot.
    void SaveCalDataAsXML(const std::string& FName, std::string_view Id);
    // The stream variant: header always, resolution always, calquads even when empty, and no utmzone,
    // utmsouth or ellipsoid elements.
    void SaveCalDataAsXML(std::ostream& Stream, std::string_view Id);
    // Reads the calibration Id (case-insensitive; empty: the first one) into this object. The result is
    // that of RecalcGratMat: true only for a usable parabolic calibration. False when no header matches.
    bool ReadCalDataFromOpenXMLFile(std::istream& F, std::string_view Id);
    bool LoadCalDataFromXML(std::istream& Stream, std::string_view Id) { return ReadCalDataFromOpenXMLFile(Stream, Id); }
    // False without error when the file cannot be opened.
    bool LoadCalDataFromXML(const std::string& FName, std::string_view Id);
    // If the file exists, remember it and load its first calibration; otherwise drop the image. The name
    // is kept even when loading raises.
    void SetCalDatName(const std::string& FName);
    const std::string& CalDatName() const { return FCalDatName; }

    // ---- fitted state, read-only ----
    const TMatrix& GratMat() const { return FGratMat; }
    const std::array<TLinearPars, 2>& EquRectSPPL() const { return FEquRectSPPL; }     // [0] x, [1] y
    const std::array<TLinearPars, 2>& EquRectPLSP() const { return FEquRectPLSP; }     // [0] lat, [1] long
    const std::array<TQuadraticPars, 2>& CalParsPLSP() const { return FCalParsPLSP; }  // [0] lat, [1] long
    const std::array<TQuadraticPars, 2>& CalParsSPPL() const { return FCalParsSPPL; }  // [0] x, [1] y
    // y-slope, y-offset, x-slope, x-offset
    const std::array<double, 4>& MillercylPar() const { return FMillercylPar; }
    // apex x, apex y (pixels), latitude slope, latitude offset, longitude slope, longitude offset
    const std::array<double, 6>& ConicPars() const { return FConicPars; }
    bool CanRestoreParaIp() const { return FRestoreParaIpOK; }
    bool CanRestoreBiQuad() const { return FRestoreBiQuadOK; }
    const TParaIpOops& ParaIpOops() const { return FParaIpOops; }
    const TCalQuad& BiQuadOops() const { return FBiQuadOops; }

    void RequestRepaint() const;
    // "Component \"<Name>\": <Text>" as an EXELGeoMapError.
    [[noreturn]] void RaiseComponentError(std::string_view Text) const;

private:
    void RunModelFit();
    void Refit(bool WithGratMat);
    void ZeroLinearAndQuadraticSets();
    double ParabolicLatitude(std::int32_t x, std::int32_t y, bool& Valid) const;
    double ParabolicLongitude(std::int32_t x, std::int32_t y, bool& Valid) const;
    bool ParabolicPixel(double Lat, double Long, std::int32_t& x, std::int32_t& y) const;
    bool ConicPixel(double Lat, double Long, std::int32_t& x, std::int32_t& y) const;
    void UTMGeo(std::int32_t x, std::int32_t y, double& Lat, double& Long) const;
    void SyncGratRows();

    std::string FName;
    TCalibrationOwner FOwner;
    std::string FOwnImageName;
    std::int32_t FOwnImageWidth = 0;
    std::int32_t FOwnImageHeight = 0;
    std::string FCalDatName;

    TCalibModel FCalibModel = cmUndefined;
    TCalibData FCalibData;
    TMatrix FGratMat;
    // FGratMat's rows in plain form for the per-point parabolic transforms (rendering calls them for
    // every graticule point); rebuilt by SyncGratRows wherever FGratMat changes.
    struct TGratRow {
        double Kind, Value, K0, K1, K2;  // columns 1..5
    };
    std::vector<TGratRow> FGratRows;
    int FGratParallels = 0, FGratMeridians = 0;  // rows whose kind rounds to 1 and to 0
    std::array<TLinearPars, 2> FEquRectSPPL{};
    std::array<TLinearPars, 2> FEquRectPLSP{};
    std::array<TQuadraticPars, 2> FCalParsPLSP{};
    std::array<TQuadraticPars, 2> FCalParsSPPL{};
    std::array<double, 4> FMillercylPar{};
    std::array<double, 6> FConicPars{};
    TParaIpOops FParaIpOops;
    bool FRestoreParaIpOK = false;
    TCalQuad FBiQuadOops;
    bool FRestoreBiQuadOK = false;
};

// Whether (Lat, Long) lies strictly inside the convex quadrilateral of the corners (TCorners order).
// Points on an edge are outside.
bool PositionInMap(double Lat, double Long, const TCornerArray& Corners);

}  // namespace qv
