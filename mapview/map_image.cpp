// TMapImage: loading, checking, renaming, resampling and saving the picture of a map view, and the
// pyramid of halved copies kept for large pictures.
#include <qvgeo/mapview/map_image.h>

#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/geomap/image_header.h>
#include <qvgeo/platform/image_files.h>
#include <qvgeo/support/errors.h>
#include <qvgeo/support/math_services.h>
#include <qvgeo/support/text.h>

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

// Source halved: each pixel the rounded mean of a 2 x 2 block (of the pixels that exist at the right and
// bottom edges of an odd size).
TBitmap Halve(const TBitmap& Src)
{
    const std::int32_t w = Src.Width(), h = Src.Height();
    const std::int32_t hw = (w + 1) / 2, hh = (h + 1) / 2;
    TBitmap out(hw, hh);
    for (std::int32_t y = 0; y < hh; ++y) {
        const std::uint32_t* r0 = Src.ScanLine(2 * y);
        const std::uint32_t* r1 = Src.ScanLine(std::min(2 * y + 1, h - 1));
        std::uint32_t* d = out.ScanLine(y);
        for (std::int32_t x = 0; x < hw; ++x) {
            const std::int32_t x0 = 2 * x, x1 = std::min(2 * x + 1, w - 1);
            const std::uint32_t p[4] = {r0[x0], r0[x1], r1[x0], r1[x1]};
            std::uint32_t rb = 0, g = 0;
            for (std::uint32_t v : p) {
                rb += v & 0x00FF00FFu;  // red and blue side by side: 4 x 255 fits in 10 bits each
                g += v & 0x0000FF00u;
            }
            rb = ((rb + 0x00020002u) >> 2) & 0x00FF00FFu;
            g = ((g + 0x00000200u) >> 2) & 0x0000FF00u;
            d[x] = 0xFF000000u | rb | g;
        }
    }
    return out;
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
    FPyramidStale = true;
    ++FGeneration;
}

void TMapImage::Accept(const std::string& Name)
{
    FName = Name;
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
        level = Halve(*from);
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

TMapImage::TLoadResult TMapImage::Load(const std::string& Name, const TLoadEvents& Events)
{
    std::string load = Name;
    if (Events.Request)
        Events.Request(load);
    else if (!Events.BesideFile.empty() && !IsFile(load))
        load = FindImageBeside(Events.BesideFile, load);
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
    FName = target.string();
    return true;
}

void TMapImage::SaveJPEG(const std::string& FileName) const
{
    qv::SaveJPEG(FBitmap, FileName);
}

bool TMapImage::Resample(double Factor, bool AntiAlias)
{
    const std::int32_t w = FBitmap.Width(), h = FBitmap.Height();
    const std::int32_t nw = RoundSaturated(w * Factor), nh = RoundSaturated(h * Factor);
    if (!(Factor > 0.0) || nw < 1 || nh < 1 || std::int64_t{nw} * nh > FMaxPixels)
        return false;
    TBitmap resized(nw, nh);
    resized.StretchRect({0, 0, nw, nh}, FBitmap, {0, 0, w, h}, AntiAlias ? smHalftone : smColorOnColor);
    Replace(std::move(resized));
    Accept(FName);
    return true;
}

}  // namespace qv
