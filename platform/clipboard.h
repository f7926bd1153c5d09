// The system clipboard, for bitmaps.
#pragma once

#include <qvgeo/platform/bitmap.h>

namespace qv {

void CopyBitmapToClipboard(const TBitmap& Bitmap);
// The clipboard's image as a bitmap; false (Bitmap untouched) when it holds none.
bool PasteBitmapFromClipboard(TBitmap& Bitmap);

}  // namespace qv
