// The GDAL raster source: one open dataset per source, read band by band into the bitmap's rows. GDAL
// datasets are not safe to share between threads; a source is used on one thread at a time.
#include <qvgeo/gdalio/raster_source.h>

#include <qvgeo/gdalio/gdal_session.h>
#include <qvgeo/gdalio/raster_internal.h>
#include <qvgeo/platform/image_files.h>

#include <cpl_conv.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <limits>
#include <vector>

namespace qv {

namespace {

// How the chosen bands make a colour.
enum TBandLayout : std::uint8_t { blGrey, blPalette, blRGB, blCMYK };

// One band read as a colour channel: values v become bytes (v - Min) * Scale, rounded and clamped.
struct TChannel {
    int Band = 1;
    double Min = 0.0, Scale = 1.0;
    bool HasNoData = false;
    double NoData = 0.0;
};

class TGdalRaster final : public TImageSource {
public:
    TGdalRaster(std::string File, TDatasetPtr Data, TDatasetPtr Overviews, std::string Format)
        : FFile(std::move(File)), FData(std::move(Data)), FOvr(std::move(Overviews)), FFormat(std::move(Format))
    {
        TGdalErrorTrap quiet;  // GDAL reads directories and reduced levels lazily, and warns then
        ChooseBands();
        FLevels.push_back({FData->GetRasterXSize(), FData->GetRasterYSize()});
        for (int level = 1;; ++level) {
            GDALRasterBand* b = Band(level, FChannels[0].Band);
            if (!b)
                break;
            FLevels.push_back({b->GetXSize(), b->GetYSize()});
        }
        ChooseScaling();
    }

    TSize Size() const override { return FLevels[0]; }
    int LevelCount() const override { return static_cast<int>(FLevels.size()); }
    TSize LevelSize(int Level) const override { return FLevels.at(static_cast<std::size_t>(Level)); }
    std::string FormatName() const override
    {
        return FFormat.empty() ? GDALGetDriverShortName(FData->GetDriver()) : FFormat;
    }

