// DrawFrame: the bevelled or flat border drawn around a control's client area.
//
// The rectangle's corners are pixels: the outer ring runs through (Left, Top) and (Right, Bottom), both
// included (a control of W x H pixels passes 0, 0, W - 1, H - 1). Each ring is one pixel wide and has a
// top-left part (the top row without its right end, the left column without its bottom end) and a
// bottom-right part (the rest, so the top-right and bottom-left corner pixels belong to it). The four
// colours are named for their usual values:
//   Color1 highlight (white), Color2 light (silver C0C0C0), Color3 shadow (grey 808080), Color4 dark (black).
//
//   style             outer ring: top-left / bottom-right   inner ring: top-left / bottom-right
//   fsNone            -                                     -
//   fsLowered         Color3 / Color1                       Color4 / Color2     (sunken, the default)
//   fsRaised          Color2 / Color4                       Color1 / Color3
//   fsFlat            Color4 / Color4                       -
//   fsSingleLowered   Color3 / Color1                       -
//   fsSingleRaised    Color1 / Color3                       -
//   fsEtched          Color3 / Color1                       Color1 / Color3     (a groove)
//   fsBump            Color1 / Color3                       Color3 / Color1     (a ridge)
// Pixels inside the frame are not touched. The canvas's pen is restored afterwards.
#pragma once

#include <qvgeo/platform/canvas.h>

#include <cstdint>

namespace qv {

enum TFrameStyle : std::uint8_t {
    fsNone, fsLowered, fsRaised, fsFlat, fsSingleLowered, fsSingleRaised, fsEtched, fsBump
};

void DrawFrame(TCanvas& Canvas, TFrameStyle Style, std::int32_t Left, std::int32_t Top, std::int32_t Right,
               std::int32_t Bottom, TColor Color1, TColor Color2, TColor Color3 = 0x808080,
               TColor Color4 = 0x000000);

}  // namespace qv
