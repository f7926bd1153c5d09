// The landmark step of a frame with label options on (see map_labels.h for what they do).
#include <qvgeo/mapview/map_labels_internal.h>

#include <qvgeo/mapview/caption_sprites.h>
#include <qvgeo/mapview/landmark_symbols.h>
#include <qvgeo/mapview/map_render_caches.h>
#include <qvgeo/mapview/map_render_internal.h>
#include <qvgeo/platform/text_metrics.h>
#include <qvgeo/support/math_services.h>

#include <vector>

namespace qv::render_detail {

namespace {

void Symbol(TCanvas& Canvas, TMapRenderCaches* Caches, TPoint P, const TSymbolProperties& Props)
{
    if (Caches)
        Caches->Symbols.Draw(Canvas, P.X, P.Y, Props);
    else
        DrawLandMarkSymbolOnCanvas(Canvas, P.X, P.Y, Props.Kind, Props.FGColor, Props.BGColor, Props.Size,
                                   Props.Direction, Props.Length, Props.Transparent);
}

// The caption Cap (already scaled) with its text's top-left at Origin, for the landmark at P.
void Caption(TCanvas& Canvas, TMapRenderCaches* Caches, TLabelCache& Labels, TPoint P, TPoint Origin,
             const TLMTextProperties& Cap, const TLabelOptions& O, std::size_t Slot)
{
    const std::int32_t halo = O.EffectiveHalo();
    if (halo > 0 || !Caches) {
        DrawHaloCaption(Canvas, Origin, Cap, halo, O.HaloColor, &Labels);
        return;
    }
    // The sprite cache places a caption by its anchor: anchored at its top-left corner with the offset
    // to Origin, it lands there (the sprite does not depend on offset or alignment).
    TLMTextProperties at = Cap;
    at.dx = Origin.X - P.X;
    at.dy = Origin.Y - P.Y;
    at.HAlignment = haLeftJustify;
    at.VAlignment = vaTop;
    Caches->Captions.Draw(Canvas, P, at, Slot);
}

}  // namespace

void DrawLabelledLandMarks(const TMapViewport& View, const TMapSources& S, const TMapAppearance& Look,
                           const TMapRenderEvents& Events, TCanvas& Canvas, TMapRenderCaches* Caches, double P)
{
    const TLabelOptions& O = Look.Labels;
    TLabelCache local;
    TLabelCache& labels = Caches ? Caches->Labels : local;
    const TLandMarkStore& store = *S.LandMarks;
    const auto all = store.LandMarks();
    const double scale = O.EffectiveScale();
    const double mag = View.Magnify();
    if (O.Placement) {
        std::vector<TPlacedLandMark> captions;
        ForEachLabelled(View, store, *S.Fit, O, labels, [&](const TPlacedLandMark& Pl, bool Inside) {
            const TLandMark& lm = all[static_cast<std::size_t>(Pl.Index)];
            if (Events.OnDrawLandmark) {
                bool handled = false;
                Events.OnDrawLandmark(handled, Canvas, Pl.Point, lm);
                if (handled)
                    return;
            }
            if (!Inside)
                return;
            Symbol(Canvas, Caches, Pl.Point, ScaledSymbol(lm.SymbolProps, scale));
            if (Pl.CaptionPlaced)
                captions.push_back(Pl);
        });
        for (const TPlacedLandMark& Pl : captions)
            Caption(Canvas, Caches, labels, Pl.Point, Pl.CaptionOrigin,
                    ScaledCaption(all[static_cast<std::size_t>(Pl.Index)].Caption, scale), O,
                    static_cast<std::size_t>(Pl.Index));
        return;
    }
    const std::int32_t W = View.ControlSize().cx, H = View.ControlSize().cy;
    TTextMetrics metrics;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const TLandMark& lm = all[i];
        if (!store.GetClassVisibility(lm.ClassFlag) || !O.ClassRange[lm.ClassFlag].Holds(mag))
            continue;
        if (P < 1.0 && !(BRandom(1.0) < P))
            continue;
        TMapPixel m;
        if (!S.Fit->CalcPixelCoords(lm.Latitude, lm.Longitude, m.X, m.Y))
            continue;
        const TPoint c = CanvasPixel(View, m);
        if (Events.OnDrawLandmark) {
            bool handled = false;
            Events.OnDrawLandmark(handled, Canvas, c, lm);
            if (handled)
                continue;
        }
        if (!(c.X > 0 && c.X < W && c.Y > 0 && c.Y < H))
            continue;
        Symbol(Canvas, Caches, c, ScaledSymbol(lm.SymbolProps, scale));
        if (lm.Caption.Text.empty())
            continue;
        const TLMTextProperties cap = ScaledCaption(lm.Caption, scale);
        TFont f;
        f.Name = cap.FontName;
        f.Size = cap.Size;
        f.Style = cap.FontStyles;
        const TSize ext = metrics.Extent(f, cap.Text);
        Caption(Canvas, Caches, labels, c, CaptionOrigin(c, cap, ext.cx, ext.cy), cap, O, i);
    }
}

}  // namespace qv::render_detail