    TBitmap ReadWindow(int Level, TRect Window) const override
    {
        const TSize size = LevelSize(Level);
        TBitmap out = WindowBitmap(FFile, Window);
        const TRect part{std::max(Window.Left, 0), std::max(Window.Top, 0), std::min(Window.Right, size.cx),
                         std::min(Window.Bottom, size.cy)};
        if (part.IsEmpty())
            return out;
        TGdalErrorTrap trap;
        // A JPEG cut short only makes libjpeg warn and fill the rest with grey: half a map shown as if
        // whole. Its warnings count as failures here.
        CPLConfigOptionSetter strictJpeg("GDAL_ERROR_ON_LIBJPEG_WARNING", "TRUE", true);
        if (FPlain) {
            ReadPlain(Level, part, Window, out, trap);
            return out;
        }
        const std::int32_t w = part.Width(), h = part.Height();
        const std::size_t n = static_cast<std::size_t>(w) * static_cast<std::size_t>(h);
        std::vector<std::vector<float>> values(FChannels.size(), std::vector<float>(n));
        for (std::size_t c = 0; c < FChannels.size(); ++c)
            Read(Level, FChannels[c].Band, part, values[c].data(), GDT_Float32, sizeof(float), w * GSpacing(sizeof(float)), trap);
        std::vector<float> alpha;
        if (FAlphaBand) {
            alpha.resize(n);
            Read(Level, FAlphaBand, part, alpha.data(), GDT_Float32, sizeof(float), w * GSpacing(sizeof(float)), trap);
        }
        for (std::int32_t y = 0; y < h; ++y) {
            std::uint32_t* d = out.ScanLine(part.Top - Window.Top + y) + (part.Left - Window.Left);
            for (std::int32_t x = 0; x < w; ++x)
                d[x] = Compose(values, alpha, static_cast<std::size_t>(y) * w + x);
        }
        return out;
    }

private:
    void ChooseBands()
    {
        const int n = FData->GetRasterCount();
        std::array<int, 3> rgb{0, 0, 0};
        std::array<int, 4> cmyk{0, 0, 0, 0};
        for (int i = 1; i <= n; ++i) {
            auto first = [i](int& slot) { slot = slot ? slot : i; };
            switch (FData->GetRasterBand(i)->GetColorInterpretation()) {
            case GCI_RedBand: first(rgb[0]); break;
            case GCI_GreenBand: first(rgb[1]); break;
            case GCI_BlueBand: first(rgb[2]); break;
            case GCI_CyanBand: first(cmyk[0]); break;
            case GCI_MagentaBand: first(cmyk[1]); break;
            case GCI_YellowBand: first(cmyk[2]); break;
            case GCI_BlackBand: first(cmyk[3]); break;
            case GCI_AlphaBand: FAlphaBand = FAlphaBand ? FAlphaBand : i; break;
            default: break;
            }
        }
        if (cmyk[0] && cmyk[1] && cmyk[2] && cmyk[3]) {
            FLayout = blCMYK;
            for (const int b : cmyk)
                FChannels.push_back({b});
        } else if ((rgb[0] && rgb[1] && rgb[2]) || n - (FAlphaBand ? 1 : 0) >= 3) {
            FLayout = blRGB;
            if (!rgb[0] || !rgb[1] || !rgb[2])
                rgb = {1, 2, 3};
            for (const int b : rgb)
                FChannels.push_back({b});
        } else {
            const int b = FAlphaBand == 1 ? 2 : 1;
            FChannels.push_back({std::min(b, n)});
            if (const GDALColorTable* table = FData->GetRasterBand(FChannels[0].Band)->GetColorTable()) {
                FLayout = blPalette;
                FPalette.assign(256, 0xFF000000u);
                for (int i = 0; i < std::min(table->GetColorEntryCount(), 256); ++i) {
                    GDALColorEntry e{};
                    table->GetColorEntryAsRGB(i, &e);
                    // An entry's own alpha (a PNG's transparent colours) is laid over white as well.
                    const int a = std::clamp<int>(e.c4, 0, 255);
                    auto over = [a](short c) { return std::uint32_t(((c & 0xFF) * a + 255 * (255 - a) + 127) / 255); };
                    FPalette[static_cast<std::size_t>(i)] = 0xFF000000u | over(e.c1) << 16 | over(e.c2) << 8 | over(e.c3);
                }
            }
        }
        if (FAlphaBand == FChannels[0].Band)
            FAlphaBand = 0;  // a one-band file that calls its band alpha: show it as grey
    }

    // Bytes are shown as they are; other types are stretched from their range onto 0 .. 255, one range
    // for all colour bands so that a 16-bit colour picture keeps its balance. The range is the band's
    // stored statistics when the file has them, else GDAL's approximate minimum and maximum: read from
    // its smallest overview of at least 2500 pixels, or without one from every n-th block of n * n
    // blocks, a fraction of a second even for a large picture. Nodata values are left out of the range.
    void ChooseScaling()
    {
        bool allBytes = true;
        double lo = std::numeric_limits<double>::infinity(), hi = -lo;
        for (TChannel& c : FChannels) {
            GDALRasterBand* b = FData->GetRasterBand(c.Band);
            int has = FALSE;
            c.NoData = b->GetNoDataValue(&has);
            c.HasNoData = has != FALSE;
            if (b->GetRasterDataType() == GDT_Byte || FLayout == blPalette)
                continue;
            allBytes = false;
            double mn = 0, mx = 0;
            TGdalErrorTrap quiet;
            if (b->GetStatistics(TRUE, FALSE, &mn, &mx, nullptr, nullptr) != CE_None) {
                double range[2] = {0, 0};
                if (b->ComputeRasterMinMax(TRUE, range) != CE_None)
                    continue;
                mn = range[0];
                mx = range[1];
            }
            lo = std::min(lo, mn);
            hi = std::max(hi, mx);
        }
        if (!allBytes && lo <= hi) {
            const double scale = hi > lo ? 255.0 / (hi - lo) : 0.0;
            for (TChannel& c : FChannels)
                if (FData->GetRasterBand(c.Band)->GetRasterDataType() != GDT_Byte)
                    c.Min = lo, c.Scale = scale;
        }
        if (FAlphaBand) {
            const GDALDataType t = FData->GetRasterBand(FAlphaBand)->GetRasterDataType();
            FAlphaMax = t == GDT_Byte ? 255.0 : t == GDT_UInt16 ? 65535.0 : 1.0;
        }
        FPlain = allBytes && !FAlphaBand && (FLayout == blRGB || FLayout == blGrey || FLayout == blPalette) &&
                 std::none_of(FChannels.begin(), FChannels.end(), [](const TChannel& c) { return c.HasNoData; });
    }

