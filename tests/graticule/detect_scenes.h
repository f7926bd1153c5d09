// Test scenes for the graticule finder: grids drawn analytically (each pixel darkened by its exact distance
// from the nearest line), so that every intersection is known exactly, then degraded like a scan.
#pragma once

#include <qvgeo/graticule/graticule_detect.h>

#include <cstdint>
#include <string>
#include <vector>

namespace qvtest {

struct TDetectScene {
    int Width = 900, Height = 700;
    bool Conic = false;
    // Straight grid: lines at Spacing multiples about the centre (CX, CY), turned clockwise by Rotation.
    double CX = 450.0, CY = 350.0, Rotation = 0.0, SpacingX = 110.0, SpacingY = 90.0;
    // Conic grid: parallels are circles about the apex (AX, AY) of radius R0 + i·DR, meridians rays at
    // angles A0 + j·DA (radians, from straight down, positive towards +x).
    double AX = 450.0, AY = -1500.0, R0 = 1600.0, DR = 100.0, A0 = -0.2, DA = 0.05;
    int Rows = 6, Cols = 7;            // lines of each family (parallels, meridians)
    std::vector<int> SkipRows;         // parallels not drawn
    double LineWidth = 1.5;            // pixels
    int Darkness = 150;                // grey levels below the paper
    bool Dashed = false;               // 4 on, 2 off along the line
    double Blur = 0.0, Noise = 0.0;    // Gaussian sigma (pixels), noise sigma (grey levels)
    int JpegQuality = 0;               // 0: no compression
    bool Frame = false;                // a black frame FrameGap pixels outside the grid's outer lines
    double FrameGap = 17.0;
    bool Clutter = false;              // text, roads and a filled area over the grid
    std::uint64_t Seed = 1;
};

struct TDrawnScene {
    int Width = 0, Height = 0;
    std::vector<std::uint8_t> Grey;
    // Nodes[i][j]: the exact crossing of parallel i and meridian j (drawn or not).
    std::vector<std::vector<std::pair<double, double>>> Nodes;
    std::vector<bool> RowDrawn;
    qv::TGreyImage Image() const { return {Grey.data(), Width, Height, Width}; }
};

TDrawnScene DrawScene(const TDetectScene& S);

// The JPEG round trip of a grey image at Quality, through the library's own codec.
std::vector<std::uint8_t> JpegRoundTrip(const std::vector<std::uint8_t>& Grey, int Width, int Height, int Quality);

// Paper with map content and no grid: uneven light, text, roads, rivers, a filled area.
std::vector<std::uint8_t> DrawClutter(std::vector<std::uint8_t> Grey, int Width, int Height, std::uint64_t Seed,
                                      bool Text, bool Shapes);

}  // namespace qvtest
