#include <qvgeo/geomap/file_family.h>

#include <qvgeo/geomap/file_tags.h>
#include <qvgeo/support/text.h>

#include <cstring>
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

// The one place that decides how a text is written as an attribute value. Writes the value's
// characters at p and returns the end, with the quote character to put around them in Quote.
namespace {

char* PutFamilyText(char* p, std::string_view Text, char& Quote)
{
    bool hasDouble = false, hasSingle = false;
    for (char c : Text) {
        hasDouble = hasDouble || c == '"';
        hasSingle = hasSingle || c == '\'';
    }
    // Double quotes survive only in a text without single ones, which is then quoted with '.
    Quote = hasDouble && !hasSingle ? '\'' : '"';
    for (char c : Text) {
        if (c == '\r' || c == '\n')
            c = ' ';
        else if (c == '>')
            c = '_';
        else if (c == '"' && hasSingle)
            c = '\'';
        *p++ = c;
    }
    return p;
}

}  // namespace

std::string FamilyAttributeText(std::string_view Text)
{
    std::string out(Text.size(), '\0');
    char quote;
    PutFamilyText(out.data(), Text, quote);
    return out;
}

char* PutTextAttribute(char* p, std::string_view Name, std::string_view Value)
{
    *p++ = ' ';
    std::memcpy(p, Name.data(), Name.size());
    p += Name.size();
    *p++ = '=';
    char* open = p++;
    char quote;
    p = PutFamilyText(p, Value, quote);
    *open = quote;
    *p++ = quote;
    return p;
}

void AppendTextAttribute(std::string& Line, std::string_view Name, std::string_view Value)
{
    const std::size_t used = Line.size();
    Line.resize(used + TextAttributeSize(Name, Value));
    Line.resize(static_cast<std::size_t>(PutTextAttribute(Line.data() + used, Name, Value) - Line.data()));
}

}  // namespace qv
