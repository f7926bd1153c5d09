#include <qvgeo/geodb/indexes.h>

#include <algorithm>
#include <bit>
#include <vector>

namespace qv {

float IndexKeyOf(const TgdbData& Data, int IndexNo)
{
    switch (IndexNo) {
    case 1: return Data.LatLow;
    case 2: return Data.LatHigh;
    case 3: return Data.LongLow;
    default: return Data.LongHigh;
    }
}

namespace {

// The halving loop exactly as the index format defines it: stop at the first equal key met, and step one
// place on when the value is greater than the key where the loop stopped.
template <class Greater, class Equal>
int HalvingSearch(int Hi, Greater greater, Equal equal)
{
    if (Hi < 0)
        return 0;
    int lo = 0;
    int mid = 0;
    bool found = false;
    while (lo <= Hi && !found) {
        mid = lo + (Hi - lo) / 2;  // equals (lo + Hi) div 2 for the non-negative bounds used here
        if (greater(mid))
            lo = mid + 1;
        else if (equal(mid))
            found = true;
        else
            Hi = mid - 1;
    }
    if (greater(mid))
        ++mid;
    return mid;
}

}  // namespace

int ClosestLLPos(std::span<const TIxLLRec> Ix, int Hi, double Value)
{
    Hi = std::min(Hi, static_cast<int>(Ix.size()) - 1);
    return HalvingSearch(
        Hi, [&](int m) { return Value > static_cast<double>(Ix[static_cast<std::size_t>(m)].LLValue); },
        [&](int m) { return Value == static_cast<double>(Ix[static_cast<std::size_t>(m)].LLValue); });
}

int ClosestItemIDPos(std::span<const TIxItemIDRec> Ix, int Hi, std::int32_t Id)
{
    Hi = std::min(Hi, static_cast<int>(Ix.size()) - 1);
    return HalvingSearch(
        Hi, [&](int m) { return Id > Ix[static_cast<std::size_t>(m)].ItemID; },
        [&](int m) { return Id == Ix[static_cast<std::size_t>(m)].ItemID; });
}

void SortIxInto(TIxLLRecArray& Ix, const TIxLLRec& Entry)
{
    if (Ix.empty())
        return;
    const int last = static_cast<int>(Ix.size()) - 1;
    const int pos = ClosestLLPos(Ix, last - 1, Entry.LLValue);
    std::move_backward(Ix.begin() + pos, Ix.begin() + last, Ix.end());
    Ix[static_cast<std::size_t>(pos)] = Entry;
}

void SortIxItemIDInto(TIxItemIDRecArray& Ix, const TIxItemIDRec& Entry)
{
    if (Ix.empty())
        return;
    const int last = static_cast<int>(Ix.size()) - 1;
    const int pos = ClosestItemIDPos(Ix, last - 1, Entry.ItemID);
    std::move_backward(Ix.begin() + pos, Ix.begin() + last, Ix.end());
    Ix[static_cast<std::size_t>(pos)] = Entry;
}

namespace {
bool LessLL(const TIxLLRec& a, const TIxLLRec& b) { return LLKeyLess(a.LLValue, b.LLValue); }
bool LessID(const TIxItemIDRec& a, const TIxItemIDRec& b) { return a.ItemID < b.ItemID; }
}  // namespace

void MergeTailLL(TIxLLRecArray& Ix, std::size_t Start)
{
    Start = std::min(Start, Ix.size());
    const auto mid = Ix.begin() + static_cast<std::ptrdiff_t>(Start);
    std::sort(mid, Ix.end(), LessLL);
    std::inplace_merge(Ix.begin(), mid, Ix.end(), LessLL);
}

void MergeTailItemID(TIxItemIDRecArray& Ix, std::size_t Start)
{
    Start = std::min(Start, Ix.size());
    const auto mid = Ix.begin() + static_cast<std::ptrdiff_t>(Start);
    std::sort(mid, Ix.end(), LessID);
    std::inplace_merge(Ix.begin(), mid, Ix.end(), LessID);
}

void BuildIndexLL(std::span<const TgdbData> Table, int IndexNo, TIxLLRecArray& Ix)
{
    Ix.resize(Table.size());
    for (std::size_t i = 0; i < Table.size(); ++i)
        Ix[i] = TIxLLRec{IndexKeyOf(Table[i], IndexNo), static_cast<std::int32_t>(i)};
    MergeTailLL(Ix, 0);
}

void BuildIndexItemID(std::span<const TgdbData> Table, TIxItemIDRecArray& Ix)
{
    Ix.resize(Table.size());
    for (std::size_t i = 0; i < Table.size(); ++i)
        Ix[i] = TIxItemIDRec{Table[i].ItemId, static_cast<std::int32_t>(i)};
    MergeTailItemID(Ix, 0);
}

namespace {

template <class Entry, class KeyMatches, class Less>
std::string CheckIndex(std::size_t N, std::span<const Entry> Ix, KeyMatches keyMatches, Less less)
{
    if (Ix.size() != N)
        return "holds " + std::to_string(Ix.size()) + " entries for " + std::to_string(N) + " records";
    std::vector<bool> seen(N, false);
    for (std::size_t i = 0; i < Ix.size(); ++i) {
        const std::int32_t r = Ix[i].index;
        if (r < 0 || static_cast<std::size_t>(r) >= N)
            return "entry " + std::to_string(i + 1) + " points to record " + std::to_string(r + 1LL) +
                   " outside the table";
        if (seen[static_cast<std::size_t>(r)])
            return "record " + std::to_string(r + 1) + " is entered twice";
        seen[static_cast<std::size_t>(r)] = true;
        if (!keyMatches(Ix[i]))
            return "entry " + std::to_string(i + 1) + " does not carry the key of record " +
                   std::to_string(r + 1);
        if (i > 0 && less(Ix[i], Ix[i - 1]))
            return "entry " + std::to_string(i + 1) + " is out of order";
    }
    return {};
}

}  // namespace

std::string CheckIndexLL(std::span<const TgdbData> Table, int IndexNo, std::span<const TIxLLRec> Ix)
{
    return CheckIndex<TIxLLRec>(
        Table.size(), Ix,
        [&](const TIxLLRec& e) {
            // Bit patterns, so that a NaN key matches the NaN of its record.
            return std::bit_cast<std::uint32_t>(e.LLValue) ==
                   std::bit_cast<std::uint32_t>(IndexKeyOf(Table[static_cast<std::size_t>(e.index)], IndexNo));
        },
        LessLL);
}

std::string CheckIndexItemID(std::span<const TgdbData> Table, std::span<const TIxItemIDRec> Ix)
{
    return CheckIndex<TIxItemIDRec>(
        Table.size(), Ix,
        [&](const TIxItemIDRec& e) { return e.ItemID == Table[static_cast<std::size_t>(e.index)].ItemId; },
        LessID);
}

}  // namespace qv
