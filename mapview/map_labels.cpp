// Label placement and drawing. The placement runs in "scaled map" pixels: G = floor(map pixel x
// magnification), 64-bit. The control point of a landmark is Round((map pixel - TopLeft) x magnification),
// so G and the control point of two landmarks differ by the same amount up to one pixel either way; every
// box is therefore grown by one pixel to the right and bottom before it is compared (boxes that do not
// touch in G space keep a pixel between them, which the rounding cannot close).
//
// A box of a caption at its own anchor is grown by one more pixel all round: the anchor rounds half to even
// after adding the control point, so the origin moves by a pixel with the point's parity.
#include <qvgeo/mapview/map_labels.h>
#include <qvgeo/mapview/map_labels_internal.h>

#include <qvgeo/mapview/caption_sprites.h>
#include <qvgeo/mapview/map_render_caches.h>
#include <qvgeo/mapview/map_render_internal.h>
#include <qvgeo/platform/text_metrics.h>
#include <qvgeo/support/math_services.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <unordered_map>

namespace qv {

// ---- options ----

bool TLabelOptions::Active() const
{
    if (Placement || EffectiveScale() != 1.0 || EffectiveHalo() > 0)
        return true;
    return std::any_of(ClassRange.begin(), ClassRange.end(), [](const TMagRange& R) { return !(R == TMagRange{}); });
}

double TLabelOptions::EffectiveScale() const
{
    return std::isnan(Scale) ? 1.0 : std::clamp(Scale, 0.25, 8.0);
}

std::int32_t TLabelOptions::EffectiveHalo() const { return std::clamp<std::int32_t>(HaloWidth, 0, 8); }

TSymbolProperties ScaledSymbol(const TSymbolProperties& Props, double Scale)
{
    TSymbolProperties p = Props;
    if (Scale != 1.0) {
        p.Size = static_cast<std::int32_t>(std::lround(Props.Size * Scale));
        p.Length = static_cast<std::int32_t>(std::lround(Props.Length * Scale));
    }
    return p;
}

TLMTextProperties ScaledCaption(const TLMTextProperties& Caption, double Scale)
{
    TLMTextProperties c = Caption;
    if (Scale != 1.0) {
        c.Size = static_cast<std::int32_t>(std::lround(Caption.Size * Scale));
        c.dx = static_cast<std::int32_t>(std::lround(Caption.dx * Scale));
        c.dy = static_cast<std::int32_t>(std::lround(Caption.dy * Scale));
    }
    return c;
}

TRect SymbolBox(TPoint P, const TSymbolProperties& Props)
{
    // Sizes beyond any screen are limited so that the box arithmetic stays in range.
    const std::int32_t s = std::min(std::abs(Props.Size), 1 << 20);
    switch (Props.Kind) {
    case lmUserDef:
        return {P.X, P.Y, P.X + 1, P.Y + 1};  // the application's own drawing: keep its point free
    case lmArrowFrom:
    case lmArrowTo: {
        const double a = Props.Direction * 3.141592653589793 / 180.0;
        const double L = std::clamp<double>(Props.Length, -(1 << 20), 1 << 20);
        const std::int32_t tx = P.X + static_cast<std::int32_t>(std::lround(L * std::sin(a)));
        const std::int32_t ty = P.Y + static_cast<std::int32_t>(std::lround(-L * std::cos(a)));
        return {std::min(P.X, tx) - s - 1, std::min(P.Y, ty) - s - 1, std::max(P.X, tx) + s + 2,
                std::max(P.Y, ty) + s + 2};
    }
    default:
        if (Props.Kind > lmUserDef)
            return {P.X - 4, P.Y - 4, P.X + 5, P.Y + 5};
        // Plus and cross reach s + 1 beyond the point with their halo, the others s.
        return {P.X - s - 1, P.Y - s - 1, P.X + s + 2, P.Y + s + 2};
    }
}

namespace {
std::int32_t Candidates(const TLMTextProperties& Cap, std::int32_t W, std::int32_t H, const TRect& Sym,
                        std::int32_t Halo, bool Placement, std::array<TPoint, 9>& Out);
TRect CaptionBoxRel(TPoint O, const TLMTextProperties& Cap, std::int32_t W, std::int32_t H, std::int32_t Halo);
}  // namespace

std::vector<TRect> CaptionCandidateBoxes(const TLMTextProperties& Caption, TSize Extent, const TRect& Sym,
                                         std::int32_t Halo, bool Placement)
{
    std::array<TPoint, 9> cand;
    const std::int32_t n = Candidates(Caption, Extent.cx, Extent.cy, Sym, Halo, Placement, cand);
    std::vector<TRect> out;
    for (std::int32_t k = 0; k < n; ++k)
        out.push_back(CaptionBoxRel(cand[static_cast<std::size_t>(k)], Caption, Extent.cx, Extent.cy, Halo));
    return out;
}

// ---- the cache ----

namespace {

struct TItem {
    std::int32_t Index = 0;  // in the store, 0-based
    std::int32_t MX = 0, MY = 0;
    bool Valid = false;      // the fit gave a pixel
    std::int32_t W = -1, H = -1;  // caption extent (scaled font), -1 until measured
    TRect SymRel;            // symbol box relative to the control point
};

struct TBox {
    std::int64_t L, T, R, B;
    std::int32_t Owner;  // item number; symbols of an item do not block its own caption
    bool Symbol;
};

struct THaloSprite {
    std::int32_t OX = 0, OY = 0, W = 0, H = 0;  // relative to the text origin
    std::vector<std::uint32_t> Pixels;          // 0 = untouched, else 0xff000000 | rgb
    bool Direct = false;
};

}  // namespace

struct TLabelCache::TImpl {
    // The store's items, for one store state and one scale.
    const TLandMarkStore* Store = nullptr;
    std::uint64_t Revision = 0;
    const TLandMark* Data = nullptr;
    std::int32_t Count = -1;
    const TCalibFit* Fit = nullptr;
    std::array<double, 7> FitPrint{};
    double Scale = 0;
    bool TagIsPriority = false;
    std::array<std::int32_t, 256> ClassPriority{};
    std::vector<TItem> Items;
    std::vector<std::int32_t> Order;  // item numbers by priority

