#include <qvgeo/platform/clipboard.h>

#include <QClipboard>
#include <QGuiApplication>

namespace qv {

void CopyBitmapToClipboard(const TBitmap& Bitmap) { QGuiApplication::clipboard()->setImage(Bitmap.Image()); }

bool PasteBitmapFromClipboard(TBitmap& Bitmap)
{
    QImage image = QGuiApplication::clipboard()->image();
    if (image.isNull())
        return false;
    Bitmap = TBitmap(std::move(image));
    return true;
}

}  // namespace qv
