#include "geomap/file_family.h"

#include "geomap/file_tags.h"
#include "support/text.h"

#include <algorithm>
#include <istream>

namespace qv {

namespace {

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

bool SeekFamilyHeader(std::istream& F, std::string_view TagName, std::string_view Id)
{
    const std::string want = LowerCase(Trim(Id));
    const std::string open = "<" + LowerCase(TagName);
    const std::string signature = LowerCase(XMLSignature);
    static constexpr std::string_view idName[] = {"id"};
    std::string line;
    while (std::getline(F, line)) {
        const std::string lower = LowerCase(line);
        const std::size_t at = lower.find(open);
        if (at == std::string::npos || lower.find(signature) == std::string::npos)
            continue;
        if (want.empty())
            return true;
        std::string_view id[1];
        SplitTagAttributes(std::string_view(lower).substr(at + open.size()), idName, id);
        if (id[0] == want)
            return true;
    }
    return false;
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
        const std::string_view value = Trim(Attr.substr(i + 1, close - i - 1));
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

std::string FamilyAttributeText(std::string_view Text)
{
    bool hasDouble = false, hasSingle = false;
    for (char c : Text) {
        hasDouble = hasDouble || c == '"';
        hasSingle = hasSingle || c == '\'';
    }
    std::string out;
    out.reserve(Text.size());
    for (char c : Text) {
        if (c == '\r' || c == '\n')
            c = ' ';
        else if (c == '>')
            c = '_';
        else if (c == '"' && hasSingle)
            c = '\'';
        out.push_back(c);
    }
    const std::string_view trimmed = Trim(out);
    if (trimmed.size() != out.size())
        return std::string(trimmed);
    return out;
}

void AppendTextAttribute(std::string& Line, std::string_view Name, std::string_view Value)
{
    const std::string text = FamilyAttributeText(Value);
    const char quote = text.find('"') == std::string::npos ? '"' : '\'';
    Line += ' ';
    Line += Name;
    Line += '=';
    Line += quote;
    Line += text;
    Line += quote;
}

}  // namespace qv
