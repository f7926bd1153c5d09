// TGeoMap: decoding a map image with its loading events, and switching to another calibration as one step
// that is undone when its image cannot be shown.
//
// A switch reads the calibration first and loads the image it names last, so a failure of the image (a
// text file named ".jpg", a truncated JPEG, a picture over the size limit, a cancel) comes after the
// calibration has already been replaced. The switch therefore keeps a copy of everything it may change —
// calibration, picture, pyramid, name, size, screen image, scaled cache, position and magnification — and
// puts it back. Pictures are implicitly shared, so the copy costs no pixel memory until something is drawn.
#include <qvgeo/geomap/image_header.h>
#include <qvgeo/mapview/geo_map.h>

#include <qvgeo/platform/image_files.h>

#include <exception>
#include <utility>

namespace qv {

struct TGeoMap::TViewSnapshot {
    TMapCalibration Calib;
    TBitmap GrafBmp, AuxBmp;
    std::array<TBitmap, 4> Pyramid;
    bool PyramidStale = true;
    TMapImageCache Cache;
    std::string MapImgName;
    std::int32_t MapImgWidth = 0, MapImgHeight = 0;
    TPoint TopLeft;
    double Magnify = 1.0;
};

void TGeoMap::NotifyLoading(TProgressStage Stage, std::int32_t Percent)
{
    // The handler is the application's progress display: what it throws is reported and the load goes on,
    // so that the picture, the switch around it and the pgEnding a dialog waits for are not cut short.
    if (OnDataLoading)
        Guarded([&] { OnDataLoading(*this, Stage, Percent); });
}

void TGeoMap::EndLoading(std::int32_t Percent)
{
    NotifyLoading(pgEnding, Percent);
}

bool TGeoMap::LoadPicture(TBitmap& Picture, const std::string& File, bool Bmp)
{
    // Within a map switch the header tells an over-size picture before anything is decoded: a
    // 100-megapixel JPEG would cost seconds and 400 MB only to be refused, and the switch puts the old
    // picture back anyway. Unreadable headers are left to the decoder's own message.
    std::int32_t headerW = 0, headerH = 0;
    if (FInSwitch && ReadImageSize(File, headerW, headerH))
        CheckMapSize(headerW, headerH);
    FCancelLoading = false;
    NotifyLoading(pgStarting, 0);
    // From here on pgEnding is sent on every way out: an application's progress dialog waits for it.
    std::int32_t percent = 0;
    bool done = false;
    try {
        if (Bmp) {
            LoadBMP(Picture, File);
            done = true;
        } else {
            TImageProgress progress;
            if (OnDataLoading)
                progress = [this, &percent](std::int32_t Done, std::int32_t Total) {
                    percent = Total > 0 ? static_cast<std::int32_t>(std::int64_t{Done} * 100 / Total) : 0;
                    NotifyLoading(pgRunning, percent);
                    return !FCancelLoading;
                };
            // A cancel seen at pgStarting stops the decoder at its first batch.
            done = LoadJPEG(Picture, File, progress);
        }
    } catch (const EXELImageError& e) {
        EndLoading(percent);
        RaiseError(std::string("Cannot load map image ") + e.what());
    } catch (...) {
        EndLoading(percent);
        throw;
    }
    EndLoading(done ? 100 : percent);
    return done;
}

std::unique_ptr<TGeoMap::TViewSnapshot> TGeoMap::SaveView() const
{
    auto s = std::make_unique<TViewSnapshot>();
    s->Calib.AssignCalibration(FCalib);
    s->GrafBmp = FGrafBmp;
    s->AuxBmp = FAuxBmp;
    s->Pyramid = FPyramid;
    s->PyramidStale = FPyramidStale;
    s->Cache = FCache;
    s->MapImgName = FMapImgName;
    s->MapImgWidth = MapWidth();
    s->MapImgHeight = MapHeight();
    s->TopLeft = TopLeft();
    s->Magnify = Magnification();
    return s;
}

void TGeoMap::RestoreView(TViewSnapshot& Snapshot)
{
    FCalib.AssignCalibration(Snapshot.Calib);
    FGrafBmp = std::move(Snapshot.GrafBmp);
    FAuxBmp = std::move(Snapshot.AuxBmp);
    FPyramid = std::move(Snapshot.Pyramid);
    FPyramidStale = Snapshot.PyramidStale;
    FCache = std::move(Snapshot.Cache);
    FMapImgName = std::move(Snapshot.MapImgName);
    FView.SetMapSize({Snapshot.MapImgWidth, Snapshot.MapImgHeight});
    FView.SetTopLeft(TMapPixel(Snapshot.TopLeft));
    FView.SetMagnify(Snapshot.Magnify);
}

bool TGeoMap::SwitchMap(const std::string& CalFile, const std::function<bool()>& Read)
{
    std::unique_ptr<TViewSnapshot> before = SaveView();
    // Saved and put back rather than cleared: a request handler may read another map from inside a load.
    std::string outerFile = std::exchange(FReadingCalFile, CalFile);
    const bool outerCancel = std::exchange(FLoadCancelled, false);
    const bool outerSwitch = std::exchange(FInSwitch, true);
    bool result = false;
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
        before.reset();  // the restored pictures are the map's alone again before anything draws on them
    }
    Paint();
    if (thrown)
        std::rethrow_exception(thrown);
    return result;
}

bool TGeoMap::ReadCalDataFromOpenXMLFile(std::istream& F, std::string_view Id)
{
    return SwitchMap({}, [&] { return FCalib.ReadCalDataFromOpenXMLFile(F, Id); });
}

bool TGeoMap::LoadCalDataFromXML(const std::string& FName, std::string_view Id)
{
    return SwitchMap(FName, [&] { return FCalib.LoadCalDataFromXML(FName, Id); });
}

void TGeoMap::SetCalDatName(const std::string& FName)
{
    SwitchMap(FName, [&] {
        FCalib.SetCalDatName(FName);
        return true;
    });
}

}  // namespace qv
