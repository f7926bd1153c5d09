// Image files for TBitmap: JPEG through libjpeg-turbo (decoded straight into the bitmap's 32-bit rows,
// scanline by scanline, with a progress callback), BMP and PNG through Qt.
//
// Failures raise EXELImageError with the file name first: "\"<file>\": not a JPEG file",
// "\"<file>\": corrupt JPEG data: <decoder's message>", "\"<file>\": cannot open: <reason>". A JPEG the
// decoder only warns about (a truncated file, bytes missing before a marker) counts as corrupt: the map
// must not show half an image as if it were whole.
#pragma once

#include <qvgeo/platform/bitmap.h>
#include <qvgeo/support/errors.h>

#include <cstdint>
#include <functional>
#include <string>

namespace qv {

class EXELImageError : public EXELError {
public:
    using EXELError::EXELError;
};

enum TImageFormat : std::uint8_t { ifUnknown, ifBMP, ifJPEG, ifPNG };

// The format by the file's first bytes (ifUnknown when they name none of the three, or the file cannot be
// read), and by the name's extension (".bmp", ".jpg", ".jpeg", ".jpe", ".png", any case).
TImageFormat ImageFormatOfContent(const std::string& FileName);
TImageFormat ImageFormatOfName(const std::string& FileName);

// Called after each batch of decoded rows with the rows done so far and the rows in all; returning false
// cancels the load.
using TImageProgress = std::function<bool(std::int32_t RowsDone, std::int32_t RowsTotal)>;

// Decodes FileName into Bitmap (resized to the image, or to the image divided by ScaleDenom, rounded up,
// when ScaleDenom is 2, 4 or 8; other values count as 1). The decoder's accurate integer transform is used
// (JDCT_ISLOW) with its default fancy upsampling. Returns false when Progress cancelled: Bitmap is then
// empty. Throws EXELImageError; an exception thrown by Progress passes through unchanged. Either way the
// decoder's memory is released.
bool LoadJPEG(TBitmap& Bitmap, const std::string& FileName, const TImageProgress& Progress = {},
              std::int32_t ScaleDenom = 1);
// Quality 1 .. 100 (clamped), 4:2:0 chroma subsampling, optimised Huffman tables.
void SaveJPEG(const TBitmap& Bitmap, const std::string& FileName, std::int32_t Quality = 90);

void LoadBMP(TBitmap& Bitmap, const std::string& FileName);
void SaveBMP(const TBitmap& Bitmap, const std::string& FileName);
void LoadPNG(TBitmap& Bitmap, const std::string& FileName);
void SavePNG(const TBitmap& Bitmap, const std::string& FileName);

// By content when the first bytes name a format, else by extension; a file that is neither raises
// "\"<file>\": not an image file (BMP, JPEG or PNG)". Returns false when a JPEG load was cancelled.
bool LoadImageFile(TBitmap& Bitmap, const std::string& FileName, const TImageProgress& Progress = {});
// By extension: ".jpg"/".jpeg"/".jpe" at Quality, ".png", anything else BMP.
void SaveImageFile(const TBitmap& Bitmap, const std::string& FileName, std::int32_t JpegQuality = 90);

}  // namespace qv
