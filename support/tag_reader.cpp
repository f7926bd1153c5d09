#include <qvgeo/support/tag_reader.h>

#include <qvgeo/support/text.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <istream>
#include <limits>

namespace qv {

namespace {

bool IsNameEnd(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '>'; }

char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool SameLowerName(std::string_view Text, std::string_view LowerName)
{
    if (Text.size() != LowerName.size())
        return false;
    for (std::size_t i = 0; i < Text.size(); ++i)
        if (Text[i] != LowerName[i] && Lower(Text[i]) != LowerName[i])
            return false;
    return true;
}

// Character classes of the attribute splitter, one table look-up per character.
enum : std::uint8_t { ccBlank = 1, ccEquals = 2 };
constexpr std::array<std::uint8_t, 256> CharClasses = [] {
    std::array<std::uint8_t, 256> t{};
    for (unsigned char c : {' ', '\t', '\r', '\n'})
        t[c] = ccBlank;
    t[static_cast<unsigned char>('=')] = ccEquals;
    return t;
}();

std::uint8_t ClassOf(char c) { return CharClasses[static_cast<unsigned char>(c)]; }

// The first Wanted in [p, end), or end. Eight bytes at a time: the distances between quotes are short
// for a library search and long for a byte loop.
const char* FindChar(const char* p, const char* end, char Wanted)
{
    if constexpr (std::endian::native == std::endian::little) {
        constexpr std::uint64_t ones = 0x0101010101010101ull, highs = 0x8080808080808080ull;
        const std::uint64_t pattern = ones * static_cast<unsigned char>(Wanted);
        for (; end - p >= 8; p += 8) {
            std::uint64_t w;
            std::memcpy(&w, p, 8);
            w ^= pattern;  // a zero byte where Wanted stands
            // The lowest flagged byte is the first zero byte; borrows can only flag bytes after it.
            const std::uint64_t zero = (w - ones) & ~w & highs;
            if (zero != 0)
                return p + std::countr_zero(zero) / 8;
        }
    }
    while (p < end && *p != Wanted)
        ++p;
    return p;
}

// Large enough that a landmark file is read in few calls, small enough to stay in the cache.
constexpr std::size_t ScanBlock = 64 * 1024;

// The index of Name in TagList[0..High], or -1.
int ListedTag(std::string_view Name, std::span<const std::string_view> TagList, int High)
{
    if (Name.size() > 1 && Name.back() == '/')  // "<landmark/>"
        Name.remove_suffix(1);
    for (int i = 0; i <= High; ++i) {
        const std::string_view listed = TagList[static_cast<std::size_t>(i)];
        if (Name.size() == listed.size() && SameText(Name, listed))
            return i;
    }
    return -1;
}

// The text between '<' and '>' of one tag: the index of its name in TagList[0..High] (-1 when not
// listed) and, for a listed tag, its attributes trimmed and without a self-closing '/'. Both readers
// below scan their input for tags and leave the tag itself to this.
int ListedTagBody(std::string_view Tag, std::span<const std::string_view> TagList, int High, std::string_view& Attr)
{
    std::size_t nameEnd = 0;
    while (nameEnd < Tag.size() && !IsNameEnd(Tag[nameEnd]))
        ++nameEnd;
    const int index = ListedTag(Tag.substr(0, nameEnd), TagList, High);
    if (index < 0)
        return index;
    Attr = Trim(Tag.substr(nameEnd));
    if (!Attr.empty() && Attr.back() == '/')
        Attr = Trim(Attr.substr(0, Attr.size() - 1));
    return index;
}

}  // namespace

int ReadNextTagInStream(std::istream& Stream, std::span<const std::string_view> TagList, int High,
                        std::string& Attr, std::string& Content)
{
    High = std::min<int>(High, static_cast<int>(TagList.size()) - 1);
    Attr.clear();
    Content.clear();
    // ignore() and getline() search a character stream's buffer block-wise; reading one character at a
    // time made this loop the largest cost of loading a big landmark file.
    std::string tag;
    while (Stream.good()) {
        Stream.ignore(std::numeric_limits<std::streamsize>::max(), '<');
        if (Stream.eof())
            break;  // no further tag
        std::getline(Stream, tag, '>');
        if (Stream.eof())
            break;  // a tag that is never closed ends the input

        std::string_view attr;
        const int index = ListedTagBody(tag, TagList, High, attr);
        if (index < 0)
            continue;
        Attr.assign(attr);
        // The content runs to the next '<', which is put back for the next call.
        std::getline(Stream, Content, '<');
        if (!Stream.eof())
            Stream.unget();
        const std::string_view trimmed = Trim(Content);
        if (trimmed.size() != Content.size())
            Content = std::string(trimmed);
        return index;
    }
    Stream.setstate(std::ios::eofbit);
    return High;
}


TTagScanner::TTagScanner(std::istream& Stream) : FStream(Stream)
{
    if (!FStream.good()) {
        FAtEnd = true;  // what ReadNextTagInStream reports for a stream that is not good
        return;
    }
    FStart = FStream.tellg();
    FBlockwise = FStart != std::streampos(-1);
}

TTagScanner::~TTagScanner()
{
    try {
        Finish();
    } catch (...) {  // a stream set to throw; nothing to be done about it here
    }
}

bool TTagScanner::Refill()
{
    FBase += static_cast<std::streamoff>(FPos);
    FBuf.erase(0, FPos);
    FPos = 0;
    const std::size_t old = FBuf.size();
    FBuf.resize(old + ScanBlock);
    const std::streamsize got = FStream.rdbuf()->sgetn(FBuf.data() + old, static_cast<std::streamsize>(ScanBlock));
    FBuf.resize(old + static_cast<std::size_t>(got > 0 ? got : 0));
    return got > 0;
}

int TTagScanner::Next(std::span<const std::string_view> TagList, int High, std::string_view& Attr)
{
    High = std::min<int>(High, static_cast<int>(TagList.size()) - 1);
    Attr = {};
    if (FAtEnd || FFinished)
        return High;
    if (!FBlockwise) {
        const int index = ReadNextTagInStream(FStream, TagList, High, FAttr, FContent);
        Attr = FAttr;
        FAtEnd = FStream.eof() && index == High;
        return index;
    }
    FAfterTag = false;
    for (;;) {
        const std::size_t lt = FBuf.find('<', FPos);
        if (lt == std::string::npos) {
            FPos = FBuf.size();
            if (!Refill())
                break;
            continue;
        }
        FPos = lt;  // the tag stays in the buffer while more is read
        std::size_t from = lt + 1, gt;
        while ((gt = FBuf.find('>', from)) == std::string::npos) {
            from = FBuf.size() - FPos;
            if (!Refill()) {
                FPos = FBuf.size();  // a tag that is never closed ends the input
                FAtEnd = true;
                return High;
            }
        }
        const std::string_view tag(FBuf.data() + FPos + 1, gt - FPos - 1);
        FPos = gt + 1;
        const int index = ListedTagBody(tag, TagList, High, Attr);
        if (index < 0)
            continue;
        FAfterTag = true;
        return index;
    }
    FAtEnd = true;
    return High;
}

void TTagScanner::Finish()
{
    if (FFinished)
        return;
    FFinished = true;
    if (!FBlockwise) {
        if (FAtEnd)
            FStream.setstate(std::ios::eofbit);
        return;
    }
    // The content of the last tag found runs to the next '<', which is left unread.
    while (FAfterTag && !FAtEnd) {
        const std::size_t lt = FBuf.find('<', FPos);
        if (lt != std::string::npos) {
            FPos = lt;
            break;
        }
        FPos = FBuf.size();
        FAtEnd = !Refill();
    }
    FStream.clear();
    if (FAtEnd) {
        FStream.seekg(0, std::ios::end);
        FStream.setstate(std::ios::eofbit);
    } else {
        FStream.seekg(FStart + FBase + static_cast<std::streamoff>(FPos));
    }
}

void SplitTagAttributes(std::string_view Attr, std::span<const std::string_view> Names,
                        std::span<std::string_view> Values)
{
    for (auto& v : Values)
        v = {};
    const std::size_t count = std::min(Names.size(), Values.size());
    // A landmark file holds millions of attributes: a plain pointer walk, no library search for the
    // short distances between quotes.
    const char* p = Attr.data();
    const char* const end = p + Attr.size();
    // Writers put the attributes in a fixed order, so the search starts after the last name found, and
    // the text is first compared with that name as it stands.
    std::size_t hint = 0;
    auto predicted = [&] {
        if (count == 0)
            return false;
        const std::string_view want = Names[hint];
        if (static_cast<std::size_t>(end - p) <= want.size() || p[want.size()] != '=')
            return false;
        for (std::size_t k = 0; k < want.size(); ++k)
            if (p[k] != want[k])
                return false;
        return true;
    };
    while (p < end) {
        while (p < end && ClassOf(*p) == ccBlank)
            ++p;
        std::size_t slot = count;  // the name's index in Names; count: not listed
        if (predicted()) {
            slot = hint;
            p += Names[hint].size() + 1;
        } else {
            const char* const nameStart = p;
            while (p < end && ClassOf(*p) == 0)
                ++p;
            const std::string_view name(nameStart, static_cast<std::size_t>(p - nameStart));
            while (p < end && ClassOf(*p) == ccBlank)
                ++p;
            if (p == end || *p != '=')
                continue;  // a bare word; the next word starts here
            ++p;
            for (std::size_t tried = 0, k = hint; tried < count; ++tried, k = k + 1 == count ? 0 : k + 1)
                if (SameLowerName(name, Names[k])) {
                    slot = k;
                    break;
                }
        }
        while (p < end && ClassOf(*p) == ccBlank)
            ++p;
        if (p == end || (*p != '"' && *p != '\''))
            continue;
        const char quote = *p++;
        const char* close = FindChar(p, end, quote);
        if (close == end)
            return;
        const std::string_view value(p, static_cast<std::size_t>(close - p));  // never null, even when empty
        p = close + 1;
        if (slot < count) {
            if (Values[slot].data() == nullptr)  // the first attribute of a name wins
                Values[slot] = value;
            hint = slot + 1 == count ? 0 : slot + 1;
        }
    }
}

std::string TagAttributeAsRead(std::string_view Attr, std::string_view Name, bool* Found)
{
    const std::string lower = LowerCase(Name);
    const std::string_view names[1] = {lower};
    std::string_view values[1];
    SplitTagAttributes(Attr, names, values);
    if (Found)
        *Found = values[0].data() != nullptr;
    return std::string(values[0]);
}

std::string TagAttribute(std::string_view Attr, std::string_view Name, bool* Found)
{
    return std::string(Trim(TagAttributeAsRead(Attr, Name, Found)));
}

}  // namespace qv
