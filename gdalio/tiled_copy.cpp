// Tiled copies in the cache folder of pictures that cannot be read by window: a JPEG, a PNG or a GIF is
// one compressed stream, so a window near the bottom costs decoding everything above it, and GDAL's WebP
// reader decodes the whole picture into memory at its first read. A tiled GeoTIFF of 256 x 256 tiles with
// AVERAGE reduced levels answers any 1920 x 1080 window with a few dozen tile decodes.
#include <qvgeo/gdalio/gdal_session.h>
#include <qvgeo/gdalio/raster_internal.h>

#include <cpl_conv.h>
#include <cpl_string.h>

#include <filesystem>

namespace qv {

TSideFile WriteTiledCopy(const std::string& File, const std::string& Target, bool Lossy, const TRasterOpenOptions& Options)
{
    return WriteAtomically(Target, [&](const std::string& Temp) {
        TDatasetPtr source = OpenRasterDataset(File);
        const std::vector<int> factors = OverviewFactors(source->GetRasterXSize(), source->GetRasterYSize());
        // A lossy source is coded again as JPEG at quality 90 (YCbCr for colour): a second generation of
        // loss of a few levels, a file of about the source's size, and the fastest tiles to decode. A
        // lossless source stays exact: Deflate at its fastest level.
        const bool ycbcr = Lossy && source->GetRasterCount() == 3;
        GDALDriver* gtiff = GetGDALDriverManager()->GetDriverByName("GTiff");
        CPLStringList options;
        options.SetNameValue("TILED", "YES");
        options.SetNameValue("BLOCKXSIZE", "256");
        options.SetNameValue("BLOCKYSIZE", "256");
        options.SetNameValue("BIGTIFF", "IF_SAFER");
        options.SetNameValue("COMPRESS", Lossy ? "JPEG" : "DEFLATE");
        if (Lossy)
            options.SetNameValue("JPEG_QUALITY", "90");
        else
            options.SetNameValue("ZLEVEL", "1");
        if (ycbcr)
            options.SetNameValue("PHOTOMETRIC", "YCBCR");
        TGdalErrorTrap trap;
        CPLConfigOptionSetter strictJpeg("GDAL_ERROR_ON_LIBJPEG_WARNING", "TRUE", true);
        const std::string failure = "cannot write its tiled copy \"" + Temp + "\"";
        TGdalProgress copying(&Options.Progress, 0.0, 0.75);
        TDatasetPtr out(gtiff->CreateCopy(Temp.c_str(), source.get(), FALSE, options.List(), TGdalProgress::Call,
                                          &copying));
        copying.Rethrow();
        if (copying.Cancelled)
            return false;
        if (!out)
            RasterFail(File, trap.Message(failure));
        CPLConfigOptionSetter compress("COMPRESS_OVERVIEW", Lossy ? "JPEG" : "DEFLATE", true);
        CPLConfigOptionSetter photometric("PHOTOMETRIC_OVERVIEW", ycbcr ? "YCBCR" : nullptr, true);
        CPLConfigOptionSetter quality("JPEG_QUALITY_OVERVIEW", "90", true);
        CPLConfigOptionSetter interleave("INTERLEAVE_OVERVIEW", "PIXEL", true);
        TGdalProgress reducing(&Options.Progress, 0.75, 1.0);
        const CPLErr r = out->BuildOverviews("AVERAGE", static_cast<int>(factors.size()), factors.data(), 0, nullptr,
                                             TGdalProgress::Call, &reducing, nullptr);
        reducing.Rethrow();
        if (reducing.Cancelled)
            return false;
        if (r != CE_None)
            RasterFail(File, trap.Message(failure));
        out->FlushCache(true);
        out.reset();
        if (!trap.LastError().empty())
            RasterFail(File, trap.Message(failure));
        return true;
    });
}

bool ReadsOnlyInSequence(const GDALDataset& Data)
{
    const std::string driver = GDALGetDriverShortName(const_cast<GDALDataset&>(Data).GetDriver());
    return driver == "PNG" || driver == "GIF" || driver == "BIGGIF" || driver == "WEBP";
}

std::unique_ptr<TImageSource> OpenTiledCopy(const std::string& File, TDatasetPtr Data, const TRasterOpenOptions& Options)
{
    const std::string format = GDALGetDriverShortName(Data->GetDriver());
    const std::string target = CacheFileName(CacheFolderOf(Options), File, ".tiles.tif");
    auto fits = [&Data](GDALDataset& Copy) {
        return Copy.GetRasterXSize() == Data->GetRasterXSize() && Copy.GetRasterYSize() == Data->GetRasterYSize() &&
               Copy.GetRasterCount() == Data->GetRasterCount();
    };
    std::error_code ec;
    if (std::filesystem::exists(target, ec)) {
        TDatasetPtr copy = OpenRasterDataset(target);
        if (fits(*copy))
            return MakeGdalSource(File, std::move(copy), {}, format);
    }
    switch (WriteTiledCopy(File, target, false, Options)) {
    case sfMade: break;
    case sfCancelled: RasterFail(File, "cancelled");
    case sfUnwritable: return MakeGdalSource(File, std::move(Data));  // slow windows, but readable
    }
    TDatasetPtr copy = OpenRasterDataset(target);
    if (!fits(*copy))
        RasterFail(File, "its tiled copy \"" + target + "\" does not fit it");
    return MakeGdalSource(File, std::move(copy), {}, format);
}

}  // namespace qv
