// Rasters of every format GDAL reads (PNG, TIFF and GeoTIFF, JPEG 2000, WebP, GIF, ... and BMP and JPEG
// too) as a TImageSource: the picture and its reduced levels, read by window.
//
// Bands become 32-bit RGB pixels: one band with a colour table through the table; one band as grey;
// three or more as red, green and blue (by their colour interpretation when the file gives one, else
// bands 1, 2 and 3); cyan, magenta, yellow and black bands as RGB. Bytes are shown as they are; 16-bit,
// 32-bit and float bands are stretched from their minimum .. maximum onto 0 .. 255 (the file's stored
// statistics, else GDAL's approximate range from a sample of the picture). An alpha band is laid over
// white paper, and pixels whose bands all hold the nodata value (or NaN) are white: the map is opaque.
//
// What OpenRasterSource does by file:
// - a picture of at most 4096 x 4096 pixels, or one with reduced levels of its own (a tiled TIFF with
//   overviews, a JPEG 2000, a "<file>.ovr" beside it): opened straight through GDAL;
// - a larger picture without reduced levels (a 300-megapixel TIFF in strips or tiles): on first open,
//   AVERAGE levels reduced by 2, 4, 8, ... down to about 256 pixels are built into GDAL's "<file>.ovr"
//   beside it when its folder is writable, else into the cache folder (below), with Progress. Later
//   opens find them there. The picture's own file is never written;
// - a larger PNG, GIF or WebP (one compressed stream, or decoded whole): on first open, an exact tiled
//   copy (Deflate) with reduced levels in the cache folder, with Progress; later opens use it;
// - a JPEG larger than 4096 x 4096 (a scan of hundreds of megapixels, which has no random access): the
//   open decodes it at 1/8 scale (0.63 s for 300 megapixels here) and serves the levels reduced by 8
//   and more from that at once. The first read of a level reduced by less (1, 2 or 4) converts the
//   file, once, into a tiled JPEG-compressed TIFF with reduced levels in the cache folder, blocking with
//   Progress (the one kept from the open); later reads and later opens use that copy, where a
//   1920 x 1080 window costs a few decoded tiles.
//
// The cache folder is TRasterOpenOptions::CacheFolder, or $XDG_CACHE_HOME/qvgeo/overviews, or
// ~/.cache/qvgeo/overviews. Its files are named "<leaf>.<hash>.ovr" and "<leaf>.<hash>.tiles.tif", the
// hash taken over the picture's absolute path, size and modification time, so a changed picture gets
// new ones; nothing is removed from it automatically (delete the folder to reclaim the space). Every
// side file is written under a temporary name and renamed when complete, so a cancelled or interrupted
// build leaves nothing that a later open would read.
#pragma once

#include <qvgeo/platform/image_source.h>

#include <cstdint>
#include <memory>
#include <string>

namespace qv {

struct TRasterOpenOptions {
    // Long steps (decoding a huge JPEG, building reduced levels or the tiled copy); false cancels. Kept
    // by the source for the tiled copy of a huge JPEG, which is made at its first full-resolution read.
    TSourceProgress Progress;
    // False: write no side files; a large picture without reduced levels is read at its own size only,
    // and a huge JPEG's full-resolution windows are decoded from the file's start on every read.
    bool BuildOverviews = true;
    // Where side files go when the picture's folder is not writable, and the tiled copies of huge
    // JPEGs; empty: the per-user cache folder.
    std::string CacheFolder;
    // A picture of more pixels than this without reduced levels gets them built; a JPEG of more is served
    // as a huge scan (above).
    std::int64_t LargePixels = std::int64_t(4096) * 4096;
};

// Opens FileName for reading. Raises EXELImageError "\"<file>\": <GDAL's message>" when GDAL cannot
// open it or it holds no raster bands, and "\"<file>\": cancelled" when Progress cancelled.
std::unique_ptr<TImageSource> OpenRasterSource(const std::string& FileName, const TRasterOpenOptions& Options = {});

// The whole of level Level of Source in one bitmap.
TBitmap ReadWholeLevel(const TImageSource& Source, int Level = 0);

}  // namespace qv
