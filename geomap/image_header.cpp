// Image header parsing for BMP (BITMAPCOREHEADER and the BITMAPINFOHEADER family) and JPEG (segments up
// to the first start-of-frame marker). Every read is bounds-checked: hostile files give false.
#include <qvgeo/geomap/image_header.h>

#include <array>
#include <fstream>
#include <functional>

namespace qv {

namespace {

// Reads Count bytes at Offset into Out; false when the input ends first.
using TFetch = std::function<bool(std::uint64_t Offset, std::size_t Count, std::uint8_t* Out)>;

std::uint32_t LE16(const std::uint8_t* p) { return p[0] | (std::uint32_t{p[1]} << 8); }
std::uint32_t LE32(const std::uint8_t* p) { return LE16(p) | (LE16(p + 2) << 16); }
std::uint32_t BE16(const std::uint8_t* p) { return (std::uint32_t{p[0]} << 8) | p[1]; }

bool ParseBMP(const TFetch& Fetch, std::int32_t& Width, std::int32_t& Height)
{
    std::array<std::uint8_t, 12> h{};
    // File header (14 bytes), then the DIB header starting with its own size.
    if (!Fetch(14, 4, h.data()))
        return false;
    const std::uint32_t dibSize = LE32(h.data());
    std::int64_t w = 0, hgt = 0;
    if (dibSize == 12) {  // BITMAPCOREHEADER: 16-bit unsigned sizes
        if (!Fetch(18, 4, h.data()))
            return false;
        w = LE16(h.data());
        hgt = LE16(h.data() + 2);
    } else if (dibSize >= 40 && dibSize <= 1024) {
        if (!Fetch(18, 8, h.data()))
            return false;
        w = static_cast<std::int32_t>(LE32(h.data()));
        // A negative height marks a top-down bitmap; the size is its magnitude.
        hgt = static_cast<std::int32_t>(LE32(h.data() + 4));
        if (hgt < 0)
            hgt = -hgt;
    } else {
        return false;
    }
    if (w <= 0 || hgt <= 0 || hgt > INT32_MAX)
        return false;
    Width = static_cast<std::int32_t>(w);
    Height = static_cast<std::int32_t>(hgt);
    return true;
}

bool IsStartOfFrame(std::uint8_t m)
{
    // C0..CF are frame headers except C4 (Huffman tables), C8 (reserved) and CC (arithmetic conditioning).
    return m >= 0xC0 && m <= 0xCF && m != 0xC4 && m != 0xC8 && m != 0xCC;
}

bool ParseJPEG(const TFetch& Fetch, std::int32_t& Width, std::int32_t& Height)
{
    std::uint64_t pos = 2;  // after FF D8
    std::array<std::uint8_t, 9> b{};
    // Each step advances by at least one byte, so the walk ends with the input.
    for (;;) {
        if (!Fetch(pos, 1, b.data()))
            return false;
        if (b[0] != 0xFF) {
            return false;  // not at a marker: a malformed segment chain
        }
        // Fill bytes: any number of FF before the marker code.
        std::uint8_t m = 0xFF;
        do {
            ++pos;
            if (!Fetch(pos, 1, &m))
                return false;
        } while (m == 0xFF);
        ++pos;
        if (m == 0xD9 || m == 0xDA)
            return false;  // end of image or start of scan before any frame header
        if (m == 0x01 || (m >= 0xD0 && m <= 0xD7))
            continue;  // stand-alone markers without a length
        if (!Fetch(pos, 2, b.data()))
            return false;
        const std::uint32_t len = BE16(b.data());
        if (len < 2)
            return false;
        if (IsStartOfFrame(m)) {
            if (len < 7 || !Fetch(pos + 2, 5, b.data()))
                return false;
            const std::int32_t h = static_cast<std::int32_t>(BE16(b.data() + 1));
            const std::int32_t w = static_cast<std::int32_t>(BE16(b.data() + 3));
            // A height of 0 is legal (defined later by a DNL marker) but not supported here.
            if (w <= 0 || h <= 0)
                return false;
            Width = w;
            Height = h;
            return true;
        }
        pos += len;
    }
}

bool Parse(const TFetch& Fetch, std::int32_t& Width, std::int32_t& Height, TImageFileKind* Kind)
{
    std::array<std::uint8_t, 2> sig{};
    TImageFileKind kind = ifkUnknown;
    bool ok = false;
    if (Fetch(0, 2, sig.data())) {
        if (sig[0] == 'B' && sig[1] == 'M') {
            kind = ifkBMP;
            ok = ParseBMP(Fetch, Width, Height);
        } else if (sig[0] == 0xFF && sig[1] == 0xD8) {
            kind = ifkJPEG;
            ok = ParseJPEG(Fetch, Width, Height);
        }
    }
    if (Kind)
        *Kind = kind;
    return ok;
}

}  // namespace

bool ReadImageSize(std::span<const std::uint8_t> Bytes, std::int32_t& Width, std::int32_t& Height,
                   TImageFileKind* Kind)
{
    const TFetch fetch = [Bytes](std::uint64_t Offset, std::size_t Count, std::uint8_t* Out) {
        if (Offset > Bytes.size() || Count > Bytes.size() - Offset)
            return false;
        for (std::size_t i = 0; i < Count; ++i)
            Out[i] = Bytes[Offset + i];
        return true;
    };
    return Parse(fetch, Width, Height, Kind);
}

bool ReadImageSize(const std::string& FName, std::int32_t& Width, std::int32_t& Height, TImageFileKind* Kind)
{
    std::ifstream f(FName, std::ios::binary);
    if (!f) {
        if (Kind)
            *Kind = ifkUnknown;
        return false;
    }
    const TFetch fetch = [&f](std::uint64_t Offset, std::size_t Count, std::uint8_t* Out) {
        f.clear();
        f.seekg(static_cast<std::streamoff>(Offset));
        f.read(reinterpret_cast<char*>(Out), static_cast<std::streamsize>(Count));
        return f.gcount() == static_cast<std::streamsize>(Count);
    };
    return Parse(fetch, Width, Height, Kind);
}

}  // namespace qv
