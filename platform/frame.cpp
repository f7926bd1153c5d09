// DrawFrame: each ring as two pen strokes that together set every pixel of the ring exactly once.
#include <qvgeo/platform/frame.h>

#include <array>

namespace qv {

namespace {

void Ring(TCanvas& C, std::int32_t L, std::int32_t T, std::int32_t R, std::int32_t B, TColor TopLeft,
          TColor BottomRight)
{
    if (R < L || B < T)
        return;
    C.Pen.Color = TopLeft;
    C.MoveTo(L, B - 1);  // left column from above the bottom-left corner up, then the top row
    C.LineTo(L, T);
    C.LineTo(R, T);
    C.Pen.Color = BottomRight;
    C.MoveTo(L, B);  // bottom row, then the right column up to and including the top-right corner
    C.LineTo(R, B);
    C.LineTo(R, T - 1);
}

}  // namespace

void DrawFrame(TCanvas& Canvas, TFrameStyle Style, std::int32_t Left, std::int32_t Top, std::int32_t Right,
               std::int32_t Bottom, TColor Color1, TColor Color2, TColor Color3, TColor Color4)
{
    struct TRings { int Count; std::array<TColor, 4> Colors; };
    TRings rings{0, {}};
    switch (Style) {
    case fsNone: return;
    case fsLowered: rings = {2, {Color3, Color1, Color4, Color2}}; break;
    case fsRaised: rings = {2, {Color2, Color4, Color1, Color3}}; break;
    case fsFlat: rings = {1, {Color4, Color4}}; break;
    case fsSingleLowered: rings = {1, {Color3, Color1}}; break;
    case fsSingleRaised: rings = {1, {Color1, Color3}}; break;
    case fsEtched: rings = {2, {Color3, Color1, Color1, Color3}}; break;
    case fsBump: rings = {2, {Color1, Color3, Color3, Color1}}; break;
    default: return;
    }
    const TPen saved = Canvas.Pen;
    const TPoint savedPos = Canvas.PenPos();
    Canvas.Pen = TPen{};
    for (int i = 0; i < rings.Count; ++i)
        Ring(Canvas, Left + i, Top + i, Right - i, Bottom - i, rings.Colors[2 * i], rings.Colors[2 * i + 1]);
    Canvas.Pen = saved;
    Canvas.MoveTo(savedPos.X, savedPos.Y);
}

}  // namespace qv
