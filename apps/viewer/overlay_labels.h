// Names the viewer draws over its maps itself (capitals, the database's towns), placed so that they never
// overprint each other or another place's dot, each with a halo that keeps it readable over imagery.
#pragma once

#include <qvgeo/platform/canvas.h>

#include <string>
#include <vector>

namespace viewer {

class TOverlayLabels {
public:
    // Halo: pixels of outline in HaloColor around each name (0: none).
    TOverlayLabels(qv::TCanvas& Canvas, qv::TFont Font, int Halo, qv::TColor HaloColor);
    // A dot's box that no name may cover (control pixels, right and bottom exclusive).
    void Reserve(const qv::TRect& Box) { FTaken.push_back(Box); }
    // Draws Text beside the dot at P of half size R in the first free place of right, left, above, below,
    // then the four corners; false (nothing drawn) when none is free.
    bool Place(qv::TPoint P, int R, const std::string& Text);
    int Placed() const { return FPlaced; }
    // The dots reserved and the names placed (each name's box with its halo and a pixel's gap), in order.
    const std::vector<qv::TRect>& Taken() const { return FTaken; }
    int LeftOut() const { return FLeftOut; }

private:
    qv::TCanvas& FCanvas;
    qv::TFont FFont;
    int FHalo;
    qv::TColor FHaloColor;
    std::vector<qv::TRect> FTaken;
    int FPlaced = 0, FLeftOut = 0;
};

}  // namespace viewer