    // The placement for one magnification and domain.
    bool HavePlacement = false;
    double Mag = 0;
    std::int64_t DomainX = 0, DomainY = 0;
    bool Whole = false;
    TLabelOptions Options;
    std::vector<std::int32_t> Shown;     // items in the domain that show, store order
    std::vector<std::int8_t> Candidate;  // per item: -1 not placed
    std::vector<TPoint> OriginRel;       // per item: the caption origin relative to the control point
    std::uint64_t Placements = 0;

    TTextMetrics Metrics;
    std::string HeightFont;  // LineHeight's font
    std::int32_t HeightSize = -1, Height = 0;
    std::uint8_t HeightStyles = 0;
    std::unordered_map<std::string, THaloSprite> Halos;
    std::size_t HaloBytes = 0;
    TBitmap Scratch;
};

TLabelCache::TLabelCache() : FImpl(std::make_unique<TImpl>()) {}
TLabelCache::~TLabelCache() = default;
std::uint64_t TLabelCache::Placements() const { return FImpl->Placements; }

namespace {

// Cells of 16 pixels (about a symbol: a probe then reads few boxes that miss it), larger on a large domain
// so that the index stays within a million cells.
std::int32_t CellBitsFor(std::int64_t W, std::int64_t H)
{
    const std::int64_t m = std::max(W, H);
    return m <= 16384 ? 4 : m <= 32768 ? 5 : 6;
}

// Boxes by 64-pixel cells. Symbols come first and all at once: they are kept per cell in one array
// (counted, then filled), so a query reads each cell's symbols from consecutive memory; captions, far
// fewer, are added one by one to per-cell lists. Coordinates are kept relative to the domain's corner.
class TGridIndex {
public:
    TGridIndex(std::int64_t X0, std::int64_t Y0, std::int64_t W, std::int64_t H)
        : FX0(X0), FY0(Y0), FBits(CellBitsFor(W, H)), FCols(static_cast<std::int32_t>((W >> FBits) + 1)),
          FRows(static_cast<std::int32_t>((H >> FBits) + 1)),
          FHead(static_cast<std::size_t>(FCols) * static_cast<std::size_t>(FRows), -1)
    {
    }
    void AddSymbols(const std::vector<TBox>& Boxes)
    {
        FStart.assign(FHead.size() + 1, 0);
        for (const TBox& b : Boxes)
            ForCells(b, [&](std::size_t Cell) { return ++FStart[Cell + 1], false; });
        for (std::size_t c = 1; c < FStart.size(); ++c)
            FStart[c] += FStart[c - 1];
        FSymbols.resize(static_cast<std::size_t>(FStart.back()));
        std::vector<std::int32_t> fill(FStart.begin(), FStart.end() - 1);
        for (const TBox& b : Boxes) {
            const TCellBox cb = Rel(b);
            ForCells(b, [&](std::size_t Cell) { return FSymbols[static_cast<std::size_t>(fill[Cell]++)] = cb, false; });
        }
    }
    void Add(const TBox& B)
    {
        const TCellBox cb = Rel(B);
        ForCells(B, [&](std::size_t Cell) {
            FCaptions.push_back({cb, FHead[Cell]});
            FHead[Cell] = static_cast<std::int32_t>(FCaptions.size() - 1);
            return false;
        });
    }
    // Whether B meets a caption or a symbol other than its owner's.
    bool Blocked(const TBox& B) const
    {
        const TCellBox q = Rel(B);
        auto meets = [&](const TCellBox& O) { return O.L < q.R && q.L < O.R && O.T < q.B && q.T < O.B; };
        return ForCells(B, [&](std::size_t Cell) {
            if (!FStart.empty()) {
                for (std::int32_t e = FStart[Cell], end = FStart[Cell + 1]; e < end; ++e) {
                    const TCellBox& o = FSymbols[static_cast<std::size_t>(e)];
                    if (meets(o) && o.Owner != q.Owner)
                        return true;
                }
            }
            for (std::int32_t e = FHead[Cell]; e >= 0; e = FCaptions[static_cast<std::size_t>(e)].Next)
                if (meets(FCaptions[static_cast<std::size_t>(e)].Box))
                    return true;
            return false;
        });
    }

private:
    struct TCellBox {
        std::int32_t L, T, R, B, Owner;
    };
    struct TCaptionEntry {
        TCellBox Box;
        std::int32_t Next;
    };
    TCellBox Rel(const TBox& B) const
    {
        auto rel = [](std::int64_t V, std::int64_t Origin) {
            return static_cast<std::int32_t>(std::clamp<std::int64_t>(V - Origin, -(std::int64_t{1} << 30), std::int64_t{1} << 30));
        };
        return {rel(B.L, FX0), rel(B.T, FY0), rel(B.R, FX0), rel(B.B, FY0), B.Owner};
    }
    template <class F>
    bool ForCells(const TBox& B, F&& Visit) const
    {
        auto cell = [this](std::int64_t V, std::int64_t Origin, std::int32_t N) {
            return static_cast<std::int32_t>(std::clamp<std::int64_t>((V - Origin) >> FBits, 0, N - 1));
        };
        const std::int32_t c0 = cell(B.L, FX0, FCols), c1 = cell(B.R - 1, FX0, FCols);
        const std::int32_t r0 = cell(B.T, FY0, FRows), r1 = cell(B.B - 1, FY0, FRows);
        for (std::int32_t r = r0; r <= r1; ++r)
            for (std::int32_t c = c0; c <= c1; ++c)
                if (Visit(static_cast<std::size_t>(r) * static_cast<std::size_t>(FCols) + static_cast<std::size_t>(c)))
                    return true;
        return false;
    }
    std::int64_t FX0, FY0;
    std::int32_t FBits, FCols, FRows;
    std::vector<std::int32_t> FStart;  // symbols of cell c: FSymbols[FStart[c] .. FStart[c + 1])
    std::vector<TCellBox> FSymbols;
    std::vector<std::int32_t> FHead;   // captions of a cell: a list through FCaptions
    std::vector<TCaptionEntry> FCaptions;
};

// Rebuilds the items when the store, the fit, the scale or the priorities changed.
void SyncItems(TLabelCache::TImpl& C, const TLandMarkStore& Store, const TCalibFit& Fit, const TLabelOptions& O)
{
    const auto all = Store.LandMarks();
    const double scale = O.EffectiveScale();
    // The fit is refitted in place when calibration points change: the exact pixel positions of three
    // landmarks (first, middle, last) tell a changed fit from the same one.
    std::array<double, 7> fitPrint{};
    fitPrint[6] = Fit.Model();
    if (!all.empty()) {
        for (std::size_t k = 0; k < 3; ++k) {
            const TLandMark& lm = all[k * (all.size() - 1) / 2];
            Fit.CalcPixelPosition(lm.Latitude, lm.Longitude, fitPrint[2 * k], fitPrint[2 * k + 1]);
        }
    }
    if (C.Store == &Store && C.Revision == Store.Revision() && C.Data == all.data() && C.FitPrint == fitPrint &&
        C.Count == static_cast<std::int32_t>(all.size()) && C.Fit == &Fit && C.Scale == scale &&
        C.TagIsPriority == O.TagIsPriority && C.ClassPriority == O.ClassPriority)
        return;
    C.Store = &Store;
    C.Revision = Store.Revision();
    C.Data = all.data();
    C.Count = static_cast<std::int32_t>(all.size());
    C.Fit = &Fit;
    C.FitPrint = fitPrint;
    C.Scale = scale;
    C.TagIsPriority = O.TagIsPriority;
    C.ClassPriority = O.ClassPriority;
    C.HavePlacement = false;
    C.Items.assign(all.size(), TItem{});
    for (std::size_t i = 0; i < all.size(); ++i) {
        TItem& it = C.Items[i];
        it.Index = static_cast<std::int32_t>(i);
        it.Valid = Fit.CalcPixelCoords(all[i].Latitude, all[i].Longitude, it.MX, it.MY);
        it.SymRel = SymbolBox({0, 0}, ScaledSymbol(all[i].SymbolProps, scale));
    }
    // Sorted by a key of plain numbers rather than by comparing the landmarks themselves (200 000 records
    // of a few hundred bytes each would be visited at random many times over).
    struct TRank {
        std::int64_t Class;  // priority descending, then class number ascending
        std::int64_t Tag;    // descending when Tag ranks, else 0
        std::int32_t Index;
        bool operator<(const TRank& R) const
        {
            return Class != R.Class ? Class < R.Class : Tag != R.Tag ? Tag < R.Tag : Index < R.Index;
        }
    };
    std::vector<TRank> ranks(all.size());
    bool ordered = true;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const TLandMark& lm = all[i];
        ranks[i] = {-std::int64_t{O.ClassPriority[lm.ClassFlag]} * 256 + lm.ClassFlag,
                    O.TagIsPriority ? -std::int64_t{lm.Tag} : 0, static_cast<std::int32_t>(i)};
        ordered = ordered && (i == 0 || !(ranks[i] < ranks[i - 1]));
    }
    if (!ordered)
        std::sort(ranks.begin(), ranks.end());
    C.Order.resize(all.size());
    for (std::size_t i = 0; i < all.size(); ++i)
        C.Order[i] = ranks[i].Index;
}

// Candidate text origins relative to the control point, and whether the first (the caption's own anchor)
// is rounded with the point's parity.
std::int32_t Candidates(const TLMTextProperties& Cap, std::int32_t W, std::int32_t H, const TRect& Sym,
                        std::int32_t Halo, bool Placement, std::array<TPoint, 9>& Out)
{
    Out[0] = CaptionOrigin({0, 0}, Cap, W, H);
    if (!Placement || CaptionOrientation(Cap.Direction) != 0)
        return 1;
    // Around the symbol box, the halo outside it too: a caption moved away never covers its own symbol.
    const std::int32_t gap = 2 + Halo, corner = Halo;
    const std::int32_t midY = (Sym.Top + Sym.Bottom) / 2 - H / 2, midX = (Sym.Left + Sym.Right) / 2 - W / 2;
    Out[1] = {Sym.Right + gap, midY};                         // right
    Out[2] = {Sym.Left - gap - W, midY};                      // left
    Out[3] = {midX, Sym.Top - gap - H};                       // above
    Out[4] = {midX, Sym.Bottom + gap};                        // below
    Out[5] = {Sym.Right + corner, Sym.Top - corner - H};      // above right
    Out[6] = {Sym.Right + corner, Sym.Bottom + corner};       // below right
    Out[7] = {Sym.Left - corner - W, Sym.Top - corner - H};   // above left
    Out[8] = {Sym.Left - corner - W, Sym.Bottom + corner};    // below left
    return 9;
}

// The caption's box for a text origin relative to the point: the turned text box, with the halo.
TRect CaptionBoxRel(TPoint O, const TLMTextProperties& Cap, std::int32_t W, std::int32_t H, std::int32_t Halo)
{
    const std::int32_t o = CaptionOrientation(Cap.Direction);
    if (o == 0)
        return {O.X - Halo, O.Y - Halo, O.X + W + Halo, O.Y + H + Halo};
    double minX = 0, maxX = 0, minY = 0, maxY = 0;
    const double a = o / 10.0 * 3.141592653589793 / 180.0;
    const double s = o == 0 ? 0 : o == 900 ? 1 : o == 1800 ? 0 : o == 2700 ? -1 : std::sin(a);
    const double c = o == 0 ? 1 : o == 900 ? 0 : o == 1800 ? -1 : o == 2700 ? 0 : std::cos(a);
    for (const auto& [u, v] : {std::pair<double, double>{double(W), 0.0}, {0.0, double(H)}, {double(W), double(H)}}) {
        const double x = u * c + v * s, y = -u * s + v * c;
        minX = std::min(minX, x), maxX = std::max(maxX, x), minY = std::min(minY, y), maxY = std::max(maxY, y);
    }
    const std::int32_t extra = o % 900 == 0 ? 0 : 1;  // the rasteriser's rounding of turned glyphs
    return {O.X + static_cast<std::int32_t>(std::floor(minX)) - Halo - extra,
            O.Y + static_cast<std::int32_t>(std::floor(minY)) - Halo - extra,
            O.X + static_cast<std::int32_t>(std::ceil(maxX)) + Halo + extra,
            O.Y + static_cast<std::int32_t>(std::ceil(maxY)) + Halo + extra};
}

TFont CaptionFont(const TLMTextProperties& Cap)
{
    TFont f;
    f.Name = Cap.FontName;
    f.Size = Cap.Size;
    f.Style = Cap.FontStyles;
    return f;
}

std::int64_t Scaled(std::int32_t MapPixel, double Mag)
{
    return static_cast<std::int64_t>(std::floor(MapPixel * Mag));
}

bool Shows(const TLandMarkStore& Store, const TLandMark& Lm, const TLabelOptions& O, double Mag)
{
    return Store.GetClassVisibility(Lm.ClassFlag) && O.ClassRange[Lm.ClassFlag].Holds(Mag);
}

// Measuring a caption's text is the costly part of placing it, and in a crowded map most captions fit
// nowhere. A probe is a one-pixel-wide column of a candidate box (with the halo) that lies inside that
// candidate's box for every text width of at least one pixel, so when every probe is blocked the caption
// fits nowhere, and it is known without measuring. Captions read left to right only (H: the font's line
// height).
bool AllProbesBlocked(const TGridIndex& Grid, const TLMTextProperties& Cap, std::int32_t H, const TRect& Sym,
                      std::int32_t Halo, std::int64_t GX, std::int64_t GY, std::int32_t Owner)
{
    auto blocked = [&](const TRect& R) {
        return Grid.Blocked({GX + R.Left, GY + R.Top, GX + R.Right + 1, GY + R.Bottom + 1, Owner, false});
    };
    // The own anchor: the anchor's column lies in the box whatever the width (the right end of a right-
    // justified caption is just left of it); the height's rounding is within the box's extra pixel, which
    // the probe leaves out.
    const TPoint o = CaptionOrigin({0, 0}, Cap, 1, H);
    const std::int32_t px = Cap.HAlignment == haRightJustify ? Cap.dx - 1 : Cap.dx;
    if (!blocked({px - Halo, o.Y - Halo, px + 1 + Halo, o.Y + H + Halo}))
        return false;
    // The others: with a width of one pixel each box is a column of every wider one.
    std::array<TPoint, 9> cand;
    const std::int32_t n = Candidates(Cap, 1, H, Sym, Halo, true, cand);
    for (std::int32_t k = 1; k < n; ++k)
        if (!blocked(CaptionBoxRel(cand[static_cast<std::size_t>(k)], Cap, 1, H, Halo)))
            return false;
    return true;
}

// The line height of Caption's font at Size points (the height of every text in it), remembered for the
// font asked last.
std::int32_t LineHeight(TLabelCache::TImpl& C, const TLMTextProperties& Caption, std::int32_t Size)
{
    if (C.HeightSize != Size || C.HeightStyles != Caption.FontStyles.Bits || C.HeightFont != Caption.FontName) {
        TFont f;
        f.Name = Caption.FontName;
        f.Size = Size;
        f.Style = Caption.FontStyles;
        C.Height = C.Metrics.Extent(f, {}).cy;
        C.HeightFont = Caption.FontName;
        C.HeightSize = Size;
        C.HeightStyles = Caption.FontStyles.Bits;
    }
    return C.Height;
}

void Place(TLabelCache::TImpl& C, const TMapViewport& View, const TLandMarkStore& Store, const TLabelOptions& O)
{
    const auto all = Store.LandMarks();
    const double mag = View.Magnify();
    // The domain: every landmark when they fit in LabelDomainPixels, else the lattice square around the view.
    std::int64_t x0 = INT64_MAX, y0 = INT64_MAX, x1 = INT64_MIN, y1 = INT64_MIN;
    for (const TItem& it : C.Items) {
        if (!it.Valid)
            continue;
        const std::int64_t gx = Scaled(it.MX, mag), gy = Scaled(it.MY, mag);
        x0 = std::min(x0, gx), y0 = std::min(y0, gy), x1 = std::max(x1, gx), y1 = std::max(y1, gy);
    }
    // No landmark with a place: an empty domain (and no subtraction of the sentinels, which overflows).
    const bool none = x1 < x0;
    if (none)
        x0 = y0 = x1 = y1 = 0;
    bool whole = x1 - x0 <= LabelDomainPixels && y1 - y0 <= LabelDomainPixels;
    std::int64_t dx = x0, dy = y0;
    if (!whole) {
        const std::int64_t S = LabelDomainPixels / 2;
        const double cx = View.TopLeft().X * mag + View.ControlSize().cx / 2.0;
        const double cy = View.TopLeft().Y * mag + View.ControlSize().cy / 2.0;
        dx = static_cast<std::int64_t>(std::floor(cx / double(S))) * S - S / 2;
        dy = static_cast<std::int64_t>(std::floor(cy / double(S))) * S - S / 2;
    }
    if (C.HavePlacement && C.Mag == mag && C.Options == O && C.Whole == whole &&
        (whole || (C.DomainX == dx && C.DomainY == dy)))
        return;
    if (none)
        whole = true, dx = dy = 0;
    const std::int64_t dw = whole ? x1 - x0 + 1 : LabelDomainPixels, dh = whole ? y1 - y0 + 1 : LabelDomainPixels;
    C.HavePlacement = true;
    C.Mag = mag;
    C.Options = O;
    C.Whole = whole;
    C.DomainX = dx;
    C.DomainY = dy;
    ++C.Placements;
    C.Shown.clear();
    C.Candidate.assign(C.Items.size(), -1);
    C.OriginRel.assign(C.Items.size(), TPoint{});
    // Boxes reach beyond the domain by their size: the index's edge cells take them.
    TGridIndex grid(dx, dy, dw, dh);
    std::vector<TBox> symbols;
    std::vector<std::uint8_t> inDomain(C.Items.size(), 0);
    for (const TItem& it : C.Items) {
        if (!it.Valid || !Shows(Store, all[static_cast<std::size_t>(it.Index)], O, mag))
            continue;
        const std::int64_t gx = Scaled(it.MX, mag), gy = Scaled(it.MY, mag);
        if (gx < dx || gx >= dx + dw || gy < dy || gy >= dy + dh)
            continue;
        inDomain[static_cast<std::size_t>(it.Index)] = 1;
        C.Shown.push_back(it.Index);
        symbols.push_back({gx + it.SymRel.Left, gy + it.SymRel.Top, gx + it.SymRel.Right + 1,
                           gy + it.SymRel.Bottom + 1, it.Index, true});
    }
    grid.AddSymbols(symbols);
    const std::int32_t halo = O.EffectiveHalo();
    TLMTextProperties cap;
    for (const std::int32_t i : C.Order) {
        if (!inDomain[static_cast<std::size_t>(i)])
            continue;
        TItem& it = C.Items[static_cast<std::size_t>(i)];
        const TLandMark& lm = all[static_cast<std::size_t>(i)];
        if (lm.Caption.Text.empty())
            continue;
        // The caption's placement needs its scaled size, offsets, alignments and direction; its text and
        // font name only once it is measured (copying them for every landmark would cost more than the
        // probes).
        cap.Size = lm.Caption.Size, cap.dx = lm.Caption.dx, cap.dy = lm.Caption.dy;
        cap.Direction = lm.Caption.Direction;
        cap.HAlignment = lm.Caption.HAlignment, cap.VAlignment = lm.Caption.VAlignment;
        if (C.Scale != 1.0) {
            cap.Size = static_cast<std::int32_t>(std::lround(lm.Caption.Size * C.Scale));
            cap.dx = static_cast<std::int32_t>(std::lround(lm.Caption.dx * C.Scale));
            cap.dy = static_cast<std::int32_t>(std::lround(lm.Caption.dy * C.Scale));
        }
        const std::int64_t gx = Scaled(it.MX, mag), gy = Scaled(it.MY, mag);
        if (it.W < 0 && O.Placement && CaptionOrientation(cap.Direction) == 0 &&
            AllProbesBlocked(grid, cap, LineHeight(C, lm.Caption, cap.Size), it.SymRel, halo, gx, gy, i))
            continue;  // blocked whatever its width: not worth measuring
        if (it.W < 0) {
            cap.Text = lm.Caption.Text;
            cap.FontName = lm.Caption.FontName;
            cap.FontStyles = lm.Caption.FontStyles;
            const TSize e = C.Metrics.Extent(CaptionFont(cap), cap.Text);
            it.W = e.cx;
            it.H = e.cy;
        }
        std::array<TPoint, 9> cand;
        const std::int32_t n = Candidates(cap, it.W, it.H, it.SymRel, halo, O.Placement, cand);
        for (std::int32_t k = 0; k < n; ++k) {
            TRect r = CaptionBoxRel(cand[static_cast<std::size_t>(k)], cap, it.W, it.H, halo);
            if (k == 0)
                r = {r.Left - 1, r.Top - 1, r.Right + 1, r.Bottom + 1};
            const TBox b{gx + r.Left, gy + r.Top, gx + r.Right + 1, gy + r.Bottom + 1, i, false};
            if (O.Placement && grid.Blocked(b))
                continue;
            if (O.Placement)
                grid.Add(b);
            C.Candidate[static_cast<std::size_t>(i)] = static_cast<std::int8_t>(k);
            C.OriginRel[static_cast<std::size_t>(i)] = cand[static_cast<std::size_t>(k)];
            break;
        }
    }
}

}  // namespace