    static std::uint32_t ToByte(float V, const TChannel& C)
    {
        const double v = std::nearbyint((V - C.Min) * C.Scale);
        return static_cast<std::uint32_t>(std::clamp(v, 0.0, 255.0));
    }

    std::uint32_t Compose(const std::vector<std::vector<float>>& Values, const std::vector<float>& Alpha,
                          std::size_t I) const
    {
        bool nodata = true;
        for (std::size_t c = 0; c < FChannels.size(); ++c) {
            const float v = Values[c][I];
            if (std::isnan(v))
                return 0xFFFFFFFFu;
            nodata = nodata && FChannels[c].HasNoData && v == static_cast<float>(FChannels[c].NoData);
        }
        if (nodata)
            return 0xFFFFFFFFu;
        std::uint32_t r = 0, g = 0, b = 0;
        switch (FLayout) {
        case blGrey: r = g = b = ToByte(Values[0][I], FChannels[0]); break;
        case blPalette: {
            const std::uint32_t p = FPalette[static_cast<std::size_t>(std::clamp(Values[0][I], 0.0f, 255.0f))];
            r = p >> 16 & 255, g = p >> 8 & 255, b = p & 255;
            break;
        }
        case blRGB:
            r = ToByte(Values[0][I], FChannels[0]), g = ToByte(Values[1][I], FChannels[1]);
            b = ToByte(Values[2][I], FChannels[2]);
            break;
        case blCMYK: {
            const std::uint32_t k = 255 - ToByte(Values[3][I], FChannels[3]);
            r = (255 - ToByte(Values[0][I], FChannels[0])) * k / 255;
            g = (255 - ToByte(Values[1][I], FChannels[1])) * k / 255;
            b = (255 - ToByte(Values[2][I], FChannels[2])) * k / 255;
            break;
        }
        }
        if (!Alpha.empty()) {
            // Transparent parts are shown over white paper.
            const double a = std::clamp(Alpha[I] / FAlphaMax, 0.0, 1.0);
            auto over = [a](std::uint32_t c) { return static_cast<std::uint32_t>(std::nearbyint(c * a + 255.0 * (1.0 - a))); };
            r = over(r), g = over(g), b = over(b);
        }
        return 0xFF000000u | r << 16 | g << 8 | b;
    }

    // Byte bands without nodata or alpha: straight into the bitmap's bytes.
    void ReadPlain(int Level, TRect Part, TRect Window, TBitmap& Out, const TGdalErrorTrap& Trap) const
    {
        const std::int32_t w = Part.Width(), h = Part.Height();
        // RGB32 words are 0xffRRGGBB, little-endian in memory: blue, green, red, alpha bytes.
        auto* bytes = reinterpret_cast<GByte*>(Out.ScanLine(Part.Top - Window.Top) + (Part.Left - Window.Left));
        if (FLayout == blRGB) {
            const GSpacing stride = Out.Image().bytesPerLine();
            for (int c = 0; c < 3; ++c)
                Read(Level, FChannels[static_cast<std::size_t>(c)].Band, Part, bytes + (2 - c), GDT_Byte, 4, stride, Trap);
            return;
        }
        std::vector<GByte> row(static_cast<std::size_t>(w) * static_cast<std::size_t>(h));
        Read(Level, FChannels[0].Band, Part, row.data(), GDT_Byte, 1, w, Trap);
        for (std::int32_t y = 0; y < h; ++y) {
            std::uint32_t* d = Out.ScanLine(Part.Top - Window.Top + y) + (Part.Left - Window.Left);
            const GByte* s = row.data() + static_cast<std::size_t>(y) * w;
            for (std::int32_t x = 0; x < w; ++x) {
                const std::uint32_t v = s[x];
                d[x] = FPalette.empty() ? 0xFF000000u | v << 16 | v << 8 | v : FPalette[v];
            }
        }
    }

