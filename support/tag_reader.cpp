#include <qvgeo/support/tag_reader.h>

#include <qvgeo/support/text.h>

#include <algorithm>
#include <istream>
#include <limits>

namespace qv {

namespace {

bool IsNameEnd(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '>'; }

bool Blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool SameLowerName(std::string_view Text, std::string_view LowerName)
{
    if (Text.size() != LowerName.size())
        return false;
    for (std::size_t i = 0; i < Text.size(); ++i)
        if (Lower(Text[i]) != LowerName[i])
            return false;
    return true;
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

        std::size_t nameEnd = 0;
        while (nameEnd < tag.size() && !IsNameEnd(tag[nameEnd]))
            ++nameEnd;
        std::string_view name(tag.data(), nameEnd);
        if (name.size() > 1 && name.back() == '/')  // "<landmark/>"
            name.remove_suffix(1);
        int index = -1;
        for (int i = 0; i <= High; ++i)
            if (SameText(name, TagList[static_cast<std::size_t>(i)])) {
                index = i;
                break;
            }
        if (index < 0)
            continue;

        std::string_view attr = Trim(std::string_view(tag).substr(nameEnd));
        if (!attr.empty() && attr.back() == '/')
            attr = Trim(attr.substr(0, attr.size() - 1));
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

void SplitTagAttributes(std::string_view Attr, std::span<const std::string_view> Names,
                        std::span<std::string_view> Values)
{
    for (auto& v : Values)
        v = {};
    const std::size_t n = Attr.size();
    const std::size_t count = std::min(Names.size(), Values.size());
    std::size_t hint = 0;
    std::size_t i = 0;
    while (i < n) {
        while (i < n && Blank(Attr[i]))
            ++i;
        const std::size_t nameStart = i;
        while (i < n && !Blank(Attr[i]) && Attr[i] != '=')
            ++i;
        const std::string_view name = Attr.substr(nameStart, i - nameStart);
        while (i < n && Blank(Attr[i]))
            ++i;
        if (i >= n || Attr[i] != '=')
            continue;  // a bare word; the next word starts here
        ++i;
        while (i < n && Blank(Attr[i]))
            ++i;
        if (i >= n || (Attr[i] != '"' && Attr[i] != '\''))
            continue;
        const char quote = Attr[i];
        const std::size_t close = Attr.find(quote, i + 1);
        if (close == std::string_view::npos)
            return;
        const std::string_view value = Attr.substr(i + 1, close - i - 1);
        i = close + 1;
        // Writers put the attributes in a fixed order, so the search starts after the last name found.
        for (std::size_t tried = 0; tried < count; ++tried, hint = hint + 1 == count ? 0 : hint + 1) {
            if (SameLowerName(name, Names[hint])) {
                if (Values[hint].data() == nullptr)  // the first attribute of a name wins
                    Values[hint] = value.empty() ? std::string_view(Attr.data() + close, 0) : value;
                hint = hint + 1 == count ? 0 : hint + 1;
                break;
            }
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
