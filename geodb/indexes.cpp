#include <qvgeo/geodb/indexes.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
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

// ---- box tree ----------------------------------------------------------------------------------------

namespace {

constexpr float FloatInf = std::numeric_limits<float>::infinity();
constexpr float FloatMax = std::numeric_limits<float>::max();

// The largest float not above V (V not NaN): for every float f, f <= V exactly when f <= FloatAtMost(V).
// Out-of-range doubles are settled before the conversion, which would be undefined for them.
float FloatAtMost(double V)
{
    if (V >= static_cast<double>(FloatMax))
        return V == std::numeric_limits<double>::infinity() ? FloatInf : FloatMax;
    if (V < -static_cast<double>(FloatMax))
        return -FloatInf;
    float f = static_cast<float>(V);
    if (static_cast<double>(f) > V)
        f = std::nextafter(f, -FloatInf);
    return f;
}

// The smallest float not below V: f >= V exactly when f >= FloatAtLeast(V).
float FloatAtLeast(double V) { return -FloatAtMost(-V); }

// Centre of an interval as a sort key; an interval from -inf to +inf gives 0 instead of NaN.
float CentreKey(float Low, float High)
{
    const double c = static_cast<double>(Low) / 2 + static_cast<double>(High) / 2;
    const auto limit = static_cast<double>(FloatMax);
    return c == c ? static_cast<float>(std::clamp(c, -limit, limit)) : 0.0f;
}

}  // namespace

struct TBoxTree::TQuery {
    TBox Box;
    std::uint8_t Kind;
    bool AnyKind;
};

void TBoxTree::Build(std::span<const TgdbData> Table)
{
    FTableSize = Table.size();
    FLevels.clear();
    FRecNo.clear();
    FKind.clear();
    struct TItem {
        float Lat, Long;  // centre of the box
        std::int32_t RecNo;
    };
    std::vector<TItem> items;
    items.reserve(Table.size());
    for (std::size_t i = 0; i < Table.size(); ++i) {
        const TgdbData& d = Table[i];
        if (std::isnan(d.LatLow) || std::isnan(d.LatHigh) || std::isnan(d.LongLow) || std::isnan(d.LongHigh))
            continue;
        items.push_back({CentreKey(d.LatLow, d.LatHigh), CentreKey(d.LongLow, d.LongHigh),
                         static_cast<std::int32_t>(i)});
    }
    // Slices of about sqrt(groups) groups each, west to east; inside a slice south to north and north to
    // south in turn, so that a group spanning the end of one slice and the start of the next stays small.
    std::sort(items.begin(), items.end(), [](const TItem& a, const TItem& b) { return a.Long < b.Long; });
    const std::size_t groups = (items.size() + gdbTreeFanout - 1) / gdbTreeFanout;
    const auto slices = static_cast<std::size_t>(std::ceil(std::sqrt(static_cast<double>(groups))));
    const std::size_t perSlice = slices == 0 ? 1 : (groups + slices - 1) / slices * gdbTreeFanout;
    for (std::size_t s = 0, from = 0; from < items.size(); ++s, from += perSlice) {
        const auto first = items.begin() + static_cast<std::ptrdiff_t>(from);
        const auto last = items.begin() + static_cast<std::ptrdiff_t>(std::min(from + perSlice, items.size()));
        if (s % 2 == 0)
            std::sort(first, last, [](const TItem& a, const TItem& b) { return a.Lat < b.Lat; });
        else
            std::sort(first, last, [](const TItem& a, const TItem& b) { return a.Lat > b.Lat; });
    }
    std::vector<TBox>& level0 = FLevels.emplace_back();
    level0.reserve(items.size());
    FRecNo.reserve(items.size());
    FKind.reserve(items.size());
    for (const TItem& it : items) {
        const TgdbData& d = Table[static_cast<std::size_t>(it.RecNo)];
        level0.push_back({d.LatLow, d.LatHigh, d.LongLow, d.LongHigh});
        FRecNo.push_back(it.RecNo);
        FKind.push_back(d.ItemKind);
    }
    while (FLevels.back().size() > gdbTreeFanout) {
        const std::vector<TBox>& below = FLevels.back();
        std::vector<TBox> above;
        above.reserve((below.size() + gdbTreeFanout - 1) / gdbTreeFanout);
        for (std::size_t from = 0; from < below.size(); from += gdbTreeFanout) {
            TBox b = below[from];
            for (std::size_t i = from + 1; i < std::min(from + gdbTreeFanout, below.size()); ++i) {
                b.LatLow = std::min(b.LatLow, below[i].LatLow);
                b.LatHigh = std::max(b.LatHigh, below[i].LatHigh);
                b.LongLow = std::min(b.LongLow, below[i].LongLow);
                b.LongHigh = std::max(b.LongHigh, below[i].LongHigh);
            }
            above.push_back(b);
        }
        FLevels.push_back(std::move(above));
    }
}

namespace {
// Whether box B meets the rectangle Q, both given by float bounds that compare exactly as the doubles.
template <class Box>
bool Meets(const Box& B, const Box& Q)
{
    // Non-short-circuit: four compares and no branches, which the compiler can keep in registers.
    return (B.LatLow <= Q.LatHigh) & (B.LatHigh >= Q.LatLow) & (B.LongLow <= Q.LongHigh) &
           (B.LongHigh >= Q.LongLow);
}
}  // namespace

void TBoxTree::Descend(const TQuery& Q, std::size_t Level, std::size_t Node, std::vector<int>& Out) const
{
    const std::vector<TBox>& level = FLevels[Level];
    const std::size_t from = Node * gdbTreeFanout;
    const std::size_t to = std::min(from + gdbTreeFanout, level.size());
    if (Level == 0) {
        for (std::size_t i = from; i < to; ++i)
            if (Meets(level[i], Q.Box) && (Q.AnyKind || FKind[i] == Q.Kind))
                Out.push_back(FRecNo[i] + 1);
        return;
    }
    for (std::size_t i = from; i < to; ++i)
        if (Meets(level[i], Q.Box))
            Descend(Q, Level - 1, i, Out);
}

void TBoxTree::Search(double LatLow, double LongLow, double LatHigh, double LongHigh, std::uint8_t Kind,
                      std::vector<int>& Out) const
{
    if (FLevels.empty() || FLevels[0].empty() || !(LatLow <= LatHigh && LongLow <= LongHigh))
        return;
    const TQuery q{{FloatAtLeast(LatLow), FloatAtMost(LatHigh), FloatAtLeast(LongLow), FloatAtMost(LongHigh)},
                   Kind,
                   Kind == gitUndefined};
    // The top level holds at most one group: it is searched as the single child of a root.
    Descend(q, FLevels.size() - 1, 0, Out);
}

}  // namespace qv
