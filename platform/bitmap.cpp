// TBitmap: storage, pixel access, copy and the two stretch modes.
//
// Stretching maps source pixel k onto the span [k * dn, (k + 1) * dn) and destination pixel i onto
// [i * sn, (i + 1) * sn) of one common integer axis (sn, dn: source and destination lengths), so every
// overlap is an exact integer and the result does not depend on floating-point rounding.
//
// - Halftone (box filter): a destination pixel is the mean of the source pixels it covers, each weighted
//   by the covered fraction. Weights are 14-bit fixed point whose sum is exactly 1 per pixel; the two
//   passes (rows, then columns) keep 8 extra bits between them and round half up at the end, so a 2 x 2
//   black-and-white checkerboard averaged to one pixel gives 127.5 -> 0x80 in each channel.
// - Colour on colour (pixel dropping): destination pixel i takes source pixel floor((2i + 1) sn / 2dn),
//   the one under its centre.
#include <qvgeo/platform/bitmap.h>
#include <qvgeo/platform/canvas.h>
#include <qvgeo/platform/colors.h>

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

namespace qv {

namespace {

constexpr int kWeightBits = 14;
constexpr std::uint32_t kWeightOne = 1u << kWeightBits;
constexpr int kMidBits = 8;  // extra precision kept between the row pass and the column pass

QImage WhiteImage(std::int32_t Width, std::int32_t Height)
{
    QImage img(std::max(Width, 0), std::max(Height, 0), QImage::Format_RGB32);
    img.fill(0xffffffffu);
    return img;
}

// The source indices and weights of each destination pixel along one axis, for destination indices
// [D0, D1) of a stretch of Sn source pixels starting at S0 onto Dn destination pixels. Source indices are
// clamped to [0, Limit).
struct TAxisMap {
    std::vector<std::int32_t> Start;  // entries of pixel i: [Start[i], Start[i + 1])
    std::vector<std::int32_t> Index;
    std::vector<std::uint32_t> Weight;
    std::int32_t MinIndex = 0, MaxIndex = 0;
};

TAxisMap BuildAxisMap(std::int32_t S0, std::int32_t Sn, std::int32_t Dn, std::int32_t D0, std::int32_t D1,
                      std::int32_t Limit)
{
    TAxisMap m;
    m.Start.reserve(static_cast<std::size_t>(D1 - D0) + 1);
    m.MinIndex = Limit;
    m.MaxIndex = -1;
    const std::int64_t sn = Sn, dn = Dn;
    for (std::int32_t i = D0; i < D1; ++i) {
        m.Start.push_back(static_cast<std::int32_t>(m.Index.size()));
        const std::int64_t lo = i * sn, hi = (i + 1) * sn;
        const std::int64_t kFirst = lo / dn, kLast = (hi + dn - 1) / dn;  // source pixels [kFirst, kLast)
        std::int64_t covered = 0;
        std::uint32_t given = 0;
        for (std::int64_t k = kFirst; k < kLast; ++k) {
            covered += std::min(hi, (k + 1) * dn) - std::max(lo, k * dn);
            // Cumulative rounding: the weights of one pixel add up to exactly kWeightOne.
            const auto upTo = static_cast<std::uint32_t>((covered * kWeightOne + sn / 2) / sn);
            if (upTo == given)
                continue;
            const auto idx = static_cast<std::int32_t>(std::clamp<std::int64_t>(S0 + k, 0, Limit - 1));
            m.Index.push_back(idx);
            m.Weight.push_back(upTo - given);
            m.MinIndex = std::min(m.MinIndex, idx);
            m.MaxIndex = std::max(m.MaxIndex, idx);
            given = upTo;
        }
    }
    m.Start.push_back(static_cast<std::int32_t>(m.Index.size()));
    return m;
}

// The two inner loops of the halftone stretch. They are compiled twice, for AVX2 and for the baseline
// x86-64 instruction set, and the loader picks the version the processor runs.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define QVGEO_VECTOR_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define QVGEO_VECTOR_CLONES
#endif

// Mid[b] = sum over the rows r of Rows[r][b] * Weights[r], scaled from kWeightBits to kMidBits of
// fraction and rounded, for N bytes (channels). Done in tiles that keep the accumulators in the first-level
// cache while all rows pass over them.
QVGEO_VECTOR_CLONES void WeightRows(std::uint16_t* __restrict Mid, const std::uint8_t* const* Rows,
                                    const std::uint32_t* Weights, std::size_t Count, std::size_t N)
{
    constexpr int shift = kWeightBits - kMidBits;
    constexpr std::size_t tile = 1024;
    std::uint32_t acc[tile];
    for (std::size_t t0 = 0; t0 < N; t0 += tile) {
        const std::size_t n = std::min(tile, N - t0);
        const std::uint8_t* s = Rows[0] + t0;
        const std::uint32_t w0 = Weights[0];
        for (std::size_t b = 0; b < n; ++b)
            acc[b] = s[b] * w0 + (1u << (shift - 1));
        // Rows in pairs: one pass over the accumulators per two rows.
        std::size_t r = 1;
        for (; r + 1 < Count; r += 2) {
            const std::uint8_t* __restrict s1 = Rows[r] + t0;
            const std::uint8_t* __restrict s2 = Rows[r + 1] + t0;
            const std::uint32_t w1 = Weights[r], w2 = Weights[r + 1];
            for (std::size_t b = 0; b < n; ++b)
                acc[b] += s1[b] * w1 + s2[b] * w2;
        }
        if (r < Count) {
            const std::uint8_t* __restrict s1 = Rows[r] + t0;
            const std::uint32_t w1 = Weights[r];
            for (std::size_t b = 0; b < n; ++b)
                acc[b] += s1[b] * w1;
        }
        std::uint16_t* m = Mid + t0;
        for (std::size_t b = 0; b < n; ++b)
            m[b] = static_cast<std::uint16_t>(acc[b] >> shift);
    }
}

// Dst[i] = the pixel of the weighted columns of Mid for destination pixels i = 0 .. N - 1: entries
// [Start[i], Start[i + 1]) of Index (a column of Mid) and Weight.
QVGEO_VECTOR_CLONES void WeightColumns(std::uint32_t* __restrict Dst, const std::uint16_t* __restrict Mid,
                                       const std::int32_t* Start, const std::int32_t* Index,
                                       const std::uint32_t* Weight, std::size_t N)
{
    constexpr int fin = kWeightBits + kMidBits;
    constexpr std::uint32_t half = 1u << (fin - 1);
    for (std::size_t i = 0; i < N; ++i) {
        std::uint32_t c[4] = {half, half, half, half};
        for (std::int32_t e = Start[i]; e < Start[i + 1]; ++e) {
            const std::uint16_t* m = Mid + static_cast<std::size_t>(Index[e]) * 4;
            const std::uint32_t w = Weight[e];
            for (int k = 0; k < 4; ++k)
                c[k] += m[k] * w;
        }
        Dst[i] = 0xff000000u | ((c[2] >> fin) << 16) | ((c[1] >> fin) << 8) | (c[0] >> fin);
    }
}

// The destination range [D0, D1) of a destination span [DstLo, DstLo + Dn) clipped to [0, Size).
std::pair<std::int32_t, std::int32_t> ClipSpan(std::int32_t DstLo, std::int32_t Dn, std::int32_t Size)
{
    const std::int32_t d0 = std::max(0, -DstLo);
    const std::int32_t d1 = std::min(Dn, Size - DstLo);
    return {d0, std::max(d0, d1)};
}

}  // namespace

TBitmap::TBitmap() = default;
TBitmap::TBitmap(std::int32_t Width, std::int32_t Height) : FImage(WhiteImage(Width, Height)) {}
TBitmap::TBitmap(QImage Image)
    : FImage(Image.format() == QImage::Format_RGB32 ? std::move(Image)
                                                     : Image.convertToFormat(QImage::Format_RGB32))
{
}
TBitmap::TBitmap(const TBitmap& Other) : FImage(Other.FImage) {}
TBitmap& TBitmap::operator=(const TBitmap& Other)
{
    FImage = Other.FImage;  // the canvas (and its pen, brush and font) stays this bitmap's own
    return *this;
}
// A canvas refers to its bitmap, so it never moves with the pixels: each object keeps (or later makes) its
// own.
TBitmap::TBitmap(TBitmap&& Other) noexcept : FImage(std::move(Other.FImage)) {}
TBitmap& TBitmap::operator=(TBitmap&& Other) noexcept
{
    FImage = std::move(Other.FImage);
    return *this;
}
TBitmap::~TBitmap() = default;

std::int32_t TBitmap::Width() const { return FImage.width(); }
std::int32_t TBitmap::Height() const { return FImage.height(); }
bool TBitmap::Empty() const { return FImage.width() == 0 && FImage.height() == 0; }

void TBitmap::SetSize(std::int32_t Width, std::int32_t Height)
{
    Width = std::max(Width, 0);
    Height = std::max(Height, 0);
    if (Width == this->Width() && Height == this->Height())
        return;
    TBitmap resized(Width, Height);
    resized.CopyRect(0, 0, *this, TRect{0, 0, this->Width(), this->Height()});
    FImage = std::move(resized.FImage);
}

TColor TBitmap::Pixel(std::int32_t X, std::int32_t Y) const
{
    if (X < 0 || Y < 0 || X >= Width() || Y >= Height())
        return 0;
    return FromQRgb(ScanLine(Y)[X]);
}

void TBitmap::SetPixel(std::int32_t X, std::int32_t Y, TColor Color)
{
    if (X < 0 || Y < 0 || X >= Width() || Y >= Height())
        return;
    ScanLine(Y)[X] = ToQRgb(Color);
}

std::uint32_t* TBitmap::ScanLine(std::int32_t Y) { return reinterpret_cast<std::uint32_t*>(FImage.scanLine(Y)); }
const std::uint32_t* TBitmap::ScanLine(std::int32_t Y) const
{
    return reinterpret_cast<const std::uint32_t*>(FImage.constScanLine(Y));
}

void TBitmap::Fill(TColor Color) { FImage.fill(ToQRgb(Color)); }

void TBitmap::CopyRect(std::int32_t DstX, std::int32_t DstY, const TBitmap& Source, TRect SrcRect)
{
    // Clip the source rectangle to the source, then the result to this bitmap, moving both together.
    std::int32_t sx = SrcRect.Left, sy = SrcRect.Top, w = SrcRect.Width(), h = SrcRect.Height();
    if (sx < 0) { DstX -= sx; w += sx; sx = 0; }
    if (sy < 0) { DstY -= sy; h += sy; sy = 0; }
    w = std::min(w, Source.Width() - sx);
    h = std::min(h, Source.Height() - sy);
    if (DstX < 0) { sx -= DstX; w += DstX; DstX = 0; }
    if (DstY < 0) { sy -= DstY; h += DstY; DstY = 0; }
    w = std::min(w, Width() - DstX);
    h = std::min(h, Height() - DstY);
    if (w <= 0 || h <= 0)
        return;
    const QImage src = Source.FImage;  // a shared copy: stays intact while this image detaches
    const std::size_t bytes = static_cast<std::size_t>(w) * 4;
    for (std::int32_t y = 0; y < h; ++y) {
        std::memcpy(ScanLine(DstY + y) + DstX,
                    reinterpret_cast<const std::uint32_t*>(src.constScanLine(sy + y)) + sx, bytes);
    }
}

void TBitmap::StretchRect(TRect DstRect, const TBitmap& Source, TRect SrcRect, TStretchMode Mode)
{
    const std::int32_t sw = SrcRect.Width(), sh = SrcRect.Height();
    const std::int32_t dw = DstRect.Width(), dh = DstRect.Height();
    if (sw <= 0 || sh <= 0 || dw <= 0 || dh <= 0 || Source.Width() == 0 || Source.Height() == 0)
        return;
    const auto [x0, x1] = ClipSpan(DstRect.Left, dw, Width());
    const auto [y0, y1] = ClipSpan(DstRect.Top, dh, Height());
    if (x0 >= x1 || y0 >= y1)
        return;
    const QImage src = Source.FImage;  // shared copy, so that stretching a bitmap onto itself reads the original
    const std::int32_t srcW = src.width(), srcH = src.height();
    const std::uint8_t* srcBits = src.constBits();
    const qsizetype srcStride = src.bytesPerLine();
    std::uint8_t* dstBits = FImage.bits();
    const qsizetype dstStride = FImage.bytesPerLine();

    if (Mode == smColorOnColor || (sw == dw && sh == dh)) {
        // Equal sizes: both modes reduce to picking pixel i of the source for pixel i.
        std::vector<std::int32_t> col(static_cast<std::size_t>(x1 - x0));
        for (std::int32_t i = x0; i < x1; ++i) {
            const std::int64_t k = (2 * std::int64_t{i} + 1) * sw / (2 * std::int64_t{dw});
            col[static_cast<std::size_t>(i - x0)] =
                static_cast<std::int32_t>(std::clamp<std::int64_t>(SrcRect.Left + k, 0, srcW - 1));
        }
        for (std::int32_t j = y0; j < y1; ++j) {
            const std::int64_t k = (2 * std::int64_t{j} + 1) * sh / (2 * std::int64_t{dh});
            const auto sy = static_cast<std::int32_t>(std::clamp<std::int64_t>(SrcRect.Top + k, 0, srcH - 1));
            const auto* s = reinterpret_cast<const std::uint32_t*>(srcBits + sy * srcStride);
            auto* d = reinterpret_cast<std::uint32_t*>(dstBits + (DstRect.Top + j) * dstStride) + DstRect.Left;
            for (std::int32_t i = x0; i < x1; ++i)
                d[i] = s[col[static_cast<std::size_t>(i - x0)]];
        }
        return;
    }

    const TAxisMap xm = BuildAxisMap(SrcRect.Left, sw, dw, x0, x1, srcW);
    const TAxisMap ym = BuildAxisMap(SrcRect.Top, sh, dh, y0, y1, srcH);
    // Row pass over the source columns the column pass reads, [cx0, cx1).
    const std::int32_t cx0 = xm.MinIndex, ncols = xm.MaxIndex - xm.MinIndex + 1;
    const std::size_t nbytes = static_cast<std::size_t>(ncols) * 4;
    std::vector<std::uint16_t> mid(nbytes);
    std::vector<std::int32_t> xIndex(xm.Index);  // relative to cx0
    for (std::int32_t& k : xIndex)
        k -= cx0;
    std::vector<const std::uint8_t*> rows;
    for (std::int32_t j = y0; j < y1; ++j) {
        const auto jr = static_cast<std::size_t>(j - y0);
        const auto e0 = static_cast<std::size_t>(ym.Start[jr]), e1 = static_cast<std::size_t>(ym.Start[jr + 1]);
        rows.clear();
        for (std::size_t e = e0; e < e1; ++e)
            rows.push_back(srcBits + ym.Index[e] * srcStride + cx0 * 4);
        WeightRows(mid.data(), rows.data(), ym.Weight.data() + e0, rows.size(), nbytes);

        auto* d = reinterpret_cast<std::uint32_t*>(dstBits + (DstRect.Top + j) * dstStride) + DstRect.Left + x0;
        WeightColumns(d, mid.data(), xm.Start.data(), xIndex.data(), xm.Weight.data(), static_cast<std::size_t>(x1 - x0));
    }
}

TCanvas& TBitmap::Canvas()
{
    if (!FCanvas)
        FCanvas = std::make_unique<TCanvas>(*this);
    return *FCanvas;
}

}  // namespace qv
