// Text attributes of the XML-like file family: the buffer writer and the string writer give the same
// bytes, fill exactly the room they announce, and a header written with them is found again by its id.
#include <qvgeo/geomap/file_family.h>
#include <qvgeo/support/tag_reader.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace qv {
namespace {

TEST(FamilyText, BufferAndStringWritersAgreeAndFillTheirRoom)
{
    struct Case { std::string text, attribute; };
    const Case cases[] = {
        {"", " id=\"\""},
        {"plain", " id=\"plain\""},
        {"say \"hi\"", " id='say \"hi\"'"},       // double quotes alone: single-quoted
        {"it's", " id=\"it's\""},
        {"both ' and \"", " id=\"both ' and '\""},  // both: the double ones become single
        {"a>b\r\nc", " id=\"a_b  c\""},
        {" \t ", " id=\" \t \""},                   // blanks at the ends are kept
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.text);
        std::string line = "<x";
        AppendTextAttribute(line, "id", k.text);
        EXPECT_EQ(line, "<x" + k.attribute);
        std::string buf(TextAttributeSize("id", k.text) + 1, '#');
        const char* end = PutTextAttribute(buf.data(), "id", k.text);
        EXPECT_EQ(end - buf.data(), static_cast<std::ptrdiff_t>(buf.size() - 1));  // exactly the room
        EXPECT_EQ(buf.substr(0, buf.size() - 1), k.attribute);
        EXPECT_EQ(buf.back(), '#');
        // What the attribute splitter reads back is the family form of the text.
        bool found = false;
        EXPECT_EQ(TagAttributeAsRead(k.attribute, "id", &found), FamilyAttributeText(k.text));
        EXPECT_TRUE(found);
    }
}

TEST(FamilyText, AHeaderIsFoundByTheIdItWasWrittenWith)
{
    for (const std::string id : {"Alps", "say \"hi\"", "it's"}) {
        SCOPED_TRACE(id);
        std::string header = "<gmlandmarks sig=\"Quorvanta\" vers=\"1.0\"";
        AppendTextAttribute(header, "id", id);
        std::istringstream in("<gmlandmarks sig=\"Quorvanta\" id=\"other\">\n" + header + ">\n<landmark />\n");
        ASSERT_TRUE(SeekFamilyHeader(in, "gmlandmarks", id));
        std::string next;
        std::getline(in, next);
        EXPECT_EQ(next, "<landmark />");
    }
}

}  // namespace
}  // namespace qv
