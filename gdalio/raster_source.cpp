// The GDAL raster source: one open dataset per source, read band by band straight into the bitmap's
// rows. GDAL datasets are not safe to share between threads; a source is used on one thread at a time.
#include <qvgeo/gdalio/raster_source.h>

#include <qvgeo/gdalio/gdal_session.h>
#include <qvgeo/platform/image_files.h>

#include <gdal_priv.h>

#include <algorithm>
#include <array>
#include <vector>

namespace qv {

namespace {

struct TDatasetCloser {
    void operator()(GDALDataset* D) const noexcept { GDALClose(D); }
};
using TDatasetPtr = std::unique_ptr<GDALDataset, TDatasetCloser>;

[[noreturn]] void Fail(const std::string& File, const std::string& Text)
{
    throw EXELImageError("\"" + File + "\": " + Text);
}

class TGdalRaster final : public TImageSource {
public:
    TGdalRaster(std::string File, TDatasetPtr Dataset) : FFile(std::move(File)), FData(std::move(Dataset))
    {
        ChooseBands();
        GDALRasterBand* first = FData->GetRasterBand(FBands[0]);
        FLevels.push_back({FData->GetRasterXSize(), FData->GetRasterYSize()});
        for (int i = 0; i < first->GetOverviewCount(); ++i) {
            GDALRasterBand* o = first->GetOverview(i);
            if (o)
                FLevels.push_back({o->GetXSize(), o->GetYSize()});
        }
    }

    TSize Size() const override { return FLevels[0]; }
    int LevelCount() const override { return static_cast<int>(FLevels.size()); }
    TSize LevelSize(int Level) const override { return FLevels.at(static_cast<std::size_t>(Level)); }
    std::string FormatName() const override { return GDALGetDriverShortName(FData->GetDriver()); }

    TBitmap ReadWindow(int Level, TRect Window) const override
    {
        const TSize size = LevelSize(Level);
        TBitmap out(std::max(Window.Width(), 0), std::max(Window.Height(), 0));
        const TRect part{std::max(Window.Left, 0), std::max(Window.Top, 0), std::min(Window.Right, size.cx),
                         std::min(Window.Bottom, size.cy)};
        if (part.IsEmpty())
            return out;
        TGdalErrorTrap trap;
        const std::int32_t w = part.Width(), h = part.Height();
        const GSpacing stride = out.Image().bytesPerLine();
        // RGB32 words are 0xffRRGGBB, little-endian in memory: blue, green, red, alpha bytes.
        auto* base = out.ScanLine(part.Top - Window.Top) + (part.Left - Window.Left);
        auto* bytes = reinterpret_cast<GByte*>(base);
        if (FPalette.empty() && FBands.size() == 3) {
            for (int c = 0; c < 3; ++c)
                Read(Level, FBands[static_cast<std::size_t>(c)], part, bytes + (2 - c), 4, stride, trap);
            return out;
        }
        std::vector<GByte> row(static_cast<std::size_t>(w) * h);
        Read(Level, FBands[0], part, row.data(), 1, w, trap);
        for (std::int32_t y = 0; y < h; ++y) {
            std::uint32_t* d = out.ScanLine(part.Top - Window.Top + y) + (part.Left - Window.Left);
            const GByte* s = row.data() + static_cast<std::size_t>(y) * w;
            for (std::int32_t x = 0; x < w; ++x) {
                const std::uint32_t v = s[x];
                d[x] = FPalette.empty() ? 0xFF000000u | v << 16 | v << 8 | v : FPalette[v];
            }
        }
        return out;
    }

private:
    void ChooseBands()
    {
        const int n = FData->GetRasterCount();
        if (n < 1)
            Fail(FFile, "no raster bands");
        GDALRasterBand* b1 = FData->GetRasterBand(1);
        if (const GDALColorTable* table = b1->GetColorTable(); table && n < 3) {
            FPalette.assign(256, 0xFF000000u);
            for (int i = 0; i < std::min(table->GetColorEntryCount(), 256); ++i) {
                GDALColorEntry e{};
                table->GetColorEntryAsRGB(i, &e);
                FPalette[static_cast<std::size_t>(i)] =
                    0xFF000000u | std::uint32_t(e.c1 & 0xFF) << 16 | std::uint32_t(e.c2 & 0xFF) << 8 | (e.c3 & 0xFF);
            }
        }
        if (n < 3) {
            FBands = {1};
            return;
        }
        std::array<int, 3> rgb{0, 0, 0};
        for (int i = 1; i <= n; ++i) {
            switch (FData->GetRasterBand(i)->GetColorInterpretation()) {
            case GCI_RedBand: rgb[0] = rgb[0] ? rgb[0] : i; break;
            case GCI_GreenBand: rgb[1] = rgb[1] ? rgb[1] : i; break;
            case GCI_BlueBand: rgb[2] = rgb[2] ? rgb[2] : i; break;
            default: break;
            }
        }
        if (!rgb[0] || !rgb[1] || !rgb[2])
            rgb = {1, 2, 3};
        FBands.assign(rgb.begin(), rgb.end());
    }

    GDALRasterBand* Band(int Level, int Number) const
    {
        GDALRasterBand* b = FData->GetRasterBand(Number);
        return Level == 0 ? b : b->GetOverview(Level - 1);
    }

    void Read(int Level, int Number, TRect Part, GByte* Into, GSpacing PixelSpace, GSpacing LineSpace,
              const TGdalErrorTrap& Trap) const
    {
        GDALRasterBand* b = Band(Level, Number);
        if (!b || b->RasterIO(GF_Read, Part.Left, Part.Top, Part.Width(), Part.Height(), Into, Part.Width(),
                              Part.Height(), GDT_Byte, PixelSpace, LineSpace, nullptr) != CE_None)
            Fail(FFile, Trap.Message("cannot read the picture"));
    }

    std::string FFile;
    TDatasetPtr FData;
    std::vector<int> FBands;             // 1-based band numbers read: one (grey or palette) or red, green, blue
    std::vector<std::uint32_t> FPalette; // 256 RGB32 entries for a palette band, else empty
    std::vector<TSize> FLevels;
};

}  // namespace

std::unique_ptr<TImageSource> OpenRasterSource(const std::string& FileName, const TRasterOpenOptions&)
{
    TGdalErrorTrap trap;
    TDatasetPtr data(GDALDataset::Open(FileName.c_str(), GDAL_OF_RASTER | GDAL_OF_READONLY));
    if (!data)
        Fail(FileName, trap.Message("GDAL cannot open it"));
    return std::make_unique<TGdalRaster>(FileName, std::move(data));
}

TBitmap ReadWholeLevel(const TImageSource& Source, int Level)
{
    const TSize s = Source.LevelSize(Level);
    return Source.ReadWindow(Level, {0, 0, s.cx, s.cy});
}

}  // namespace qv
