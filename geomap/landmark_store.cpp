#include <qvgeo/geomap/landmark_store.h>

#include <qvgeo/support/bit_field.h>
#include <qvgeo/support/errors.h>

#include <algorithm>
#include <atomic>
#include <new>
#include <stdexcept>
#include <utility>

namespace qv {

namespace {

constexpr std::size_t GrowthStep = 1000;

// Plain squared difference of degrees; kept in this order so that ties compare exactly equal.
double Dist2(const TLandMark& lm, double Lat, double Long)
{
    const double dLat = lm.Latitude - Lat;
    const double dLong = lm.Longitude - Long;
    return dLat * dLat + dLong * dLong;
}

bool OfClass(const TLandMark& lm, std::int32_t Class) { return Class == -1 || lm.ClassFlag == Class; }

// Counts nested hook calls even when the hook throws.
class TActionScope {
public:
    explicit TActionScope(int& counter) : FCounter(counter) { ++FCounter; }
    ~TActionScope() { --FCounter; }
    TActionScope(const TActionScope&) = delete;
    TActionScope& operator=(const TActionScope&) = delete;

private:
    int& FCounter;
};

}  // namespace

TLandMarkStore::TLandMarkStore() : FLandMarks(GrowthStep), FDefaultLM(DefaultLandMarkRecord())
{
    FLMClassVisible.fill(true);
}

TLandMarkStore::TLandMarkStore(TLandMarkStore&& Other) : TLandMarkStore() { SwapWith(Other); }

TLandMarkStore& TLandMarkStore::operator=(TLandMarkStore&& Other)
{
    TLandMarkStore taken(std::move(Other));
    SwapWith(taken);
    return *this;
}

std::uint64_t TLandMarkStore::NextRevision()
{
    static std::atomic<std::uint64_t> counter{0};
    return ++counter;
}

void TLandMarkStore::SwapWith(TLandMarkStore& Other) noexcept
{
    using std::swap;
    FRevision = NextRevision();
    Other.FRevision = NextRevision();
    swap(LandMarkActionHook, Other.LandMarkActionHook);
    FNotice.SwapListener(Other.FNotice);
    swap(FComponentName, Other.FComponentName);
    swap(FNumLandMarks, Other.FNumLandMarks);
    swap(FLandMarks, Other.FLandMarks);
    swap(FDefaultLM, Other.FDefaultLM);
    swap(FLMClassVisible, Other.FLMClassVisible);
    swap(FHighLM, Other.FHighLM);
    swap(FHighLMColFG, Other.FHighLMColFG);
    swap(FHighLMColBG, Other.FHighLMColBG);
    swap(FHighLMTrans, Other.FHighLMTrans);
    swap(FInAction, Other.FInAction);
}

void TLandMarkStore::SetDefaultLandMark(const TLandMark& LandMark)
{
    FDefaultLM = LandMark;
    CutLandMarkStrings(FDefaultLM);
}

bool TLandMarkStore::Ask(TLandMarkAction Action, const TLandMark& LandMark)
{
    if (!LandMarkActionHook)
        return true;
    bool allowed = true;
    const TLandMark copy = LandMark;  // the handler sees the record as it stands before the call
    TActionScope scope(FInAction);
    LandMarkActionHook(allowed, Action, copy);
    return allowed;
}

void TLandMarkStore::ResizeArray(std::size_t Length)
{
    try {
        // The length follows the steps of 1000; the allocation below it grows geometrically, so that
        // a long run of appends does not copy the whole list at every step.
        if (Length > FLandMarks.capacity())
            FLandMarks.reserve(std::max(Length, 2 * FLandMarks.capacity()));
        FLandMarks.resize(Length);
    } catch (const std::bad_alloc&) {
        throw EXELGeoMapError(ComponentMessage(FComponentName, "insufficient memory"));
    } catch (const std::length_error&) {
        throw EXELGeoMapError(ComponentMessage(FComponentName, "insufficient memory"));
    }
}

void TLandMarkStore::ResetArray()
{
    // A fresh vector so that the memory of a long list is given back, not only its elements.
    try {
        std::vector<TLandMark>(GrowthStep).swap(FLandMarks);
    } catch (const std::bad_alloc&) {
        throw EXELGeoMapError(ComponentMessage(FComponentName, "insufficient memory"));
    }
}

std::int32_t TLandMarkStore::Append(const TLandMark& LandMark)
{
    const std::int32_t count = FNumLandMarks + 1;
    const auto ucount = static_cast<std::size_t>(count);
    if (ucount > GrowthStep && ucount % GrowthStep == 1) {
        const std::size_t length = ((ucount - 1) / GrowthStep + 1) * GrowthStep;
        if (length > FLandMarks.size())
            ResizeArray(length);
    }
    if (ucount > FLandMarks.size())  // only if the length was set by other means than the rule above
        ResizeArray(((ucount - 1) / GrowthStep + 1) * GrowthStep);
    FLandMarks[ucount - 1] = LandMark;
    FNumLandMarks = count;
    Changed(lcList);
    return count;
}

TLandMark TLandMarkStore::TemplateAt(double Lat, double Long, double Alt) const
{
    TLandMark lm = FDefaultLM;
    lm.Latitude = Lat;
    lm.Longitude = Long;
    lm.Altitude = Alt;
    return lm;
}

std::int32_t TLandMarkStore::Offer(const TLandMark& lm)
{
    if (FInAction > 0 || !Ask(lmaAdd, lm))
        return 0;
    return Append(lm);
}

std::int32_t TLandMarkStore::AddLandMark(double Lat, double Long, double Alt)
{
    TLandMark lm = TemplateAt(Lat, Long, Alt);
    return Offer(lm);
}

std::int32_t TLandMarkStore::AddLandMark(double Lat, double Long, double Alt, std::string_view Ident,
                                         double Time)
{
    TLandMark lm = TemplateAt(Lat, Long, Alt);
    lm.Identifier = CutShortString(Ident, LMIdentifierCapacity);
    lm.Time = Time;
    return Offer(lm);
}

std::int32_t TLandMarkStore::AddLandMark(double Lat, double Long, double Alt, std::string_view Caption,
                                         std::int32_t Size, TColor Color)
{
    TLandMark lm = TemplateAt(Lat, Long, Alt);
    lm.Caption.Text = CutShortString(Caption, LMTextCapacity);
    lm.Caption.Size = Size;
    lm.Caption.FGColor = Color;
    return Offer(lm);
}

std::int32_t TLandMarkStore::AddLandMark(double Lat, double Long, double Alt, std::string_view Ident,
                                         double Time, std::string_view Caption, std::int32_t Size, TColor Color)
{
    TLandMark lm = TemplateAt(Lat, Long, Alt);
    lm.Identifier = CutShortString(Ident, LMIdentifierCapacity);
    lm.Time = Time;
    lm.Caption.Text = CutShortString(Caption, LMTextCapacity);
    lm.Caption.Size = Size;
    lm.Caption.FGColor = Color;
    return Offer(lm);
}

std::int32_t TLandMarkStore::AddLandMark(double Lat, double Long, double Alt, TLandMarkElement Kind,
                                         std::uint8_t ClassFlag, std::string_view Ident, double Time,
                                         std::int32_t Tag, TColor FGColor, TColor BGColor, std::int32_t Size,
                                         bool Transparent, std::int32_t Direction, std::int32_t Length)
{
    TLandMark lm = TemplateAt(Lat, Long, Alt);
    lm.SymbolProps.Kind = Kind;
    lm.ClassFlag = ClassFlag;
    lm.Identifier = CutShortString(Ident, LMIdentifierCapacity);
    lm.Time = Time;
    lm.Tag = Tag;
    lm.SymbolProps.FGColor = FGColor;
    lm.SymbolProps.BGColor = BGColor;
    lm.SymbolProps.Size = Size;
    lm.SymbolProps.Transparent = Transparent;
    lm.SymbolProps.Direction = Direction;
    lm.SymbolProps.Length = Length;
    return Offer(lm);
}

std::int32_t TLandMarkStore::FindLandMark(double Lat, double Long, std::int32_t Class) const
{
    if (FNumLandMarks == 0)
        return 0;
    Class = NormalClass(Class);
    double best = 1e10;
    std::int32_t result = 0;
    for (std::int32_t i = 1; i <= FNumLandMarks; ++i) {
        const TLandMark& lm = FLandMarks[static_cast<std::size_t>(i - 1)];
        if (!OfClass(lm, Class))
            continue;
        const double d2 = Dist2(lm, Lat, Long);
        if (best > d2) {  // strictly: the lower number wins a tie
            best = d2;
            result = i;
        }
    }
    return result;
}

std::int32_t TLandMarkStore::RemoveIndexAllowed(std::int32_t Index)
{
    const auto slot = static_cast<std::size_t>(Index - 1);
    if (Index != FNumLandMarks)
        FLandMarks[slot] = std::move(FLandMarks[static_cast<std::size_t>(FNumLandMarks - 1)]);
    --FNumLandMarks;
    if (FNumLandMarks == 0)
        ResetArray();
    return 1;
}

std::int32_t TLandMarkStore::RemoveLandMark(double Lat, double Long, std::int32_t Class)
{
    if (FInAction > 0)
        return 0;
    const std::int32_t index = FindLandMark(Lat, Long, Class);
    if (index == 0)
        return 0;
    std::int32_t removed = 0;
    if (Ask(lmaRemove, FLandMarks[static_cast<std::size_t>(index - 1)]))
        removed = RemoveIndexAllowed(index);
    Changed(lcList);
    return removed;
}

std::int32_t TLandMarkStore::RemoveLandMark(std::int32_t Index)
{
    if (FInAction > 0 || FNumLandMarks == 0 || Index < 1 || Index > FNumLandMarks)
        return 0;
    std::int32_t removed = 0;
    if (Ask(lmaRemove, FLandMarks[static_cast<std::size_t>(Index - 1)]))
        removed = RemoveIndexAllowed(Index);
    Changed(lcList);
    return removed;
}

std::int32_t TLandMarkStore::RemoveLastLandMark()
{
    if (FInAction > 0 || FNumLandMarks == 0)
        return 0;
    std::int32_t removed = 0;
    if (Ask(lmaRemove, FLandMarks[static_cast<std::size_t>(FNumLandMarks - 1)])) {
        --FNumLandMarks;
        removed = 1;
        if (FNumLandMarks == 0)
            ResetArray();
    }
    Changed(lcList);
    return removed;
}

template <class Match>
std::int32_t TLandMarkStore::RemoveMany(Match&& Matches)
{
    if (FInAction > 0 || FNumLandMarks == 0)
        return 0;
    const std::int32_t n = FNumLandMarks;
    TBitFld gone;  // bit i-1 set: landmark i is removed
    try {
        gone.SetSize(n);
    } catch (const std::bad_alloc&) {
        throw EXELGeoMapError(ComponentMessage(FComponentName, "insufficient memory"));
    }
    gone.Clear();
    std::int32_t removed = 0;
    for (std::int32_t i = 1; i <= n; ++i) {
        const TLandMark& lm = FLandMarks[static_cast<std::size_t>(i - 1)];
        if (Matches(lm) && Ask(lmaRemove, lm)) {
            gone.SetBit(i - 1, true);
            ++removed;
        }
    }
    if (removed == n) {
        FNumLandMarks = 0;
    } else if (removed > 0) {
        // Fill the holes from the end: the lowest hole takes the highest survivor, and so on inwards.
        std::int32_t i = 1;
        while (i <= n && !gone.GetBit(i - 1))
            ++i;
        std::int32_t j = n;
        while (j >= 1 && gone.GetBit(j - 1))
            --j;
        while (j > i) {
            FLandMarks[static_cast<std::size_t>(i - 1)] = std::move(FLandMarks[static_cast<std::size_t>(j - 1)]);
            do
                ++i;
            while (i <= n && !gone.GetBit(i - 1));
            do
                --j;
            while (j >= 1 && gone.GetBit(j - 1));
        }
        FNumLandMarks -= removed;
    }
    if (FNumLandMarks == 0)
        ResetArray();
    Changed(lcList);
    return removed;
}

std::int32_t TLandMarkStore::RemoveLandMark(double Lat, double Long, std::int32_t Class, double Distance)
{
    Class = NormalClass(Class);
    const double limit = Distance * Distance;
    return RemoveMany([&](const TLandMark& lm) { return OfClass(lm, Class) && Dist2(lm, Lat, Long) < limit; });
}

std::int32_t TLandMarkStore::RemoveLandMark(const TRectDouble& Rect, std::int32_t Class)
{
    Class = NormalClass(Class);
    return RemoveMany([&](const TLandMark& lm) {
        return OfClass(lm, Class) && Rect.Left < lm.Longitude && lm.Longitude < Rect.Right &&
               Rect.Bottom < lm.Latitude && lm.Latitude < Rect.Top;
    });
}

std::int32_t TLandMarkStore::RemoveAllLandMarks(std::uint8_t Class)
{
    return RemoveMany([&](const TLandMark& lm) { return lm.ClassFlag == Class; });
}

void TLandMarkStore::RemoveAllLandMarks()
{
    if (FInAction > 0)
        return;
    ResetArray();
    FNumLandMarks = 0;
    Changed(lcList);
}

TLandMark TLandMarkStore::GetLandMarkData(std::int32_t Index) const
{
    if (Index < 1 || Index > FNumLandMarks)
        return FDefaultLM;
    return FLandMarks[static_cast<std::size_t>(Index - 1)];
}

void TLandMarkStore::SetLandMarkData(std::int32_t Index, const TLandMark& Data)
{
    if (Index < 1 || Index > FNumLandMarks)
        return;
    TLandMark& lm = FLandMarks[static_cast<std::size_t>(Index - 1)];
    lm = Data;
    CutLandMarkStrings(lm);
    Changed(lcList);
}

void TLandMarkStore::SetClassVisibility(std::uint8_t Class, bool Visible)
{
    FLMClassVisible[Class] = Visible;
    Changed(lcVisibility);
}

void TLandMarkStore::SetHighLM(std::int32_t Index)
{
    if (Index >= 0 && Index <= FNumLandMarks) {
        if (Index != FHighLM) {
            FHighLM = Index;
            Changed(lcHighlight);
        }
    } else if (FHighLM != 0) {
        FHighLM = 0;
        Changed(lcHighlight);
    }
}

void TLandMarkStore::SetHighLightProperties(TColor FG, TColor BG, bool Transparent)
{
    FHighLMColFG = FG;
    FHighLMColBG = BG;
    FHighLMTrans = Transparent;
    Changed(lcHighlight);
}

void TLandMarkStore::AssignLandMarks(const TLandMarkStore& Source)
{
    if (&Source == this || FInAction > 0)
        return;
    const auto count = static_cast<std::size_t>(Source.FNumLandMarks);
    const std::size_t length = count == 0 ? GrowthStep : ((count - 1) / GrowthStep + 1) * GrowthStep;
    std::vector<TLandMark> copy;
    try {
        copy.reserve(length);
        copy.assign(Source.FLandMarks.begin(), Source.FLandMarks.begin() + static_cast<std::ptrdiff_t>(count));
        copy.resize(length);
    } catch (const std::bad_alloc&) {
        throw EXELGeoMapError(ComponentMessage(FComponentName, "insufficient memory"));
    }
    FLandMarks = std::move(copy);
    FNumLandMarks = Source.FNumLandMarks;
    FDefaultLM = Source.FDefaultLM;
    FLMClassVisible = Source.FLMClassVisible;
    FHighLM = Source.FHighLM;
    FHighLMColFG = Source.FHighLMColFG;
    FHighLMColBG = Source.FHighLMColBG;
    FHighLMTrans = Source.FHighLMTrans;
}

}  // namespace qv
