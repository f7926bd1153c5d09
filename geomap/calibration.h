// TMapCalibration: the calibration state of one map — its TCalibData, last removed points and the current
// fit (TCalibFit: model, fitted coefficient sets, graticule rows) — with the operations that edit
// reference points, fit the six models and convert between map pixels and geographic positions, and the
// calibration file reader.
//
// After every edit the object builds a new fit and replaces the old one whole, so a copy of Fit() is a
// snapshot that later edits never change.
//
// Change flows one way. The owning map control pushes the loaded image's name and size down
// (SetImageName, SetImageSize); the object raises one "changed" notice (TChangeNotice, bits TCalibChange)
// to the listener its owner registers, once per operation, and never calls up for state. Without an owner
// the object keeps the image name and size it was given, reads image sizes from file headers
// (SetMapImgName), and notifies nobody: that is how geotool, the atlas and the tests use it.
//
// Units: latitude and longitude in degrees; northing and easting (UTM model) in metres; pixels are
// integer columns and rows of the unmagnified image with the origin at its top-left corner.
#pragma once

#include <qvgeo/geomap/calib_fit.h>
#include <qvgeo/geomap/calib_types.h>
#include <qvgeo/geomap/change_notice.h>
#include <qvgeo/support/matrix.h>

#include <array>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

namespace qv {

// The last removed graticule-line point, restorable by RestoreLastDeletedCalPoint.
struct TParaIpOops {
    TGratLineKind LineKind = gtlMeridian;
    double LineValue = 0.0;
    std::int32_t X = 0;
    std::int32_t Y = 0;
};

// What a change notice says changed; an operation that ends in a documented repaint notifies even when
// it changed nothing (a 201st quad refused), with the bits of what it worked on.
enum TCalibChange : unsigned {
    ccPoints = 1u << 0,   // graticule-line points, quads or the rest of the record (cleared, read, assigned)
    ccModel = 1u << 1,    // CalibModel
    ccFit = 1u << 2,      // the fit (coefficients, graticule rows), corners or resolution
    ccCaption = 1u << 3,  // MapCaption alone: the view shows no caption, so this one asks for no repaint
    ccUTMZone = 1u << 4,  // UTM zone or hemisphere (the fit's UTM transforms follow at once)
    ccImage = 1u << 5,    // the image name or size held by the object itself (SetMapImgName, Clear)
};

// Copying or assigning an object copies the calibration, never the change listener (see TChangeNotice).
class TMapCalibration {
public:
    TMapCalibration();

    // Copies the calibration state of Source (data, fit, removed points, calibration file name, image name
    // and size); the component name and the listener stay as they are. One notice of everything.
    void AssignCalibration(const TMapCalibration& Source);

    // The owner's listener of change notices (one; a new one replaces it, an empty one removes it).
    void SetChangeListener(TChangeNotice::TListener Listener) { FNotice.SetListener(std::move(Listener)); }
    bool HasChangeListener() const { return FNotice.HasListener(); }

    // Name used in error messages ("Component \"<name>\": ..."); the owning control passes its own.
    const std::string& ComponentName() const { return FComponentName; }
    void SetComponentName(std::string Value) { FComponentName = std::move(Value); }

    // The current fit. Copy it for a snapshot that outlives later edits; the reference itself sees each
    // new fit (it is assigned whole after every refit), so a reader on another thread must copy it on
    // this object's thread first.
    const TCalibFit& Fit() const { return FFit; }

    // The loaded image's size and name, as the owner pushed them (or as SetMapImgName found them).
    void ImageSize(std::int32_t& Width, std::int32_t& Height) const;
    const std::string& ImageName() const { return FEdit.OwnImageName; }
    // Pushed by the owner when its image changes; negative values count as 0. No notice and no refit:
    // the size only bounds the conic fit's apex search, which the next refit reads.
    void SetImageSize(std::int32_t Width, std::int32_t Height);
    void SetImageName(std::string Name) { FEdit.OwnImageName = std::move(Name); }
    // For an object without a map control: FName becomes the image name; when the file's header gives a
    // size (BMP, JPEG) that becomes the image size; a missing file empties name and size. Notifies ccImage.
    // A map control loads the picture itself and pushes name and size.
    void SetMapImgName(const std::string& FName);

