// Pieces shared by the files of the GDAL raster source: the dataset handle, GDAL's progress callback
// over TSourceProgress, the per-user cache folder and the side files written there or beside a picture.
#pragma once

#include <qvgeo/gdalio/raster_source.h>

#include <gdal_priv.h>

#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace qv {

// Closing may flush and warn: quietly.
struct TDatasetCloser {
    void operator()(GDALDataset* D) const noexcept;
};
using TDatasetPtr = std::unique_ptr<GDALDataset, TDatasetCloser>;

[[noreturn]] void RasterFail(const std::string& File, const std::string& Text);

// Opens File read-only as a raster; raises "\"<file>\": <GDAL's message>".
TDatasetPtr OpenRasterDataset(const std::string& File);

// GDAL's progress callback over a TSourceProgress, reporting a part [From, To] of a step of
// kProgressTotal units. An exception thrown by Progress is kept (GDAL is C and must not be unwound
// through) and GDAL is told to stop; Rethrow() raises it once GDAL has returned.
constexpr std::int64_t kProgressTotal = 1000;
struct TGdalProgress {
    explicit TGdalProgress(const TSourceProgress* P, double F = 0.0, double T = 1.0) : Progress(P), From(F), To(T) {}
    const TSourceProgress* Progress = nullptr;
    double From = 0.0, To = 1.0;
    bool Cancelled = false;
    std::exception_ptr Thrown;

    static int CPL_STDCALL Call(double Complete, const char* Message, void* Data);
    void Rethrow() const
    {
        if (Thrown)
            std::rethrow_exception(Thrown);
    }
};

// Reduction factors 2, 4, 8, ... while the reduced picture's longer side stays at least 256 pixels.
std::vector<int> OverviewFactors(int Width, int Height);
// The size GDAL gives a level reduced by Factor: the division rounded up.
inline int ReducedSide(int Side, int Factor) { return (Side + Factor - 1) / Factor; }

// The folder of per-user side files: Options.CacheFolder when set, else $XDG_CACHE_HOME/qvgeo/overviews,
// else $HOME/.cache/qvgeo/overviews. Created on demand.
std::string CacheFolderOf(const TRasterOpenOptions& Options);
// The name of File's side file in Folder: its leaf, a 64-bit hash of its absolute path, size and
// modification time, and Suffix ("photo.jpg.1f3a...c2.ovr"). A file that changes gets a new name, so a
// stale side file is never read (it stays until the cache is cleared).
std::string CacheFileName(const std::string& Folder, const std::string& File, const std::string& Suffix);
bool FolderIsWritable(const std::string& Folder);

// What became of a side file: written, cancelled by the progress callback, or not even begun because its
// folder cannot be written (then the picture is read without it).
enum TSideFile : std::uint8_t { sfMade, sfCancelled, sfUnwritable };

// Writes Target through Write(temporary name) and renames it into place only when Write returns true,
// so that an interrupted or cancelled write never leaves a file under Target's name. Removes the
// temporary on every path.
TSideFile WriteAtomically(const std::string& Target, const std::function<bool(const std::string& Temp)>& Write);

// Builds AVERAGE overviews of every band of Data into an external overview file Target (GDAL's ".ovr"
// layout), atomically. Raises when GDAL fails.
TSideFile BuildOverviewFile(GDALDataset& Data, const std::string& File, const std::string& Target,
                       const std::vector<int>& Factors, const TSourceProgress& Progress);

// A white bitmap of Window's size; raises "\"<file>\": a window of W x H pixels is too large" when it
// cannot be had.
TBitmap WindowBitmap(const std::string& File, TRect Window);

// The GDAL source over an open dataset; Overviews, when given, is an external overview file whose first
// page is level 1. Format is what FormatName() reports (empty: the driver's short name).
std::unique_ptr<TImageSource> MakeGdalSource(std::string File, TDatasetPtr Data, TDatasetPtr Overviews = {},
                                             std::string Format = {});

// Copies File into a tiled GeoTIFF Target with AVERAGE reduced levels (JPEG tiles when Lossy, else
// Deflate), atomically, reporting to Options.Progress. Raises when GDAL fails.
TSideFile WriteTiledCopy(const std::string& File, const std::string& Target, bool Lossy, const TRasterOpenOptions& Options);
// Formats that GDAL reads only from the start (PNG, GIF) or whole (WebP).
bool ReadsOnlyInSequence(const GDALDataset& Data);
// A large picture of such a format through its tiled copy in the cache folder, made on first open.
std::unique_ptr<TImageSource> OpenTiledCopy(const std::string& File, TDatasetPtr Data, const TRasterOpenOptions& Options);

// The source of a JPEG too large to decode whole (over Options.LargePixels).
std::unique_ptr<TImageSource> OpenHugeJpeg(const std::string& File, TDatasetPtr Data,
                                           const TRasterOpenOptions& Options);

}  // namespace qv
