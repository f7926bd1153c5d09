// TTileCache: windows of a source assembled from cached tiles.
#include <qvgeo/platform/tile_cache.h>

#include <algorithm>

namespace qv {

TTileCache::TTileCache(std::shared_ptr<const TImageSource> Source, std::int32_t TileSize, std::int64_t ByteLimit)
    : FSource(std::move(Source)), FTileSize(std::max(TileSize, 16)),
      FByteLimit(std::max(ByteLimit, std::int64_t{FTileSize} * FTileSize * 4))
{
}

std::uint64_t TTileCache::Key(int Level, std::int32_t Col, std::int32_t Row)
{
    // 8 bits of level, 28 of column and row: 2^28 tiles of 16 pixels is beyond any level's 2^31 pixels.
    return std::uint64_t(static_cast<std::uint8_t>(Level)) << 56 | std::uint64_t(std::uint32_t(Col) & 0xFFFFFFFu) << 28 |
           (std::uint32_t(Row) & 0xFFFFFFFu);
}

bool TTileCache::Holds(int Level, std::int32_t Col, std::int32_t Row) const
{
    return FTiles.count(Key(Level, Col, Row)) != 0;
}

void TTileCache::Clear()
{
    FTiles.clear();
    FLru.clear();
    FBytes = 0;
}

const TBitmap& TTileCache::Tile(int Level, std::int32_t Col, std::int32_t Row) const
{
    const std::uint64_t key = Key(Level, Col, Row);
    if (const auto it = FTiles.find(key); it != FTiles.end()) {
        FLru.splice(FLru.begin(), FLru, it->second);
        return it->second->Pixels;
    }
    const TSize level = FSource->LevelSize(Level);
    const TRect part{Col * FTileSize, Row * FTileSize, std::min(level.cx, (Col + 1) * FTileSize),
                     std::min(level.cy, (Row + 1) * FTileSize)};
    TBitmap pixels = FSource->ReadWindow(Level, part);  // raises before anything changes here
    ++FTilesRead;
    const std::int64_t bytes = std::int64_t{pixels.Width()} * pixels.Height() * 4;
    // Room first: the tiles least recently used go (the limit holds at least one tile).
    while (!FLru.empty() && FBytes + bytes > FByteLimit) {
        const TEntry& last = FLru.back();
        FBytes -= std::int64_t{last.Pixels.Width()} * last.Pixels.Height() * 4;
        FTiles.erase(last.Key);
        FLru.pop_back();
    }
    FLru.push_front({key, std::move(pixels)});
    FTiles.emplace(key, FLru.begin());
    FBytes += bytes;
    return FLru.front().Pixels;
}

TBitmap TTileCache::ReadWindow(int Level, TRect Window) const
{
    TBitmap out(std::max(0, Window.Width()), std::max(0, Window.Height()));
    const TSize level = FSource->LevelSize(Level);
    const TRect inside{std::max(Window.Left, 0), std::max(Window.Top, 0), std::min(Window.Right, level.cx),
                       std::min(Window.Bottom, level.cy)};
    if (out.Empty() || inside.IsEmpty())
        return out;
    const std::int32_t T = FTileSize;
    for (std::int32_t row = inside.Top / T; row * T < inside.Bottom; ++row) {
        for (std::int32_t col = inside.Left / T; col * T < inside.Right; ++col) {
            const TBitmap& tile = Tile(Level, col, row);
            // The part of the tile inside the window, in tile pixels; copied before the next tile may evict it.
            const TRect part{std::max(inside.Left - col * T, 0), std::max(inside.Top - row * T, 0),
                             std::min(inside.Right - col * T, tile.Width()),
                             std::min(inside.Bottom - row * T, tile.Height())};
            out.CopyRect(col * T + part.Left - Window.Left, row * T + part.Top - Window.Top, tile, part);
        }
    }
    return out;
}

}  // namespace qv
