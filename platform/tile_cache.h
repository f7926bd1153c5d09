// TTileCache: a TImageSource read through fixed-size tiles kept in memory, so that a view that pans or
// repaints reads from the file only the tiles it has not seen lately. It is itself a TImageSource: a
// window is assembled from the tiles it touches (each read whole from the source on first use) and comes
// back exactly as the source would have given it.
//
// Tiles are TileSize x TileSize pixels of one level, aligned to multiples of TileSize from the level's
// top-left corner (the last column and row are cut at the level's edge). They are kept least recently used
// first out, within ByteLimit bytes of pixels (4 bytes a pixel).
//
// The defaults, 512-pixel tiles and 192 MiB: a 1920 x 1080 view is drawn from the level with at least a
// pixel per screen pixel, up to 3840 x 2160 level pixels, which touch at most 9 x 6 = 54 tiles of 1 MiB;
// 192 MiB keeps those, a zoom step's worth of the neighbouring level and the ground of a few pans. Smaller
// tiles would let a pan read less beyond the new strip but multiply the reads (each a seek, a block to
// decode and a GDAL call); a file's own blocks are usually 256 or 512 pixels, so a 512 tile reads whole
// blocks of either.
#pragma once

#include <qvgeo/platform/image_source.h>

#include <cstdint>
#include <list>
#include <memory>
#include <unordered_map>

namespace qv {

class TTileCache : public TImageSource {
public:
    static constexpr std::int32_t DefaultTileSize = 512;
    static constexpr std::int64_t DefaultByteLimit = std::int64_t{192} << 20;

    // TileSize is at least 16; ByteLimit at least one tile's bytes.
    explicit TTileCache(std::shared_ptr<const TImageSource> Source, std::int32_t TileSize = DefaultTileSize,
                        std::int64_t ByteLimit = DefaultByteLimit);

    TSize Size() const override { return FSource->Size(); }
    int LevelCount() const override { return FSource->LevelCount(); }
    TSize LevelSize(int Level) const override { return FSource->LevelSize(Level); }
    double LevelScale(int Level) const override { return FSource->LevelScale(Level); }
    double LevelScaleY(int Level) const override { return FSource->LevelScaleY(Level); }
    std::string FormatName() const override { return FSource->FormatName(); }
    // Window assembled from the tiles; parts outside the level are white, as the interface says. A tile
    // the source cannot read raises its error and nothing is cached for it.
    TBitmap ReadWindow(int Level, TRect Window) const override;

    const TImageSource& Source() const { return *FSource; }
    std::int32_t TileSize() const { return FTileSize; }
    std::int64_t ByteLimit() const { return FByteLimit; }
    // Bytes of pixels held, and the number of tiles.
    std::int64_t Bytes() const { return FBytes; }
    std::size_t TileCount() const { return FTiles.size(); }
    // Tiles read from the source since construction.
    std::uint64_t TilesRead() const { return FTilesRead; }
    // Whether the tile at column Col, row Row (in tiles) of Level is held.
    bool Holds(int Level, std::int32_t Col, std::int32_t Row) const;
    void Clear();

private:
    struct TEntry {
        std::uint64_t Key;
        TBitmap Pixels;
    };
    static std::uint64_t Key(int Level, std::int32_t Col, std::int32_t Row);
    // The tile, read on a miss and made the most recently used either way.
    const TBitmap& Tile(int Level, std::int32_t Col, std::int32_t Row) const;

    std::shared_ptr<const TImageSource> FSource;
    std::int32_t FTileSize;
    std::int64_t FByteLimit;
    // The cache is what a const read of the source fills: it changes no pixel a caller sees.
    mutable std::list<TEntry> FLru;  // most recently used first
    mutable std::unordered_map<std::uint64_t, std::list<TEntry>::iterator> FTiles;
    mutable std::int64_t FBytes = 0;
    mutable std::uint64_t FTilesRead = 0;
};

}  // namespace qv