std::vector<TPlacedLandMark> PlaceLandMarks(const TMapViewport& View, const TLandMarkStore& Store,
                                            const TCalibFit& Fit, const TLabelOptions& Options, TLabelCache& Cache)
{
    std::vector<TPlacedLandMark> out;
    render_detail::ForEachLabelled(View, Store, Fit, Options, Cache, [&](const TPlacedLandMark& P, bool Inside) {
        if (Inside)
            out.push_back(P);
    });
    return out;
}

namespace render_detail {

void ForEachLabelled(const TMapViewport& View, const TLandMarkStore& Store, const TCalibFit& Fit,
                     const TLabelOptions& Options, TLabelCache& Cache,
                     const std::function<void(const TPlacedLandMark&, bool Inside)>& Visit)
{
    TLabelCache::TImpl& C = Cache.Impl();
    SyncItems(C, Store, Fit, Options);
    Place(C, View, Store, Options);
    const auto all = Store.LandMarks();
    const std::int32_t W = View.ControlSize().cx, H = View.ControlSize().cy;
    const std::int32_t halo = Options.EffectiveHalo();
    for (const std::int32_t i : C.Shown) {
        const TItem& it = C.Items[static_cast<std::size_t>(i)];
        TPlacedLandMark p;
        p.Index = i;
        p.Point = CanvasPixel(View, TMapPixel(TPoint{it.MX, it.MY}));
        p.SymbolBox = {p.Point.X + it.SymRel.Left, p.Point.Y + it.SymRel.Top, p.Point.X + it.SymRel.Right,
                       p.Point.Y + it.SymRel.Bottom};
        const std::int8_t k = C.Candidate[static_cast<std::size_t>(i)];
        if (k >= 0) {
            const TLMTextProperties cap = ScaledCaption(all[static_cast<std::size_t>(i)].Caption, C.Scale);
            p.CaptionPlaced = true;
            p.Candidate = k;
            // The own anchor rounds with the point; the others are whole-pixel offsets.
            p.CaptionOrigin = k == 0 ? CaptionOrigin(p.Point, cap, it.W, it.H)
                                     : TPoint{p.Point.X + C.OriginRel[static_cast<std::size_t>(i)].X,
                                              p.Point.Y + C.OriginRel[static_cast<std::size_t>(i)].Y};
            const TRect r = CaptionBoxRel({0, 0}, cap, it.W, it.H, halo);
            p.CaptionBox = {p.CaptionOrigin.X + r.Left, p.CaptionOrigin.Y + r.Top, p.CaptionOrigin.X + r.Right,
                            p.CaptionOrigin.Y + r.Bottom};
        }
        Visit(p, p.Point.X > 0 && p.Point.X < W && p.Point.Y > 0 && p.Point.Y < H);
    }
}

}  // namespace render_detail

