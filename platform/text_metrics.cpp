#include <qvgeo/platform/text_metrics.h>

#include <QFont>
#include <QFontMetrics>
#include <QImage>
#include <QString>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <tuple>

namespace qv {

namespace {

// The font TCanvas draws and measures with: pixel size from points at 96 dpi, no anti-aliasing (a test
// compares extents with TCanvas::TextExtent, so the two cannot drift apart unnoticed).
QFont CanvasFont(const TFont& Font)
{
    QFont f(QString::fromStdString(Font.Name));
    f.setPixelSize(std::max(1, static_cast<int>(std::lround(std::abs(Font.Size) * 96.0 / 72.0))));
    f.setBold(Font.Style.Contains(fsBold));
    f.setItalic(Font.Style.Contains(fsItalic));
    f.setUnderline(Font.Style.Contains(fsUnderline));
    f.setStrikeOut(Font.Style.Contains(fsStrikeOut));
    f.setStyleStrategy(QFont::NoAntialias);
    return f;
}

}  // namespace

struct TTextMetrics::TImpl {
    using TKey = std::tuple<std::string, std::int32_t, std::uint8_t>;
    QImage Device{1, 1, QImage::Format_RGB32};  // the kind of paint device the canvas measures on
    std::map<TKey, QFontMetrics> Fonts;
    // The font measured last, found again without a lookup (captions mostly share one font).
    const TKey* LastKey = nullptr;
    const QFontMetrics* Last = nullptr;
};

TTextMetrics::TTextMetrics() : FImpl(std::make_unique<TImpl>()) {}
TTextMetrics::~TTextMetrics() = default;

TSize TTextMetrics::Extent(const TFont& Font, std::string_view Text)
{
    TImpl& d = *FImpl;
    if (!d.Last || std::get<1>(*d.LastKey) != Font.Size || std::get<2>(*d.LastKey) != Font.Style.Bits ||
        std::get<0>(*d.LastKey) != Font.Name) {
        TImpl::TKey key{Font.Name, Font.Size, Font.Style.Bits};
        auto it = d.Fonts.find(key);
        if (it == d.Fonts.end())
            it = d.Fonts.emplace(std::move(key), QFontMetrics(CanvasFont(Font), &d.Device)).first;
        d.LastKey = &it->first;
        d.Last = &it->second;
    }
    const QString s = QString::fromUtf8(Text.data(), static_cast<qsizetype>(Text.size()));
    return {d.Last->horizontalAdvance(s), d.Last->height()};
}

}  // namespace qv
