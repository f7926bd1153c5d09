// The tag reader of the file family and attribute picking.
#include <qvgeo/support/tag_reader.h>

#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace qv {
namespace {

constexpr std::array<std::string_view, 6> Tags = {"geomap", "/geomap", "calline", "ellipsoid", "corners",
                                                  "invalidtag"};
constexpr int High = 5;

struct Seen {
    int index;
    std::string attr;
    std::string content;
};

std::vector<Seen> ReadAll(std::istream& in, int limit = 50)
{
    std::vector<Seen> seen;
    std::string attr, content;
    for (int i = 0; i < limit; ++i) {
        const int ix = ReadNextTagInStream(in, Tags, High, attr, content);
        seen.push_back({ix, attr, content});
        if (ix == High)
            break;
    }
    return seen;
}

TEST(TagReader, ListedTagsAttributesContentAndEnd)
{
    std::istringstream in("<?xml version=\"1.0\"?>\n"
                          "\n"
                          "<!-- TGeoMap Calibration / Quorvanta -->\n"
                          "<geomap sig=\"Quorvanta\" vers=\"1.0\" id=\"1\">\n"
                          "<unknown a=\"b\">text of an unlisted element</unknown>\n"
                          "<calline type=\"parallel\" value=\"48\" npoints=\"3\">\n"
                          "[10,20] [30,40] [50,60] \n"
                          "</calline>\n"
                          "<ELLIPSOID>gelWGS84</Ellipsoid>\n"
                          "</geomap>\n");
    const auto seen = ReadAll(in);
    ASSERT_EQ(seen.size(), 5u);
    EXPECT_EQ(seen[0].index, 0);
    EXPECT_EQ(seen[0].attr, "sig=\"Quorvanta\" vers=\"1.0\" id=\"1\"");
    EXPECT_EQ(seen[1].index, 2);  // "calline": the unlisted element and its closing tag were passed over
    EXPECT_EQ(seen[1].attr, "type=\"parallel\" value=\"48\" npoints=\"3\"");
    EXPECT_EQ(seen[1].content, "[10,20] [30,40] [50,60]");  // line ends and trailing blank trimmed
    EXPECT_EQ(seen[2].index, 3);                            // names compare case-insensitively
    EXPECT_EQ(seen[2].content, "gelWGS84");
    EXPECT_EQ(seen[3].index, 1);  // closing tags are listed with their slash
    EXPECT_EQ(seen[3].attr, "");
    EXPECT_EQ(seen[4].index, High);  // end of input
    // Further calls keep answering the sentinel.
    std::string attr = "x", content = "x";
    EXPECT_EQ(ReadNextTagInStream(in, Tags, High, attr, content), High);
    EXPECT_EQ(attr + content, "");
}

TEST(TagReader, HostileInputEndsCleanly)
{
    struct C {
        const char* name;
        std::string text;
        std::size_t calls;  // results up to and including the sentinel
    };
    const std::vector<C> cases = {
        {"empty", "", 1},
        {"no tags", std::string(100000, 'x'), 1},
        {"unterminated tag", "<calline type=\"parallel\" value=\"4", 1},
        {"tag at the very end", "<geomap>", 2},
        {"stray brackets", ">>> < > <> <<calline>", 1},  // "<<calline" names "<calline": not listed
        {"binary", std::string("\0<\xff\xfe>\x01<geomap\0x>", 16), 1},
        {"very long attribute", "<calline " + std::string(1 << 20, 'a') + ">c", 2},
        {"self-closing", "<corners/><geomap a=\"1\" />", 3},
    };
    for (const auto& c : cases) {
        std::istringstream in(c.text);
        const auto seen = ReadAll(in, 100);
        EXPECT_EQ(seen.size(), c.calls) << c.name;
        EXPECT_EQ(seen.back().index, High) << c.name;
    }
    std::istringstream in("<geomap a=\"1\" />");
    const auto seen = ReadAll(in);
    EXPECT_EQ(seen[0].attr, "a=\"1\"");
}

TEST(TagReader, HighBeyondTheListIsClamped)
{
    std::istringstream in("<calline>");
    std::string attr, content;
    EXPECT_EQ(ReadNextTagInStream(in, Tags, 99, attr, content), 2);
    EXPECT_EQ(ReadNextTagInStream(in, Tags, 99, attr, content), 5);
}

TEST(TagAttribute, PicksValuesByName)
{
    const std::string attr = "sig=\"Quorvanta\" vers='1.0' ID=\" Map 1 \" myid=\"x\" caption=\"Wien > Nord\" empty=\"\"";
    EXPECT_EQ(TagAttributeAsRead(attr, "id"), " Map 1 ");
    const std::tuple<std::string_view, std::string_view, std::string_view, bool> cases[] = {
        {attr, "sig", "Quorvanta", true},
        {attr, "vers", "1.0", true},   // single quotes
        {attr, "id", "Map 1", true},   // case-insensitive name, value trimmed, case kept
        {attr, "myid", "x", true},
        {attr, "empty", "", true},
        {attr, "map", "", false},
        {"id=\"unterminated", "id", "", false},
        {"id = \"spaced\"", "id", "spaced", true},
        {"id=bare", "id", "", false},
        {"xid=\"1\" id=\"2\"", "id", "2", true},  // whole names only
        // A value that looks like an attribute is skipped as a whole.
        {"captext=\"a id='x'\" id=\"y\"", "id", "y", true},
        {"captext='id=\"x\"'", "id", "", false},
        {"id=\"first\" id=\"second\"", "ID", "first", true},  // the first one wins
    };
    for (const auto& [text, name, value, present] : cases) {
        bool found = !present;
        EXPECT_EQ(TagAttribute(text, name, &found), value) << text << " " << name;
        EXPECT_EQ(found, present) << text << " " << name;
    }
}

TEST(SplitTagAttributes, SeveralNamesInOnePass)
{
    constexpr std::array<std::string_view, 3> names = {"lat", "long", "text"};
    std::array<std::string_view, 3> values;
    SplitTagAttributes("LONG='16.3' bare lat = \" 48.2\t\" text=\"\" other=\"lat='1'\"", names, values);
    EXPECT_EQ(values[0], " 48.2\t");  // as it stands between the quotes
    EXPECT_EQ(values[1], "16.3");
    EXPECT_NE(values[2].data(), nullptr);  // present, empty
    EXPECT_EQ(values[2], "");
    SplitTagAttributes("lat=\"48.2\" long=\"16", names, values);  // unterminated: absent
    EXPECT_EQ(values[0], "48.2");
    EXPECT_EQ(values[1].data(), nullptr);
}

// A stream that cannot tell or restore its position, as a pipe.
struct TPipeBuf : std::stringbuf {
    using std::stringbuf::stringbuf;
    pos_type seekoff(off_type, std::ios::seekdir, std::ios::openmode) override { return pos_type(-1); }
    pos_type seekpos(pos_type, std::ios::openmode) override { return pos_type(-1); }
};

// The tags (index and attributes) up to StopAt or the end, then what is left in the stream.
std::pair<std::vector<std::pair<int, std::string>>, std::string> Scan(std::istream& in, int StopAt, bool Blockwise)
{
    std::vector<std::pair<int, std::string>> tags;
    {
        std::optional<TTagScanner> scanner;
        if (Blockwise)
            scanner.emplace(in);
        std::string attr, content;
        for (;;) {
            std::string_view view;
            const int ix = Blockwise ? scanner->Next(Tags, High, view) : ReadNextTagInStream(in, Tags, High, attr, content);
            tags.emplace_back(ix, Blockwise ? std::string(view) : attr);
            if (ix == StopAt || ix == High)
                break;
        }
    }  // the scanner puts the stream back here
    const bool atEnd = in.eof();
    in.clear();
    std::string rest{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    return {tags, (atEnd ? "<eof>" : "") + rest};
}

// The block-wise scanner against the tag reader it stands in for: the same tags and attributes, and the
// stream left at the same place, on seekable streams and on pipes, across block boundaries.
TEST(TagScanner, FindsWhatTheTagReaderFindsAndLeavesTheStreamAlike)
{
    const std::string big(70000, 'x');  // more than one block
    const std::string inputs[] = {
        "<?xml version=\"1.0\"?>\n<geomap id=\"a\">\n<corners>\n[1,2]\n</corners>\n</geomap>\n<calline x='1'>tail",
        "<geomap a=\"1\"/>\n<GEOMAP/>\r\n</geomap>rest <corners>",
        "<<<<>>>>< geomap/>\n<geomap>\n</geomap>",
        big + "<corners " + big + "=\"1\">" + big + "</geomap>" + big + "<calline>",
        "<ellipsoid>gelWGS84</ellipsoid><corners a=\"1\"",  // a tag never closed
        "<ellipsoid>",
        "no tags at all",
        "",
        "</geomap>",
        "<invalidtag>after",
    };
    for (const std::string& text : inputs)
        for (int stopAt : {1, High})
            for (bool pipe : {false, true}) {
                SCOPED_TRACE(testing::Message() << text.substr(0, 60) << " stop " << stopAt << " pipe " << pipe);
                std::istringstream a(text);
                TPipeBuf pa(text), pb(text);
                std::istream pipeA(&pa), pipeB(&pb);
                std::istringstream b(text);
                const auto expected = Scan(pipe ? pipeA : static_cast<std::istream&>(a), stopAt, false);
                const auto got = Scan(pipe ? pipeB : static_cast<std::istream&>(b), stopAt, true);
                EXPECT_EQ(got.first, expected.first);
                EXPECT_EQ(got.second, expected.second);
            }
}

}  // namespace
}  // namespace qv