// ---- halo captions ----

namespace {

void TextAt(TCanvas& Canvas, TPoint O, const TLMTextProperties& Cap)
{
    const TFont font = Canvas.Font;
    const TBrush brush = Canvas.Brush;
    SetCaptionFont(Canvas, Cap);
    Canvas.TextOut(O.X, O.Y, Cap.Text);
    Canvas.Font = font;
    Canvas.Brush = brush;
}

// The halo's pen: offsets within Halo pixels, a round pen (Halo 1 is the full 3 x 3 block).
bool InPen(std::int32_t X, std::int32_t Y, std::int32_t Halo) { return X * X + Y * Y <= Halo * Halo + Halo; }

void DrawHaloDirect(TCanvas& Canvas, TPoint O, const TLMTextProperties& Cap, std::int32_t Halo, TColor HaloColor)
{
    TLMTextProperties h = Cap;
    h.FGColor = h.BGColor = HaloColor;
    for (std::int32_t y = -Halo; y <= Halo; ++y)
        for (std::int32_t x = -Halo; x <= Halo; ++x)
            if ((x || y) && InPen(x, y, Halo))
                TextAt(Canvas, {O.X + x, O.Y + y}, h);
    TextAt(Canvas, O, Cap);
}

std::string HaloKey(const TLMTextProperties& Cap, std::int32_t Halo, TColor HaloColor)
{
    std::string k = Cap.Text;
    k += '\0';
    k += Cap.FontName;
    k += '\0';
    const std::int32_t nums[] = {Cap.Size, CaptionOrientation(Cap.Direction), static_cast<std::int32_t>(Cap.FGColor & 0xFFFFFF),
                                 Cap.Transparent ? -1 : static_cast<std::int32_t>(Cap.BGColor & 0xFFFFFF),
                                 Cap.FontStyles.Bits, Halo, static_cast<std::int32_t>(HaloColor & 0xFFFFFF)};
    k.append(reinterpret_cast<const char*>(nums), sizeof nums);
    return k;
}

THaloSprite MakeHaloSprite(TBitmap& Scratch, const TLMTextProperties& Cap, std::int32_t Halo, TColor HaloColor,
                           TTextMetrics& Metrics)
{
    THaloSprite s;
    const TSize ext = Metrics.Extent(CaptionFont(Cap), Cap.Text);
    const std::int32_t m = ext.cx + ext.cy + 4 + Halo;  // room for the text turned any quarter way
    const std::int32_t bw = 2 * m + 1, bh = 2 * m + 1;
    if (std::int64_t{bw} * bh > (std::int64_t{1} << 22)) {
        s.Direct = true;
        return s;
    }
    Scratch.SetSize(bw, bh);
    // Two renders on two key colours: a pixel the text sets is the same on both.
    const TColor keys[2] = {0x00FF00, 0xFF00FF};
    std::vector<std::uint32_t> img[2];
    std::uint32_t raw[2] = {0, 0};
    for (int r = 0; r < 2; ++r) {
        Scratch.Fill(keys[r]);
        raw[r] = Scratch.ScanLine(0)[0];
        TextAt(Scratch.Canvas(), {m, m}, Cap);
        img[r].resize(static_cast<std::size_t>(bw) * static_cast<std::size_t>(bh));
        for (std::int32_t y = 0; y < bh; ++y)
            std::memcpy(img[r].data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(bw), Scratch.ScanLine(y),
                        static_cast<std::size_t>(bw) * 4);
    }
    std::vector<std::uint32_t> set(img[0].size(), 0);
    std::int32_t l = bw, t = bh, rr = -1, b = -1;
    for (std::size_t p = 0; p < set.size(); ++p) {
        const bool a = img[0][p] != raw[0], c = img[1][p] != raw[1];
        if (!a && !c)
            continue;
        if (img[0][p] != img[1][p]) {  // blended with what lay beneath: not a sprite
            s.Direct = true;
            return s;
        }
        set[p] = img[0][p] | 0xff000000u;
        const std::int32_t x = static_cast<std::int32_t>(p % static_cast<std::size_t>(bw));
        const std::int32_t y = static_cast<std::int32_t>(p / static_cast<std::size_t>(bw));
        l = std::min(l, x), t = std::min(t, y), rr = std::max(rr, x), b = std::max(b, y);
    }
    if (rr < 0)
        return s;  // nothing drawn
    const std::uint32_t haloRgb = 0xff000000u | ((HaloColor & 0xFF) << 16) | (HaloColor & 0xFF00) | ((HaloColor >> 16) & 0xFF);
    s.OX = l - Halo - m;
    s.OY = t - Halo - m;
    s.W = rr - l + 1 + 2 * Halo;
    s.H = b - t + 1 + 2 * Halo;
    s.Pixels.assign(static_cast<std::size_t>(s.W) * static_cast<std::size_t>(s.H), 0);
    for (std::int32_t y = t; y <= b; ++y)
        for (std::int32_t x = l; x <= rr; ++x) {
            const std::uint32_t v = set[static_cast<std::size_t>(y) * static_cast<std::size_t>(bw) + static_cast<std::size_t>(x)];
            if (!v)
                continue;
            const std::int32_t sx = x - l + Halo, sy = y - t + Halo;
            for (std::int32_t j = -Halo; j <= Halo; ++j)
                for (std::int32_t i = -Halo; i <= Halo; ++i) {
                    std::uint32_t& d = s.Pixels[static_cast<std::size_t>(sy + j) * static_cast<std::size_t>(s.W) +
                                                static_cast<std::size_t>(sx + i)];
                    if (!d && InPen(i, j, Halo))
                        d = haloRgb;
                }
        }
    for (std::int32_t y = t; y <= b; ++y)
        for (std::int32_t x = l; x <= rr; ++x) {
            const std::uint32_t v = set[static_cast<std::size_t>(y) * static_cast<std::size_t>(bw) + static_cast<std::size_t>(x)];
            if (v)
                s.Pixels[static_cast<std::size_t>(y - t + Halo) * static_cast<std::size_t>(s.W) +
                         static_cast<std::size_t>(x - l + Halo)] = v;
        }
    return s;
}

void BlitHalo(TCanvas& Canvas, TPoint O, const THaloSprite& S)
{
    TBitmap& bmp = Canvas.Bitmap();
    const std::int64_t x0 = std::int64_t{O.X} + S.OX, y0 = std::int64_t{O.Y} + S.OY;
    const std::int64_t ya = std::max<std::int64_t>(0, y0), yb = std::min<std::int64_t>(bmp.Height(), y0 + S.H);
    const std::int64_t xa = std::max<std::int64_t>(0, x0), xb = std::min<std::int64_t>(bmp.Width(), x0 + S.W);
    for (std::int64_t y = ya; y < yb; ++y) {
        std::uint32_t* d = bmp.ScanLine(static_cast<std::int32_t>(y));
        const std::uint32_t* s = S.Pixels.data() + static_cast<std::size_t>(y - y0) * static_cast<std::size_t>(S.W);
        for (std::int64_t x = xa; x < xb; ++x) {
            const std::uint32_t v = s[x - x0];
            if (v)
                d[x] = v;
        }
    }
}

}  // namespace

