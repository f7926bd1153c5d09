// The sorted in-memory indexes of the database: the binary search shared by all searches and sorted
// insertions, sorted insertion and removal, whole-index sorting for bulk loads and rebuilds, and the
// consistency check run when a database is opened. Beside them, the packed box tree that answers the
// rectangle search once a table has stopped changing.
#pragma once

#include <qvgeo/geodb/records.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace qv {

// Which corner value of a bounding box a coordinate index (1 to 4) is keyed on.
float IndexKeyOf(const TgdbData& Data, int IndexNo);

// The halving search over entries 0..Hi: the 0-based position at which Value stands (whichever equal key
// the halving meets first) or would be inserted. Hi < 0 gives 0. Float keys are widened to double
// before every comparison, so a key stored as the float nearest 47.1 is not equal to 47.1.
int ClosestLLPos(std::span<const TIxLLRec> Ix, int Hi, double Value);
int ClosestItemIDPos(std::span<const TIxItemIDRec> Ix, int Hi, std::int32_t Id);

// Sorted insertion into an array that the caller has already lengthened by one (its last slot is free):
// later entries move one place up and Entry lands at the searched position, in front of an equal key.
void SortIxInto(TIxLLRecArray& Ix, const TIxLLRec& Entry);
void SortIxItemIDInto(TIxItemIDRecArray& Ix, const TIxItemIDRec& Entry);

// Order used for whole-index sorts. NaN keys (possible in a hand-made file) sort after every number,
// which keeps the order strict-weak and the searches well-defined.
inline bool LLKeyLess(float a, float b) noexcept
{
    if (a != a)
        return false;
    if (b != b)
        return true;
    return a < b;
}

// Sorts the entries from Start on and merges them into the sorted entries before Start: near-linear when
// a bulk load appends many entries to a large sorted index.
void MergeTailLL(TIxLLRecArray& Ix, std::size_t Start);
void MergeTailItemID(TIxItemIDRecArray& Ix, std::size_t Start);

// Builds index IndexNo (0 identifiers, 1..4 corners) of a table from scratch.
void BuildIndexLL(std::span<const TgdbData> Table, int IndexNo, TIxLLRecArray& Ix);
void BuildIndexItemID(std::span<const TgdbData> Table, TIxItemIDRecArray& Ix);

// Checks that an index read from its file fits the table: one entry per record, every `index` a valid
// record number used once, the keys those of the records, the keys in order. Returns an empty text when
// it does, else what is wrong.
std::string CheckIndexLL(std::span<const TgdbData> Table, int IndexNo, std::span<const TIxLLRec> Ix);
std::string CheckIndexItemID(std::span<const TgdbData> Table, std::span<const TIxItemIDRec> Ix);

// A read-only tree over the bounding boxes of a table, built in one pass and thrown away when the table
// changes. Items are packed in groups of gdbTreeFanout, sorted into vertical slices by the centre of
// their box and within a slice by latitude (snaking up one slice and down the next), so that each group
// and each node above it covers a compact patch; a search descends only into nodes whose box meets the
// rectangle. Boxes stay float32 as in the records; the rectangle is turned into the float bounds that
// give exactly the double-precision comparisons of the search, so no item is gained or lost. Items with
// a NaN corner are left out: they meet no rectangle.
inline constexpr std::size_t gdbTreeFanout = 16;

class TBoxTree {
public:
    void Build(std::span<const TgdbData> Table);
    std::size_t TableSize() const noexcept { return FTableSize; }
    // Appends the 1-based record numbers of the items (of kind Kind, or any with gitUndefined) whose box
    // meets [LatLow, LatHigh] x [LongLow, LongHigh] (degrees, edges included), in no particular order.
    void Search(double LatLow, double LongLow, double LatHigh, double LongHigh, std::uint8_t Kind,
                std::vector<int>& Out) const;

private:
    struct TBox {
        float LatLow, LatHigh, LongLow, LongHigh;
    };
    struct TQuery;
    void Descend(const TQuery& Q, std::size_t Level, std::size_t Node, std::vector<int>& Out) const;

    std::size_t FTableSize = 0;
    // FLevels[0]: the items in packed order; FLevels[L]: the boxes of the groups of level L - 1, whose
    // node j covers entries [j * gdbTreeFanout, (j + 1) * gdbTreeFanout) of level L - 1.
    std::vector<std::vector<TBox>> FLevels;
    std::vector<std::int32_t> FRecNo;  // 0-based record number of each item of level 0
    std::vector<std::uint8_t> FKind;   // its ItemKind
};

}  // namespace qv
