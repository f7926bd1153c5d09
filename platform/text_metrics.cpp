#include <qvgeo/platform/text_metrics.h>

#include <qvgeo/platform/canvas.h>

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
            it = d.Fonts.emplace(std::move(key), QFontMetrics(MakeQFont(Font), &d.Device)).first;
        d.LastKey = &it->first;
        d.Last = &it->second;
    }
    const QString s = QString::fromUtf8(Text.data(), static_cast<qsizetype>(Text.size()));
    return {d.Last->horizontalAdvance(s), d.Last->height()};
}

}  // namespace qv
