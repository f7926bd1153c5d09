// TMapModel: the loading events of a map image, reading a calibration with the image it names, and switching
// to another calibration as one step that is undone when its image cannot be shown.
//
// A switch reads the calibration first and loads the image it names last, so a failure of the image (a
// text file named ".jpg", a truncated JPEG, a picture over the size limit, a cancel) comes after the
// calibration has already been replaced. The switch therefore keeps a copy of everything it may change —
// calibration, picture, pyramid, name, size, screen image, scaled cache, position and magnification — and
// puts it back. Pictures are implicitly shared, so the copy costs no pixel memory until something is drawn.
#include <qvgeo/mapview/map_model.h>

#include <qvgeo/support/text.h>

#include <exception>
#include <filesystem>
#include <fstream>
#include <utility>

namespace qv {

struct TMapModel::TViewSnapshot {
    TMapCalibration Calib;  // a copy: no listener, so restoring it notifies only this map's own
    TMapImage Image;
    TBitmap AuxBmp;
    TMapImageCache Cache;
    TPoint TopLeft;
    double Magnify = 1.0;
};

std::unique_ptr<TMapModel::TViewSnapshot> TMapModel::SaveView() const
{
    auto s = std::make_unique<TViewSnapshot>();
    s->Calib.AssignCalibration(FCalib);
    s->Image = FImage;
    s->AuxBmp = FAuxBmp;
    s->Cache = FCache;
    s->TopLeft = TopLeft();
    s->Magnify = Magnification();
    return s;
}

void TMapModel::RestoreView(TViewSnapshot& Snapshot)
{
    FCalib.AssignCalibration(Snapshot.Calib);
    FImage = std::move(Snapshot.Image);
    FAuxBmp = std::move(Snapshot.AuxBmp);
    FCache = std::move(Snapshot.Cache);
    FView.SetTopLeft(TMapPixel(Snapshot.TopLeft));
    FView.SetMagnify(Snapshot.Magnify);
}

bool TMapModel::SwitchMap(const std::string& CalFile, const std::function<bool()>& Read)
{
    std::unique_ptr<TViewSnapshot> before = SaveView();
    // Saved and put back rather than cleared: a request handler may read another map from inside a load.
    std::string outerFile = std::exchange(FReadingCalFile, CalFile);
    const bool outerCancel = std::exchange(FLoadCancelled, false);
    const bool outerSwitch = std::exchange(FInSwitch, true);
    const bool outerTouched = std::exchange(FSwitchTouched, false);
    bool result = false;
    bool touched = false;
    std::exception_ptr thrown;
    {
        THoldPaint hold(*this);
        try {
            result = Read();
        } catch (...) {
            thrown = std::current_exception();
        }
        const bool cancelled = FLoadCancelled;
        FReadingCalFile = std::move(outerFile);
        FLoadCancelled = outerCancel;
        FInSwitch = outerSwitch;
        if (thrown || cancelled) {
            RestoreView(*before);
            result = false;
        }
        touched = std::exchange(FSwitchTouched, outerTouched);
        before.reset();  // the restored pictures are the map's alone again before anything draws on them
    }
    Paint();
    // One announcement for the whole switch; none when nothing was read (a file that does not open).
    if (touched) {
        if (FInSwitch)
            FSwitchTouched = true;
        else
            MapSwitched();
    }
    if (thrown)
        std::rethrow_exception(thrown);
    return result;
}

bool TMapModel::ReadCalibrationAndImage(std::istream& F, std::string_view Id)
{
    // One notice of the calibration for the whole read; the image comes between the graticule and the
    // model's fit, whose conic search starts from the image's size.
    const auto batch = FCalib.Batch();
    const TMapCalibration::TReadResult r = FCalib.ReadCalibrationRecord(F, Id);
    if (!r.Found)
        return false;
    if (const std::string& image = FCalib.CalibData().MapFName; !image.empty()) {
#if QVGEO_WITH_GDAL
        // BMP and JPEG load as they always have (size limit and messages included); a calibration of a
        // GeoTIFF, a PNG or another raster opens it, tiled when it is too large to hold.
        const std::string ext = LowerCase(std::filesystem::path(image).extension().string());
        if (ext != ".bmp" && ext != ".jpg" && ext != ".jpeg")
            LoadImage(image, true, false);
        else
            SetMapImgName(image);
#else
        SetMapImgName(image);
#endif
    }
    FCalib.FinishReading();
    return r.GratOK;
}

bool TMapModel::ReadCalibrationFile(const std::string& FName, std::string_view Id)
{
    std::ifstream f(FName, std::ios::binary);
    if (!f)
        return false;
    return ReadCalibrationAndImage(f, Id);
}

bool TMapModel::ReadCalDataFromOpenXMLFile(std::istream& F, std::string_view Id)
{
    return SwitchMap({}, [&] { return ReadCalibrationAndImage(F, Id); });
}

bool TMapModel::LoadCalDataFromXML(const std::string& FName, std::string_view Id)
{
    return SwitchMap(FName, [&] { return ReadCalibrationFile(FName, Id); });
}

void TMapModel::SetCalDatName(const std::string& FName)
{
    SwitchMap(FName, [&] {
        const auto batch = FCalib.Batch();
        std::ifstream probe(FName, std::ios::binary);
        if (probe) {
            probe.close();
            // The name is kept even when loading raises.
            FCalib.SetCalDatNameOnly(FName);
            ReadCalibrationFile(FName, "");
        } else {
            FImage.Drop();
            FCache.Invalidate();
            PushImageToCalibration();
            AnnounceMapChange();
        }
        return true;
    });
}

}  // namespace qv
