// Rasters of every format GDAL reads (PNG, TIFF and GeoTIFF, JPEG 2000, WebP, GIF, ... and BMP and JPEG
// too) as a TImageSource: the picture and the file's own reduced levels (overviews), read by window.
//
// Bands become 32-bit RGB pixels: one band with a colour table through the table; one band (or one with
// an alpha band) as grey; three or more bands as red, green and blue (by their colour interpretation when
// the file gives one, else bands 1, 2 and 3). Alpha is ignored: the map is opaque.
#pragma once

#include <qvgeo/platform/image_source.h>

#include <memory>
#include <string>

namespace qv {

struct TRasterOpenOptions {
    // Long steps of the open (building reduced levels of a file that has none); false cancels.
    TSourceProgress Progress;
};

// Opens FileName for reading. Raises EXELImageError "\"<file>\": <GDAL's message>" when GDAL cannot
// open it or it holds no raster bands, and "\"<file>\": cancelled" when Progress cancelled.
std::unique_ptr<TImageSource> OpenRasterSource(const std::string& FileName, const TRasterOpenOptions& Options = {});

// The whole of level Level of Source in one bitmap.
TBitmap ReadWholeLevel(const TImageSource& Source, int Level = 0);

}  // namespace qv
