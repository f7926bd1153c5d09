#include "overlay_labels.h"

#include <qvgeo/geomap/landmark_types.h>
#include <qvgeo/mapview/map_labels.h>

#include <algorithm>

namespace viewer {

namespace {

bool Overlap(const qv::TRect& A, const qv::TRect& B)
{
    return A.Left < B.Right && B.Left < A.Right && A.Top < B.Bottom && B.Top < A.Bottom;
}

}  // namespace

TOverlayLabels::TOverlayLabels(qv::TCanvas& Canvas, qv::TFont Font, int Halo, qv::TColor HaloColor)
    : FCanvas(Canvas), FFont(std::move(Font)), FHalo(std::max(Halo, 0)), FHaloColor(HaloColor)
{
}

bool TOverlayLabels::Place(qv::TPoint P, int R, const std::string& Text)
{
    FCanvas.Font = FFont;
    const qv::TSize e = FCanvas.TextExtent(Text);
    const int gap = 2 + FHalo;  // between the dot and the text's halo
    const int w = e.cx, h = e.cy;
    // Text origins (top-left) tried in order; the box around each is the text with its halo.
    const qv::TPoint origins[] = {
        {P.X + R + gap, P.Y - h / 2},     {P.X - R - gap - w, P.Y - h / 2}, {P.X - w / 2, P.Y - R - gap - h},
        {P.X - w / 2, P.Y + R + gap},     {P.X + R + gap, P.Y - R - h},     {P.X - R - gap - w, P.Y - R - h},
        {P.X + R + gap, P.Y + R},         {P.X - R - gap - w, P.Y + R}};
    for (const qv::TPoint o : origins) {
        // One pixel more all round keeps two names apart rather than touching.
        const qv::TRect box{o.X - FHalo - 1, o.Y - FHalo - 1, o.X + w + FHalo + 1, o.Y + h + FHalo + 1};
        if (std::any_of(FTaken.begin(), FTaken.end(), [&](const qv::TRect& t) { return Overlap(box, t); }))
            continue;
        FTaken.push_back(box);
        qv::TLMTextProperties caption = qv::DefaultLandMarkRecord().Caption;
        caption.Text = Text;
        caption.Size = FFont.Size;
        caption.FontName = FFont.Name;
        caption.FGColor = FFont.Color;
        caption.Transparent = true;
        qv::DrawHaloCaption(FCanvas, o, caption, FHalo, FHaloColor);
        ++FPlaced;
        return true;
    }
    ++FLeftOut;
    return false;
}

}  // namespace viewer