void DrawHaloCaption(TCanvas& Canvas, TPoint Origin, const TLMTextProperties& Caption, std::int32_t Halo,
                     TColor HaloColor, TLabelCache* Cache)
{
    if (Caption.Text.empty())
        return;
    Halo = std::clamp<std::int32_t>(Halo, 0, 8);
    if (Halo == 0 || !Cache || CaptionOrientation(Caption.Direction) % 900 != 0) {
        if (Halo == 0)
            TextAt(Canvas, Origin, Caption);
        else
            DrawHaloDirect(Canvas, Origin, Caption, Halo, HaloColor);
        return;
    }
    TLabelCache::TImpl& C = Cache->Impl();
    std::string key = HaloKey(Caption, Halo, HaloColor);
    auto it = C.Halos.find(key);
    if (it == C.Halos.end()) {
        THaloSprite s = MakeHaloSprite(C.Scratch, Caption, Halo, HaloColor, C.Metrics);
        const std::size_t bytes = s.Pixels.size() * 4 + key.size() + 64;
        if (C.HaloBytes + bytes > (std::size_t{64} << 20)) {
            C.Halos.clear();
            C.HaloBytes = 0;
        }
        C.HaloBytes += bytes;
        it = C.Halos.emplace(std::move(key), std::move(s)).first;
    }
    if (it->second.Direct)
        DrawHaloDirect(Canvas, Origin, Caption, Halo, HaloColor);
    else
        BlitHalo(Canvas, Origin, it->second);
}

