// A JPEG of hundreds of megapixels. Its data are one entropy-coded stream: a window near the bottom costs
// decoding everything above it, so the file cannot be read by window as it is. Two things make it usable:
// - libjpeg-turbo decodes it at 1/8 scale straight from the DCT coefficients (each 8 x 8 block becomes
//   one pixel from its DC term, no inverse transform), 0.63 s for 300 megapixels here, most of it the
//   entropy decoding that no reader can skip: this gives the levels reduced by 8 and more at open, so
//   the whole map shows at once;
// - the levels reduced by 1, 2 and 4 come from a one-time copy into a tiled, JPEG-compressed TIFF with
//   AVERAGE reduced levels in the cache folder, made on the first read that needs one of them (blocking,
//   with the open's progress callback) and reused by every later open of the same unchanged file.
// Everything runs on the caller's thread.
#include <qvgeo/gdalio/gdal_session.h>
#include <qvgeo/gdalio/raster_internal.h>
#include <qvgeo/platform/image_files.h>

#include <algorithm>
#include <filesystem>

namespace qv {

namespace {

constexpr int kPreviewLevel = 3;  // the level reduced by 8: what the scaled decode gives

// Each pixel the mean of the 2 x 2 block it covers; at an odd right or bottom edge, of the pixels there
// are (the same rule as GDAL's AVERAGE, so the levels agree with those of the tiled copy).
TBitmap Halve(const TBitmap& Source)
{
    const std::int32_t sw = Source.Width(), sh = Source.Height();
    const std::int32_t w = (sw + 1) / 2, h = (sh + 1) / 2;
    TBitmap out(w, h);
    for (std::int32_t y = 0; y < h; ++y) {
        const std::uint32_t* r0 = Source.ScanLine(2 * y);
        const std::uint32_t* r1 = 2 * y + 1 < sh ? Source.ScanLine(2 * y + 1) : nullptr;
        std::uint32_t* d = out.ScanLine(y);
        for (std::int32_t x = 0; x < w; ++x) {
            std::uint32_t sum[3] = {0, 0, 0}, n = 0;
            auto add = [&](std::uint32_t p) {
                sum[0] += p >> 16 & 255, sum[1] += p >> 8 & 255, sum[2] += p & 255;
                ++n;
            };
            const bool right = 2 * x + 1 < sw;
            add(r0[2 * x]);
            if (right)
                add(r0[2 * x + 1]);
            if (r1) {
                add(r1[2 * x]);
                if (right)
                    add(r1[2 * x + 1]);
            }
            auto mean = [n](std::uint32_t s) { return (s + n / 2) / n; };
            d[x] = 0xFF000000u | mean(sum[0]) << 16 | mean(sum[1]) << 8 | mean(sum[2]);
        }
    }
    return out;
}

class THugeJpeg final : public TImageSource {
public:
    THugeJpeg(std::string File, TDatasetPtr Data, const TRasterOpenOptions& Options)
        : FFile(std::move(File)), FOptions(Options)
    {
        const int w = Data->GetRasterXSize(), h = Data->GetRasterYSize();
        FLevels.push_back({w, h});
        for (const int f : OverviewFactors(w, h))
            FLevels.push_back({ReducedSide(w, f), ReducedSide(h, f)});
        FTiledName = CacheFileName(CacheFolderOf(FOptions), FFile, ".tiles.tif");
        OpenTiled();
        if (FTiles)
            return;
        // libjpeg converts only YCbCr and grey to RGB; GDAL turns CMYK and YCCK into RGB itself, and its
        // JPEG reader has the same 1/8 scaled decode as its third reduced level.
        const char* space = Data->GetMetadataItem("SOURCE_COLOR_SPACE", "IMAGE_STRUCTURE");
        const bool inks = space && (std::string(space) == "CMYK" || std::string(space) == "YCbCrK");
        auto direct = MakeGdalSource(FFile, std::move(Data), {}, "JPEG");
        if (inks)
            PreviewFrom(*direct);
        else
            DecodePreview();
        if (!FOptions.BuildOverviews)
            FDirect = std::move(direct);
    }

    TSize Size() const override { return FLevels[0]; }
    int LevelCount() const override { return static_cast<int>(FLevels.size()); }
    TSize LevelSize(int Level) const override { return FLevels.at(static_cast<std::size_t>(Level)); }
    std::string FormatName() const override { return "JPEG"; }

