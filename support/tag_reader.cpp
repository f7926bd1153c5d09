#include "support/tag_reader.h"

#include "support/text.h"

#include <algorithm>
#include <istream>
#include <streambuf>

namespace qv {

namespace {

bool IsNameEnd(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '>'; }

}  // namespace

int ReadNextTagInStream(std::istream& Stream, std::span<const std::string_view> TagList, int High,
                        std::string& Attr, std::string& Content)
{
    High = std::min<int>(High, static_cast<int>(TagList.size()) - 1);
    Attr.clear();
    Content.clear();
    std::streambuf* buf = Stream.rdbuf();
    if (!buf || !Stream.good())
        return High;
    using traits = std::char_traits<char>;
    std::string tag;
    for (;;) {
        // Scan to the next '<'.
        int c;
        while ((c = buf->sbumpc()) != traits::eof() && c != '<') {
        }
        if (c == traits::eof())
            break;
        tag.clear();
        while ((c = buf->sbumpc()) != traits::eof() && c != '>')
            tag.push_back(static_cast<char>(c));
        if (c == traits::eof())
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
        // The content runs to the next '<', which stays unread for the next call.
        while ((c = buf->sgetc()) != traits::eof() && c != '<') {
            Content.push_back(static_cast<char>(c));
            buf->sbumpc();
        }
        const std::string_view trimmed = Trim(Content);
        if (trimmed.size() != Content.size())
            Content = std::string(trimmed);
        return index;
    }
    Stream.setstate(std::ios::eofbit);
    return High;
}

std::string TagAttribute(std::string_view Attr, std::string_view Name, bool* Found)
{
    if (Found)
        *Found = false;
    if (Name.empty())
        return {};
    const std::string lower = LowerCase(Attr);
    const std::string key = LowerCase(Name);
    std::size_t from = 0;
    while (from < lower.size()) {
        const std::size_t at = lower.find(key, from);
        if (at == std::string::npos)
            return {};
        from = at + 1;
        const bool wordStart = at == 0 || lower[at - 1] == ' ' || lower[at - 1] == '\t' ||
                               lower[at - 1] == '\r' || lower[at - 1] == '\n';
        std::size_t i = at + key.size();
        while (i < lower.size() && (lower[i] == ' ' || lower[i] == '\t'))
            ++i;
        if (!wordStart || i >= lower.size() || lower[i] != '=')
            continue;
        ++i;
        while (i < lower.size() && (lower[i] == ' ' || lower[i] == '\t'))
            ++i;
        if (i >= lower.size() || (lower[i] != '"' && lower[i] != '\''))
            continue;
        const char quote = lower[i];
        const std::size_t close = lower.find(quote, i + 1);
        if (close == std::string::npos)
            return {};
        if (Found)
            *Found = true;
        return std::string(Trim(Attr.substr(i + 1, close - i - 1)));
    }
    return {};
}

}  // namespace qv
