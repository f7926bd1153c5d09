// TTextMetrics: text extents in many fonts, the same numbers TCanvas::TextExtent gives, without resolving
// the font again for every text. Measuring thousands of captions (the label placement measures every
// caption it considers) through TextExtent spends most of its time building a font and its metrics per
// call; here the metrics of each font are kept, so a text costs one advance computation.
#pragma once

#include <qvgeo/platform/canvas.h>

#include <cstdint>
#include <memory>
#include <string_view>

namespace qv {

class TTextMetrics {
public:
    TTextMetrics();
    TTextMetrics(const TTextMetrics&) = delete;
    TTextMetrics& operator=(const TTextMetrics&) = delete;
    ~TTextMetrics();

    // Unrotated width and height in pixels of Text in Font (name, size, styles; colour and orientation do
    // not matter), as TCanvas::TextExtent measures it.
    TSize Extent(const TFont& Font, std::string_view Text);

private:
    struct TImpl;
    std::unique_ptr<TImpl> FImpl;
};

}  // namespace qv
