// TMapImage: loading, checking, renaming, resampling and saving the picture of a map view, and the
// pyramid of halved copies kept for large pictures.
#include <qvgeo/mapview/map_image.h>

#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/geomap/image_header.h>
#include <qvgeo/platform/bitmap_pyramid.h>
#include <qvgeo/platform/image_files.h>
#include <qvgeo/support/errors.h>
#include <qvgeo/support/math_services.h>
#include <qvgeo/support/text.h>

#if QVGEO_WITH_GDAL
#include <qvgeo/gdalio/raster_source.h>
#endif

#include <algorithm>
#include <filesystem>
#include <limits>

namespace qv {

namespace {

bool IsFile(const std::string& Name)
{
    std::error_code ec;
    return !Name.empty() && std::filesystem::is_regular_file(Name, ec);
}

// The whole of a level of Source.
TBitmap WholeLevel(const TImageSource& Source, int Level)
{
    const TSize size = Source.LevelSize(Level);
    return Source.ReadWindow(Level, {0, 0, size.cx, size.cy});
}

}  // namespace

void TMapImage::RaiseError(std::string_view Text) const
{
    throw EXELGeoMapError(ComponentMessage(FComponentName, Text));
}

void TMapImage::SetMaxPixels(std::int64_t Value)
{
    FMaxPixels = std::clamp<std::int64_t>(Value, 1, std::numeric_limits<std::int32_t>::max());
}

void TMapImage::CheckSize(std::int64_t W, std::int64_t H) const
{
    if (W * H > FMaxPixels)
        RaiseError("Cannot use map image, maximum of " + std::to_string(FMaxPixels) +
                   " pixels exceeded (size of map is " + std::to_string(W) + " x " + std::to_string(H) + ")");
}

const TBitmap* TMapImage::PyramidLevel(int Level) const
{
    if (Level < 0 || Level >= static_cast<int>(FPyramid.size()) || FPyramid[Level].Empty())
        return nullptr;
    return &FPyramid[Level];
}

void TMapImage::Replace(TBitmap Picture)
{
    FBitmap = std::move(Picture);
    FTiled.reset();
    FRelay.reset();
    FPyramidStale = true;
    ++FGeneration;
}

void TMapImage::Accept(const std::string& Name)
{
    FName = Name;
    if (FTiled) {
        // A load of another file type keeps the picture shown under the new name: here the tiled one.
        FWidth = FTiled->Size().cx;
        FHeight = FTiled->Size().cy;
        return;
    }
    FWidth = FBitmap.Width();
    FHeight = FBitmap.Height();
    if (FPyramidStale)
        BuildPyramid();
}

void TMapImage::BuildPyramid()
{
    for (TBitmap& level : FPyramid)
        level = TBitmap();
    FPyramidStale = false;
    if (std::int64_t{FBitmap.Width()} * FBitmap.Height() <= LargeMapPixels)
        return;
    const TBitmap* from = &FBitmap;
    for (TBitmap& level : FPyramid) {
        if (from->Width() < 2 || from->Height() < 2)
            break;
        level = HalveBitmap(*from);
        from = &level;
    }
}

bool TMapImage::LoadPicture(TBitmap& Picture, const std::string& File, bool Bmp, const TLoadEvents& Events)
{
    std::int32_t headerW = 0, headerH = 0;
    if (Events.CheckHeaderFirst && ReadImageSize(File, headerW, headerH))
        CheckSize(headerW, headerH);
    FCancel = false;
    auto report = [&Events](TProgressStage Stage, std::int32_t Percent) {
        if (Events.Progress)
            Events.Progress(Stage, Percent);
    };
    report(pgStarting, 0);
    // From here on pgEnding is sent on every way out: an application's progress dialog waits for it.
    std::int32_t percent = 0;
    bool done = false;
    try {
        if (Bmp) {
            LoadBMP(Picture, File);
            done = true;
        } else {
            TImageProgress progress;
            if (Events.Progress)
                progress = [this, &report, &percent](std::int32_t Done, std::int32_t Total) {
                    percent = Total > 0 ? static_cast<std::int32_t>(std::int64_t{Done} * 100 / Total) : 0;
                    report(pgRunning, percent);
                    return !FCancel;
                };
            // A cancel seen at pgStarting stops the decoder at its first batch.
            done = LoadJPEG(Picture, File, progress);
        }
    } catch (const EXELImageError& e) {
        report(pgEnding, percent);
        RaiseError(std::string("Cannot load map image ") + e.what());
    } catch (...) {
        report(pgEnding, percent);
        throw;
    }
    report(pgEnding, done ? 100 : percent);
    return done;
}

std::string TMapImage::ResolveName(const std::string& Name, const TLoadEvents& Events) const
{
    std::string load = Name;
    if (Events.Request)
        Events.Request(load);
    else if (!Events.BesideFile.empty() && !IsFile(load))
        load = FindImageBeside(Events.BesideFile, load);
    return load;
}

TMapImage::TLoadResult TMapImage::Load(const std::string& Name, const TLoadEvents& Events)
{
    const std::string load = ResolveName(Name, Events);
    if (!IsFile(load)) {
        Drop();
        return lrMissing;
    }
    const std::string ext = LowerCase(std::filesystem::path(load).extension().string());
    if (ext == ".jpg" || ext == ".jpeg" || ext == ".bmp") {
        // Decoded aside: until the new picture has passed every check, the map keeps the one it shows.
        TBitmap picture;
        if (!LoadPicture(picture, load, ext == ".bmp", Events))
            return lrCancelled;
        // An over-size picture is still taken before the check refuses it, as documented; name and size
        // keep their old values.
        Replace(std::move(picture));
    }
    // Any other type loads nothing: the previous picture is checked and shown under the new name.
    CheckSize(FBitmap.Width(), FBitmap.Height());
    Accept(Name);
    return lrTaken;
}

TMapImage::TLoadResult TMapImage::Open(const std::string& Name, const TLoadEvents& Events)
{
    const std::string load = ResolveName(Name, Events);
    if (!IsFile(load)) {
        if (Events.MissingIsError)
            RaiseError("Cannot load map image \"" + load + "\": no such file");
        Drop();
        return lrMissing;
    }
    const std::string ext = LowerCase(std::filesystem::path(load).extension().string());
    if (ext == ".jpg" || ext == ".jpeg" || ext == ".bmp") {
        std::int32_t w = 0, h = 0;
        // A header that cannot be read is the decoder's to report, with its own message.
        if (!ReadImageSize(load, w, h) || std::int64_t{w} * h <= FMaxPixels) {
            TBitmap picture;
            if (!LoadPicture(picture, load, ext == ".bmp", Events))
                return lrCancelled;
            CheckSize(picture.Width(), picture.Height());  // a header that understated the size
            Replace(std::move(picture));
            Accept(Name);
            return lrTaken;
        }
#if !QVGEO_WITH_GDAL
        CheckSize(w, h);
#endif
    }
#if QVGEO_WITH_GDAL
    return OpenRaster(Name, load, Events);
#else
    RaiseError("Cannot load map image \"" + load + "\": this build reads only BMP and JPEG files");
#endif
}

TMapImage::TLoadResult TMapImage::OpenRaster([[maybe_unused]] const std::string& Name,
                                             [[maybe_unused]] const std::string& File,
                                             [[maybe_unused]] const TLoadEvents& Events)
{
#if QVGEO_WITH_GDAL
    FCancel = false;
    auto report = [&Events](TProgressStage Stage, std::int32_t Percent) {
        if (Events.Progress)
            Events.Progress(Stage, Percent);
    };
    report(pgStarting, 0);
    // From here on pgEnding is sent on every way out, as for Load.
    std::int32_t percent = 0;
    std::shared_ptr<const TImageSource> source;
    TBitmap whole;
    // The source keeps its progress callback for later steps (see SetLaterProgress): it reaches this
    // call's locals only through the relay's During, which is cleared on every way out of this function.
    auto relay = std::make_shared<TProgressRelay>();
    relay->During = [&](std::int64_t Done, std::int64_t Total) {
        percent = Total > 0 ? static_cast<std::int32_t>(std::clamp<std::int64_t>(Done * 100 / Total, 0, 100)) : 0;
        report(pgRunning, percent);
        return !FCancel;
    };
    struct TEndOfOpen {
        TProgressRelay& Relay;
        ~TEndOfOpen() { Relay.During = nullptr; }
    } endOfOpen{*relay};
    try {
        TRasterOpenOptions options;
        options.Progress = [relay](std::int64_t Done, std::int64_t Total) {
            if (relay->During)
                return relay->During(Done, Total);
            return relay->Later ? relay->Later(Done, Total) : true;
        };
        source = OpenRasterSource(File, options);
        const TSize size = source->Size();
        if (std::int64_t{size.cx} * size.cy <= FMaxPixels) {
            // Small enough to hold: read whole, in strips, so that progress and cancel work as for a JPEG.
            constexpr std::int32_t Strip = 256;
            const std::int32_t from = percent;
            TBitmap picture(size.cx, size.cy);
            for (std::int32_t y = 0; y < size.cy && !FCancel; y += Strip) {
                const std::int32_t y1 = std::min(size.cy, y + Strip);
                picture.CopyRect(0, y, source->ReadWindow(0, {0, y, size.cx, y1}), {0, 0, size.cx, y1 - y});
                percent = from + static_cast<std::int32_t>(std::int64_t{100 - from} * y1 / size.cy);
                report(pgRunning, percent);
            }
            whole = std::move(picture);
        }
    } catch (const EXELImageError& e) {
        report(pgEnding, percent);
        if (FCancel)
            return lrCancelled;
        RaiseError(std::string("Cannot load map image ") + e.what());
    } catch (...) {
        report(pgEnding, percent);
        throw;
    }
    report(pgEnding, FCancel ? percent : 100);
    if (FCancel)
        return lrCancelled;
    if (!whole.Empty()) {
        Replace(std::move(whole));
        Accept(Name);
        return lrTaken;
    }
    TakeSource(std::move(source), Name);
    FRelay = std::move(relay);
    return lrTaken;
#else
    return lrMissing;
#endif
}

void TMapImage::TakeSource(std::shared_ptr<const TImageSource> Source, const std::string& Name)
{
    Replace(TBitmap());  // the previous picture's pixels are not kept for nothing
    for (TBitmap& level : FPyramid)
        level = TBitmap();
    FPyramidStale = false;
    const TSize size = Source ? Source->Size() : TSize{0, 0};
    if (size.cx <= 0 || size.cy <= 0) {
        Drop();
        return;
    }
    FTiled = std::make_shared<TTileCache>(std::move(Source));
    FRelay.reset();
    FName = Name;
    FWidth = size.cx;
    FHeight = size.cy;
}

void TMapImage::SetLaterProgress(const void* Owner, TLaterProgress Later)
{
    if (!FRelay)
        return;
    FRelay->Later = std::move(Later);
    FRelay->Owner = Owner;
}

void TMapImage::DropLaterProgress(const void* Owner)
{
    if (FRelay && FRelay->Owner == Owner) {
        FRelay->Later = nullptr;
        FRelay->Owner = nullptr;
    }
}

std::shared_ptr<const TImageSource> TMapImage::Levels() const
{
    if (FTiled)
        return FTiled;
    if (FBitmap.Empty())
        return nullptr;
    return std::make_shared<TBitmapPyramid>(FBitmap, std::vector<TBitmap>(FPyramid.begin(), FPyramid.end()));
}

void TMapImage::Drop()
{
    FName.clear();
    FWidth = FHeight = 0;
}

void TMapImage::Assign(const TBitmap& Bitmap)
{
    // The copy stays when the size check refuses it, as with a picture loaded by name.
    Replace(Bitmap);
    CheckSize(FBitmap.Width(), FBitmap.Height());
    Accept("$unknown$");
}

bool TMapImage::Rename(const std::string& NewName)
{
    const std::string reduced = StripExtension(StripPath(ReduceStringToFN83CompliantChars(NewName)));
    if (FName.empty() || reduced.empty() || !IsFile(FName))
        return false;
    const std::filesystem::path current(FName);
    const std::filesystem::path target = current.parent_path() / (reduced + current.extension().string());
    std::error_code ec;
    std::filesystem::rename(current, target, ec);
    if (ec)
        return false;
    // Reduced levels built for the file beside it go with it (else the next open builds them again).
    const std::filesystem::path levels(current.string() + ".ovr");
    if (std::filesystem::is_regular_file(levels, ec))
        std::filesystem::rename(levels, target.string() + ".ovr", ec);
    FName = target.string();
    return true;
}

void TMapImage::CheckSavable() const
{
    if (FTiled && std::int64_t{FWidth} * FHeight > FMaxPixels)
        RaiseError("Cannot save map image, maximum of " + std::to_string(FMaxPixels) +
                   " pixels exceeded (size of map is " + std::to_string(FWidth) + " x " + std::to_string(FHeight) + ")");
}

void TMapImage::CheckCopySize(std::int64_t W, std::int64_t H) const
{
    if (FTiled && W * H > FMaxPixels)
        RaiseError("Cannot copy map image, maximum of " + std::to_string(FMaxPixels) +
                   " pixels exceeded (size of copy is " + std::to_string(W) + " x " + std::to_string(H) + ")");
}

void TMapImage::SaveJPEG(const std::string& FileName) const
{
    CheckSavable();
    qv::SaveJPEG(FTiled ? WholeLevel(*FTiled, 0) : FBitmap, FileName);
}

bool TMapImage::Resample(double Factor, bool AntiAlias)
{
    const std::int32_t w = FTiled ? FWidth : FBitmap.Width(), h = FTiled ? FHeight : FBitmap.Height();
    const std::int32_t nw = RoundSaturated(w * Factor), nh = RoundSaturated(h * Factor);
    if (!(Factor > 0.0) || nw < 1 || nh < 1 || std::int64_t{nw} * nh > FMaxPixels)
        return false;
    TBitmap resized(nw, nh);
    const TStretchMode mode = AntiAlias ? smHalftone : smColorOnColor;
    if (FTiled) {
        // The level with at least a pixel per new pixel, read whole: at most about 4 times the result's
        // pixels, however large the picture.
        const int level = MapPyramidLevel(*FTiled, Factor);
        const TBitmap from = WholeLevel(*FTiled, level);
        resized.StretchRect({0, 0, nw, nh}, from, {0, 0, from.Width(), from.Height()}, mode);
    } else {
        resized.StretchRect({0, 0, nw, nh}, FBitmap, {0, 0, w, h}, mode);
    }
    Replace(std::move(resized));
    Accept(FName);
    return true;
}

}  // namespace qv
