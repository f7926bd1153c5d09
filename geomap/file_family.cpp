#include <qvgeo/geomap/file_family.h>

#include <qvgeo/geomap/file_tags.h>
#include <qvgeo/support/text.h>

#include <istream>

namespace qv {

bool SeekFamilyHeader(std::istream& F, std::string_view TagName, std::string_view Id)
{
    const std::string want = LowerCase(Id);
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
        if (Trim(id[0]) == want)
            return true;
    }
    return false;
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