    TBitmap ReadWindow(int Level, TRect Window) const override
    {
        const TSize size = LevelSize(Level);
        if (!FPreview.empty() && Level >= kPreviewLevel) {
            const TBitmap& level = FPreview[static_cast<std::size_t>(Level - kPreviewLevel)];
            TBitmap out = WindowBitmap(FFile, Window);
            out.CopyRect(-Window.Left, -Window.Top, level, {0, 0, size.cx, size.cy});
            return out;
        }
        if (!FTiles && !FDirect)
            MakeTiled();  // sets one of them or raises
        return FTiles ? FTiles->ReadWindow(Level, Window) : FDirect->ReadWindow(Level, Window);
    }

private:
    // Uses the tiled copy when it is there and fits; a copy that does not fit is ignored (and replaced
    // when one is made).
    void OpenTiled() const
    {
        std::error_code ec;
        if (!std::filesystem::exists(FTiledName, ec))
            return;
        try {
            auto tiles = MakeGdalSource(FFile, OpenRasterDataset(FTiledName), {}, "JPEG");
            if (tiles->LevelCount() < LevelCount())
                return;
            for (int i = 0; i < LevelCount(); ++i)
                if (tiles->LevelSize(i).cx != LevelSize(i).cx || tiles->LevelSize(i).cy != LevelSize(i).cy)
                    return;
            FTiles = std::move(tiles);
        } catch (const EXELImageError&) {
        }
    }

    void DecodePreview()
    {
        TImageProgress progress;
        if (FOptions.Progress)
            progress = [this](std::int32_t Done, std::int32_t Total) { return FOptions.Progress(Done, Total); };
        TBitmap preview;
        if (!LoadJPEG(preview, FFile, progress, 8))
            RasterFail(FFile, "cancelled");
        const TSize want = LevelSize(kPreviewLevel);
        if (preview.Width() != want.cx || preview.Height() != want.cy)
            RasterFail(FFile, "the scaled decode does not have the expected size");
        KeepPreview(std::move(preview));
    }

    void PreviewFrom(const TImageSource& Direct)
    {
        const TSize want = LevelSize(kPreviewLevel);
        if (Direct.LevelCount() <= kPreviewLevel || Direct.LevelSize(kPreviewLevel).cx != want.cx ||
            Direct.LevelSize(kPreviewLevel).cy != want.cy)
            RasterFail(FFile, "GDAL gives no 1/8 scaled decode of it");
        KeepPreview(ReadWholeLevel(Direct, kPreviewLevel));
    }

    // The 1/8 picture and its halvings are kept for the source's life, also once the tiled copy exists, so
    // that a level never changes its pixels while it is shown.
    void KeepPreview(TBitmap Preview)
    {
        FPreview.push_back(std::move(Preview));
        for (std::size_t l = kPreviewLevel + 1; l < FLevels.size(); ++l)
            FPreview.push_back(Halve(FPreview.back()));
    }

    void MakeTiled() const
    {
        OpenTiled();  // another source of the same file may have made it since this one opened
        if (FTiles)
            return;
        switch (WriteTiledCopy(FFile, FTiledName, true, FOptions)) {
        case sfMade: break;
        case sfCancelled: RasterFail(FFile, "cancelled");
        case sfUnwritable:  // no cache to write to: every window decoded from the file's start
            FDirect = MakeGdalSource(FFile, OpenRasterDataset(FFile), {}, "JPEG");
            return;
        }
        OpenTiled();
        if (!FTiles)
            RasterFail(FFile, "its tiled copy \"" + FTiledName + "\" cannot be read");
    }

    std::string FFile;
    TRasterOpenOptions FOptions;
    std::vector<TSize> FLevels;
    std::string FTiledName;
    std::vector<TBitmap> FPreview;                  // levels kPreviewLevel .. LevelCount() - 1, or none
    mutable std::unique_ptr<TImageSource> FTiles;   // the tiled copy, once made or found
    mutable std::unique_ptr<TImageSource> FDirect;  // without side files: GDAL's own JPEG reader
};

}  // namespace

std::unique_ptr<TImageSource> OpenHugeJpeg(const std::string& File, TDatasetPtr Data,
                                           const TRasterOpenOptions& Options)
{
    return std::make_unique<THugeJpeg>(File, std::move(Data), Options);
}

}  // namespace qv