    // ---- calibration data and points ----
    TCalibModel CalibModel() const { return FFit.Model(); }
    void SetCalibModel(TCalibModel Value);  // stores, then RecalcCalibration; points are kept as they are
    // The same with the model's fit reporting to Progress (see TCalibFit::FitModel). When Progress->Abort
    // is set before the fit returns, the previous model and fit stay and the result is false.
    bool SetCalibModel(TCalibModel Value, TMathProgress* Progress);
    const TCalibData& CalibData() const { return FCalibData; }
    // For callers that change the record directly; they run RecalcCalibration afterwards (the fit,
    // including the UTM zone, hemisphere and ellipsoid of its transforms, is rebuilt only then).
    TCalibData& CalibData() { return FCalibData; }
    // Takes over a record read elsewhere (ParseCalibData) and fits Model to it like the file reader does:
    // RecalcGratMat and the model's fit; Corners and Resolution keep the record's values. No repaint.
    bool LoadCalibData(const TCalibData& Data, TCalibModel Model);

    const std::string& MapCaption() const { return FCalibData.Caption; }
    void SetMapCaption(std::string Value);  // notifies ccCaption when the caption changes

    std::int32_t UTMZone() const { return FCalibData.UTMZone; }
    // Zone and hemisphere take effect in the current fit's UTM transforms at once.
    void SetUTMZone(std::int32_t Value);  // 1..60; other values are ignored
    THemisphere UTMHemisphere() const { return FCalibData.UTMSouth ? hemiSouth : hemiNorth; }
    void SetUTMHemisphere(THemisphere Value);

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

    // ---- fitting: each builds a new fit from the current one and FCalibData, then replaces it ----
    bool RecalcGratMat();
    void CalcEquiRectCalibration();
    void CalcBiquadraticCalibration();
    void CalcMillerCylCalibration();
    void CalcConicCalibration();
    // RMS disagreement in pixels between measured quad pixels and CalcPixelCoords of their positions,
    // per axis (0 for models without quads).
    void CalibQuality(double& QualX, double& QualY) const;

    // ---- transforms of the current fit (TCalibFit's, which documents them) ----
    // Latitude and longitude of a pixel in one conversion; true when both are valid.
    bool CalcPosition(TPoint P, TCoords& Position) const { return FFit.CalcPosition(P, Position); }
    double CalcLatitude(std::int32_t x, std::int32_t y, bool& Valid) const { return FFit.CalcLatitude(x, y, Valid); }
    double CalcLatitude(TPoint P, bool& Valid) const { return FFit.CalcLatitude(P.X, P.Y, Valid); }
    double CalcLongitude(std::int32_t x, std::int32_t y, bool& Valid) const { return FFit.CalcLongitude(x, y, Valid); }
    double CalcLongitude(TPoint P, bool& Valid) const { return FFit.CalcLongitude(P.X, P.Y, Valid); }
    // Pixel of a position, rounded half to even. False on failure (and, beyond the documented cases,
    // when the pixel is not finite or outside the 32-bit range; x and y are then left unchanged).
    bool CalcPixelCoords(double Lat, double Long, std::int32_t& x, std::int32_t& y) const
    {
        return FFit.CalcPixelCoords(Lat, Long, x, y);
    }
    bool CalcPixelCoordsUTM(double Northing, double Easting, std::int32_t& x, std::int32_t& y) const
    {
        return FFit.CalcPixelCoordsUTM(Northing, Easting, x, y);
    }
    std::int32_t CalcUTMyFromNorthingX(double Northing, std::int32_t x) const { return FFit.CalcUTMyFromNorthingX(Northing, x); }
    std::int32_t CalcUTMxFromEastingY(double Easting, std::int32_t y) const { return FFit.CalcUTMxFromEastingY(Easting, y); }
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
    // Reads the calibration Id (case-insensitive; empty: the first) into this object. The result is
    // that of RecalcGratMat: true only for a usable parabolic calibration. False when no header matches.
    // The image the file names is taken by SetMapImgName, between the graticule and the model's fit.
    bool ReadCalDataFromOpenXMLFile(std::istream& F, std::string_view Id);
    bool LoadCalDataFromXML(std::istream& Stream, std::string_view Id) { return ReadCalDataFromOpenXMLFile(Stream, Id); }
    // False without error when the file cannot be opened.
    bool LoadCalDataFromXML(const std::string& FName, std::string_view Id);
    // If the file exists, remember it and load its first calibration; otherwise drop the image. The name
    // is kept even when loading raises.
    void SetCalDatName(const std::string& FName);