    // Level 0 is the dataset; with an external overview file its first page is level 1 and that page's
    // own reduced pages the levels below; else the dataset's overviews in order.
    GDALRasterBand* Band(int Level, int Number) const
    {
        GDALRasterBand* b = FData->GetRasterBand(Number);
        if (Level == 0 || !b)
            return b;
        if (FOvr) {
            GDALRasterBand* first = FOvr->GetRasterBand(Number);
            return !first || Level == 1 ? first : first->GetOverview(Level - 2);
        }
        return b->GetOverview(Level - 1);
    }

    void Read(int Level, int Number, TRect Part, void* Into, GDALDataType Type, GSpacing PixelSpace,
              GSpacing LineSpace, const TGdalErrorTrap& Trap) const
    {
        GDALRasterBand* b = Band(Level, Number);
        if (!b || b->RasterIO(GF_Read, Part.Left, Part.Top, Part.Width(), Part.Height(), Into, Part.Width(),
                              Part.Height(), Type, PixelSpace, LineSpace, nullptr) != CE_None)
            RasterFail(FFile, Trap.Message("cannot read the picture"));
    }

    std::string FFile;
    TDatasetPtr FData, FOvr;
    std::string FFormat;
    TBandLayout FLayout = blGrey;
    std::vector<TChannel> FChannels;      // grey or palette: 1; RGB: red, green, blue; CMYK: 4
    int FAlphaBand = 0;                   // 1-based, 0 when none
    double FAlphaMax = 255.0;             // the alpha value of an opaque pixel
    bool FPlain = false;                  // Byte bands only, no nodata, no alpha: the direct path
    std::vector<std::uint32_t> FPalette;  // 256 RGB32 entries for a palette band, else empty
    std::vector<TSize> FLevels;
};

// Reads one pixel at the far corner of every band: a file cut short or whose header claims more pixels
// than it holds fails here, before anything is built from it.
void ProbeFarCorner(GDALDataset& Data, const std::string& File)
{
    TGdalErrorTrap trap;
    const int x = Data.GetRasterXSize() - 1, y = Data.GetRasterYSize() - 1;
    for (int i = 1; i <= Data.GetRasterCount(); ++i) {
        double v = 0;
        if (Data.GetRasterBand(i)->RasterIO(GF_Read, x, y, 1, 1, &v, 1, 1, GDT_Float64, 0, 0, nullptr) != CE_None)
            RasterFail(File, trap.Message("cannot read the picture"));
    }
}

TDatasetPtr OpenOverviewFile(const std::string& Name, GDALDataset& Data)
{
    std::error_code ec;
    if (!std::filesystem::exists(Name, ec))
        return {};
    TGdalErrorTrap quiet;
    TDatasetPtr ovr(GDALDataset::Open(Name.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    // A file that does not fit (not ours, or from a picture of the same name and stamp but another size)
    // is not used.
    if (ovr && ovr->GetRasterCount() == Data.GetRasterCount() &&
        ovr->GetRasterXSize() == ReducedSide(Data.GetRasterXSize(), 2) &&
        ovr->GetRasterYSize() == ReducedSide(Data.GetRasterYSize(), 2))
        return ovr;
    return {};
}

}  // namespace

TBitmap WindowBitmap(const std::string& File, TRect Window)
{
    const std::int32_t w = std::max(Window.Width(), 0), h = std::max(Window.Height(), 0);
    // Refused before asking for the memory: an allocator may end the process instead of failing (a
    // sanitizer's does), and 2^28 pixels (1 GiB) is far beyond any window a view or an output reads.
    constexpr std::int64_t MaxWindowPixels = std::int64_t{1} << 28;
    if (std::int64_t{w} * h > MaxWindowPixels)
        RasterFail(File, "a window of " + std::to_string(w) + " x " + std::to_string(h) + " pixels is too large");
    TBitmap out(w, h);
    if (out.Width() != w || out.Height() != h)
        RasterFail(File, "a window of " + std::to_string(w) + " x " + std::to_string(h) + " pixels is too large");
    return out;
}

std::unique_ptr<TImageSource> MakeGdalSource(std::string File, TDatasetPtr Data, TDatasetPtr Overviews,
                                             std::string Format)
{
    return std::make_unique<TGdalRaster>(std::move(File), std::move(Data), std::move(Overviews), std::move(Format));
}

std::unique_ptr<TImageSource> OpenRasterSource(const std::string& FileName, const TRasterOpenOptions& Options)
{
    TGdalErrorTrap quiet;  // the inner traps report failures; warnings on the way are not printed
    TDatasetPtr data = OpenRasterDataset(FileName);
    const std::int64_t pixels = std::int64_t(data->GetRasterXSize()) * data->GetRasterYSize();
    const bool jpeg = std::string(GDALGetDriverShortName(data->GetDriver())) == "JPEG";
    // A JPEG served from its 1/8 decode needs the levels reduced by 2, 4 and 8.
    if (jpeg && pixels > Options.LargePixels &&
        OverviewFactors(data->GetRasterXSize(), data->GetRasterYSize()).size() >= 3)
        return OpenHugeJpeg(FileName, std::move(data), Options);
    if (pixels <= Options.LargePixels || data->GetRasterBand(1)->GetOverviewCount() > 0)
        return MakeGdalSource(FileName, std::move(data));
    if (Options.BuildOverviews && ReadsOnlyInSequence(*data))
        return OpenTiledCopy(FileName, std::move(data), Options);

    const std::string cacheFolder = CacheFolderOf(Options);
    const std::string cached = CacheFileName(cacheFolder, FileName, ".ovr");
    if (TDatasetPtr ovr = OpenOverviewFile(cached, *data))
        return MakeGdalSource(FileName, std::move(data), std::move(ovr));
    const std::vector<int> factors = OverviewFactors(data->GetRasterXSize(), data->GetRasterYSize());
    if (!Options.BuildOverviews || factors.empty())
        return MakeGdalSource(FileName, std::move(data));

    ProbeFarCorner(*data, FileName);
    const std::filesystem::path absolute = std::filesystem::absolute(FileName);
    if (FolderIsWritable(absolute.parent_path().string())) {
        const TSideFile beside = BuildOverviewFile(*data, FileName, FileName + ".ovr", factors, Options.Progress);
        if (beside == sfCancelled)
            RasterFail(FileName, "cancelled");
        if (beside == sfMade) {
            data = OpenRasterDataset(FileName);  // GDAL looks for "<file>.ovr" when it opens the file
            return MakeGdalSource(FileName, std::move(data));
        }
    }
    switch (BuildOverviewFile(*data, FileName, cached, factors, Options.Progress)) {
    case sfMade: break;
    case sfCancelled: RasterFail(FileName, "cancelled");
    case sfUnwritable: return MakeGdalSource(FileName, std::move(data));  // readable at its own size only
    }
    TDatasetPtr ovr = OpenOverviewFile(cached, *data);
    if (!ovr)
        RasterFail(FileName, "cannot read its reduced levels in \"" + cached + "\"");
    return MakeGdalSource(FileName, std::move(data), std::move(ovr));
}

TBitmap ReadWholeLevel(const TImageSource& Source, int Level)
{
    const TSize s = Source.LevelSize(Level);
    return Source.ReadWindow(Level, {0, 0, s.cx, s.cy});
}

}  // namespace qv
