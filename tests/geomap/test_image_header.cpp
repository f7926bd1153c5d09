// Image sizes from BMP and JPEG headers, including truncated and hostile headers.
#include "geomap/image_header.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <vector>

namespace qv {
namespace {

using Bytes = std::vector<std::uint8_t>;

void PutLE(Bytes& b, std::size_t at, std::uint32_t v, int n)
{
    if (b.size() < at + n)
        b.resize(at + n);
    for (int i = 0; i < n; ++i)
        b[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
}

Bytes Bmp(std::uint32_t dibSize, std::int32_t w, std::int32_t h)
{
    Bytes b = {'B', 'M'};
    PutLE(b, 14, dibSize, 4);
    if (dibSize == 12) {
        PutLE(b, 18, static_cast<std::uint32_t>(w), 2);
        PutLE(b, 20, static_cast<std::uint32_t>(h), 2);
    } else {
        PutLE(b, 18, static_cast<std::uint32_t>(w), 4);
        PutLE(b, 22, static_cast<std::uint32_t>(h), 4);
    }
    b.resize(b.size() + 16);
    return b;
}

// SOI, an APP0 segment, optional fill bytes, a frame header of the given marker, then a scan.
Bytes Jpeg(std::uint8_t sof, int w, int h, int fill = 0)
{
    Bytes b = {0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x10, 'J', 'F', 'I', 'F', 0, 1, 1, 0, 0, 1, 0, 1, 0, 0};
    b.push_back(0xFF);
    b.push_back(0xDB);  // a quantisation table segment of 4 bytes
    b.insert(b.end(), {0x00, 0x04, 0x00, 0x00});
    for (int i = 0; i < fill; ++i)
        b.push_back(0xFF);
    b.insert(b.end(), {0xFF, sof, 0x00, 0x11, 0x08, static_cast<std::uint8_t>(h >> 8), static_cast<std::uint8_t>(h),
                       static_cast<std::uint8_t>(w >> 8), static_cast<std::uint8_t>(w), 3});
    b.resize(b.size() + 9);
    b.insert(b.end(), {0xFF, 0xDA, 0x00, 0x02});
    return b;
}

TEST(ImageHeader, ReadsValidHeaders)
{
    struct Case {
        Bytes bytes;
        std::int32_t w, h;
        TImageFileKind kind;
    };
    const Case cases[] = {
        {Bmp(40, 800, 600), 800, 600, ifkBMP},      {Bmp(40, 800, -600), 800, 600, ifkBMP},
        {Bmp(124, 1, 3000000), 1, 3000000, ifkBMP}, {Bmp(12, 65535, 2), 65535, 2, ifkBMP},
        {Jpeg(0xC0, 1024, 768), 1024, 768, ifkJPEG}, {Jpeg(0xC2, 3, 65535), 3, 65535, ifkJPEG},
        {Jpeg(0xC1, 640, 480, 5), 640, 480, ifkJPEG},
    };
    for (const Case& c : cases) {
        std::int32_t w = 0, h = 0;
        TImageFileKind kind = ifkUnknown;
        EXPECT_TRUE(ReadImageSize(c.bytes, w, h, &kind));
        EXPECT_EQ(w, c.w);
        EXPECT_EQ(h, c.h);
        EXPECT_EQ(kind, c.kind);
    }
}

TEST(ImageHeader, RejectsMalformedHeaders)
{
    Bytes truncatedJpeg = Jpeg(0xC0, 10, 10);
    truncatedJpeg.resize(26);
    Bytes badLength = Jpeg(0xC0, 10, 10);
    badLength[4] = 0;
    badLength[5] = 1;  // a segment length below 2
    Bytes noFrame = {0xFF, 0xD8, 0xFF, 0xDA, 0x00, 0x02};
    Bytes notAtMarker = {0xFF, 0xD8, 0x12, 0x34};
    Bytes allFill(100000, 0xFF);
    allFill[1] = 0xD8;
    const Bytes cases[] = {
        {}, {'B'}, {'B', 'M'}, Bmp(40, 0, 10), Bmp(40, -5, 10), Bmp(40, 5, 0), Bmp(41 + 2000, 5, 5), Bmp(13, 5, 5),
        Jpeg(0xC0, 0, 10), Jpeg(0xC0, 10, 0), truncatedJpeg, badLength, noFrame, notAtMarker, allFill,
        {'G', 'I', 'F', '8', '9', 'a', 1, 0, 1, 0},
    };
    for (const Bytes& b : cases) {
        std::int32_t w = 77, h = 88;
        EXPECT_FALSE(ReadImageSize(b, w, h));
        EXPECT_EQ(w, 77);
        EXPECT_EQ(h, 88);
    }
    // The C4 (Huffman table) marker is not a frame header: it is skipped like any segment.
    Bytes dht = Jpeg(0xC4, 10, 10);
    std::int32_t w = 0, h = 0;
    EXPECT_FALSE(ReadImageSize(dht, w, h));
}

TEST(ImageHeader, ReadsFromFiles)
{
    const auto dir = std::filesystem::temp_directory_path() / "qvgeo_image_header_test";
    std::filesystem::create_directories(dir);
    const Bytes jpg = Jpeg(0xC0, 321, 123);
    const auto path = (dir / "a.picture").string();
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(jpg.data()), static_cast<std::streamsize>(jpg.size()));
    std::int32_t w = 0, h = 0;
    TImageFileKind kind = ifkUnknown;
    EXPECT_TRUE(ReadImageSize(path, w, h, &kind));  // recognised by content, whatever the extension
    EXPECT_EQ(w, 321);
    EXPECT_EQ(h, 123);
    EXPECT_EQ(kind, ifkJPEG);
    EXPECT_FALSE(ReadImageSize((dir / "missing.bmp").string(), w, h));
    std::filesystem::remove_all(dir);
}

TEST(ImageHeader, TheBundledSampleMapHasItsDocumentedSize)
{
    std::int32_t w = 0, h = 0;
    ASSERT_TRUE(ReadImageSize(std::string(QVGEO_SOURCE_DIR) + "/data/samples/calib-vienna.bmp", w, h));
    EXPECT_EQ(w, 800);
    EXPECT_EQ(h, 600);
}

}  // namespace
}  // namespace qv
