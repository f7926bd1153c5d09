#include <qvgeo/platform/cursors.h>

#include <QPixmap>
#include <QString>

#include <map>
#include <string_view>

namespace qv {

namespace {

struct TCursorResource {
    std::string_view Name;
    TCursor Number;
    int HotX, HotY;  // pixel of the 32 x 32 image that points
};

constexpr TCursorResource kPackageCursors[] = {
    {"CURGEOZOOM", crGeoZoom, 12, 12},        // centre of the glass
    {"CURGEOHAND", crGeoHand, 16, 16},
    {"CURGEOZOOMWIN", crGeoZoomWindow, 3, 3},  // the box's top-left corner
    {"CURGEOSELECT", crGeoSelect, 15, 15},
    {"CURGEOLANDMARK", crGeoLandMark, 15, 15},
};

std::map<TCursor, QCursor>& Registry()
{
    static std::map<TCursor, QCursor> registry = [] {
        std::map<TCursor, QCursor> r{
            {crDefault, QCursor(Qt::ArrowCursor)}, {crArrow, QCursor(Qt::ArrowCursor)},
            {crCross, QCursor(Qt::CrossCursor)},   {crIBeam, QCursor(Qt::IBeamCursor)},
            {crSizeAll, QCursor(Qt::SizeAllCursor)}, {crHourGlass, QCursor(Qt::WaitCursor)},
            {crHandPoint, QCursor(Qt::PointingHandCursor)},
        };
        for (const TCursorResource& c : kPackageCursors)
            r[c.Number] = LoadCursorResource(std::string(c.Name));
        return r;
    }();
    return registry;
}

}  // namespace

QCursor LoadCursorResource(const std::string& Name)
{
    for (const TCursorResource& c : kPackageCursors) {
        if (c.Name != Name)
            continue;
        const QPixmap pixmap(QStringLiteral(":/qvgeo/cursors/") + QString::fromStdString(Name) + QStringLiteral(".xpm"));
        if (pixmap.isNull())
            break;
        return QCursor(pixmap, c.HotX, c.HotY);
    }
    return QCursor(Qt::ArrowCursor);
}

void RegisterCursor(TCursor Number, const QCursor& Cursor) { Registry()[Number] = Cursor; }

QCursor GetCursor(TCursor Number)
{
    const auto& r = Registry();
    const auto it = r.find(Number);
    return it == r.end() ? QCursor(Qt::ArrowCursor) : it->second;
}

}  // namespace qv