    // The reader in two steps, for an owner that loads the image itself between them: ReadCalibrationRecord
    // reads the record and fits the graticule (Found: a header matched; GratOK: RecalcGratMat's result;
    // the image name is CalibData().MapFName), FinishReading runs the model's fit with the image size
    // pushed meanwhile. The owner holds a Batch() over both so that the read notifies once.
    struct TReadResult {
        bool Found = false;
        bool GratOK = false;
    };
    TReadResult ReadCalibrationRecord(std::istream& F, std::string_view Id);
    void FinishReading();
    // Remembers FName as the calibration file (SetCalDatName's first step, without the load).
    void SetCalDatNameOnly(std::string FName) { FEdit.CalDatName = std::move(FName); }
    // Gathers this object's notices over a scope into one.
    [[nodiscard]] TChangeNotice::TBatch Batch() { return TChangeNotice::TBatch(FNotice); }
    const std::string& CalDatName() const { return FEdit.CalDatName; }

    // ---- fitted state, read-only (the current fit's) ----
    const TMatrix& GratMat() const { return FFit.GratMat(); }
    const std::array<TLinearPars, 2>& EquRectSPPL() const { return FFit.EquRectSPPL(); }
    const std::array<TLinearPars, 2>& EquRectPLSP() const { return FFit.EquRectPLSP(); }
    const std::array<TQuadraticPars, 2>& CalParsPLSP() const { return FFit.CalParsPLSP(); }
    const std::array<TQuadraticPars, 2>& CalParsSPPL() const { return FFit.CalParsSPPL(); }
    const std::array<double, 4>& MillercylPar() const { return FFit.MillercylPar(); }
    const std::array<double, 6>& ConicPars() const { return FFit.ConicPars(); }
    bool CanRestoreParaIp() const { return FEdit.RestoreParaIpOK; }
    bool CanRestoreBiQuad() const { return FEdit.RestoreBiQuadOK; }
    const TParaIpOops& ParaIpOops() const { return FEdit.ParaIpOops; }
    const TCalQuad& BiQuadOops() const { return FEdit.BiQuadOops; }

    // "Component \"<ComponentName>\": <Text>" as an EXELGeoMapError.
    [[noreturn]] void RaiseComponentError(std::string_view Text) const;

private:
    // Builds a new fit from the current one by Change and installs it whole.
    template <typename F>
    void ReplaceFit(F Change)
    {
        TCalibFit next = FFit;
        Change(next);
        FFit = std::move(next);
        Changed(ccFit);
    }
    void RunModelFit();  // the current model's fit into a new fit
    // The fit rebuilt, corners and resolution, and one notice of What and ccFit.
    void Refit(bool WithGratMat, unsigned What);
    void Changed(unsigned What) { FNotice.Changed(What); }

    // What AssignCalibration copies besides the data and the fit: the own image, the calibration file
    // name and the restorable last removals.
    struct TEditState {
        std::string OwnImageName;
        std::int32_t OwnImageWidth = 0;
        std::int32_t OwnImageHeight = 0;
        std::string CalDatName;
        TParaIpOops ParaIpOops;
        bool RestoreParaIpOK = false;
        TCalQuad BiQuadOops;
        bool RestoreBiQuadOK = false;
    };

    std::string FComponentName;
    TCalibData FCalibData;
    TCalibFit FFit;
    TEditState FEdit;
    TChangeNotice FNotice;
};

// Whether (Lat, Long) lies strictly inside the convex quadrilateral of the corners (TCorners order).
// Points on an edge are outside.
bool PositionInMap(double Lat, double Long, const TCornerArray& Corners);

}  // namespace qv