// ---- the map's scale ----

double ViewMetresPerPixel(const TMapViewport& View, const TCalibFit& Fit)
{
    const double mag = View.Magnify();
    const std::int32_t cx = static_cast<std::int32_t>(std::lround(View.MapXAt(View.ControlSize().cx / 2.0)));
    const std::int32_t cy = static_cast<std::int32_t>(std::lround(View.MapYAt(View.ControlSize().cy / 2.0)));
    // A step of a few dozen map pixels: long enough that whole-pixel positions do not matter, short enough
    // that the scale is the local one.
    const std::int32_t d = 25;
    TCoords w, e, n, s;
    if (!Fit.CalcPosition({cx - d, cy}, w) || !Fit.CalcPosition({cx + d, cy}, e) || !Fit.CalcPosition({cx, cy - d}, n) ||
        !Fit.CalcPosition({cx, cy + d}, s))
        return 0.0;
    const double a = 6378137.0, f = 1.0 / 298.257223563, e2 = f * (2 - f);
    auto metres = [&](const TCoords& A, const TCoords& B) {
        const double rad = 3.141592653589793 / 180.0;
        const double lat = (A.Latit + B.Latit) / 2 * rad;
        const double q = 1 - e2 * std::sin(lat) * std::sin(lat);
        const double M = a * (1 - e2) / (q * std::sqrt(q)), N = a / std::sqrt(q);
        const double dn = (B.Latit - A.Latit) * rad * M, de = (B.Longit - A.Longit) * rad * N * std::cos(lat);
        return std::hypot(dn, de);
    };
    const double perMapPixel = (metres(w, e) + metres(n, s)) / (4.0 * d);
    return std::isfinite(perMapPixel) && mag > 0 ? perMapPixel / mag : 0.0;
}

}  // namespace qv
