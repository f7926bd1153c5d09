// The symbol repository: entries and their numbering, backup and restore, the exact catalogue file and
// its reader.
#include "error_text.h"
#include <qvgeo/geomap/symbol_repository.h>

#include <qvgeo/support/errors.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <sstream>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

using namespace qv;

namespace {

TSymbol Sym(TLandMarkElement kind, std::string name, std::int32_t category, TColor fg, TColor bg, int size, bool transp,
            int dir, int len)
{
    return {{kind, size, fg, bg, transp, dir, len}, std::move(name), category};
}

std::string Store(const TSymbolRepository& repo, std::string_view id)
{
    std::ostringstream out;
    repo.StoreOnStream(out, id);
    return out.str();
}

bool Read(TSymbolRepository& repo, const std::string& text, std::string_view id)
{
    std::istringstream in(text);
    return repo.ReadFromOpenXMLFile(in, id);
}

}  // namespace

TEST(SymbolRepository, EmptyAndGrowth)
{
    // The default symbol and the element names are pinned by the exact catalogue file below.
    TSymbolRepository repo;
    EXPECT_EQ(std::tuple(repo.NumEntries(), repo.NumBackupEntries(), repo.Capacity()), std::tuple(0, 0, 1000));
    // The reader's growth: 1000, then 2001 at the 1001st, 3001 at the 2001st.
    std::string text = "<lmsymbols sig=\"Quorvanta\" vers=\"1.0\" id=\"big\">\n";
    for (int i = 1; i <= 2500; ++i)
        text += "<symbol category=\"" + std::to_string(i) + "\" />\n";
    ASSERT_TRUE(Read(repo, text, "big"));
    EXPECT_EQ(std::pair(repo.NumEntries(), repo.Capacity()), std::pair(2500, 3001));
    EXPECT_EQ(repo.GetValues(2500).Category, 2500);
}

TEST(SymbolRepository, EntriesAreNumberedFromOne)
{
    TSymbolRepository repo;
    repo.SetNEntries(3);
    const TSymbol a = Sym(lmSquare, "a", 1, 2, 3, 4, true, 5, 6);
    const TSymbol b = Sym(lmSpade, std::string(50, 'n'), -7, 0xFFFFFFFF, 0, -1, false, -90, 0);
    repo.SetValues(1, a);
    for (int i : {3, 0, 4})  // 0 and 4 are outside 1..3 and ignored
        repo.SetValues(i, b);
    EXPECT_EQ(repo.GetValues(1), a);
    EXPECT_EQ(repo.GetValues(3).Name, std::string(40, 'n'));
    for (int i : {2, 0, 4, -1})
        EXPECT_EQ(repo.GetValues(i), DefaultSymbolRecord()) << i;

    repo.SetNEntries(-1);
    EXPECT_EQ(repo.NumEntries(), 3);
    repo.SetNEntries(1);
    repo.SetNEntries(3);  // entries that come back are defaults, not the old ones
    EXPECT_EQ(repo.GetValues(3), DefaultSymbolRecord());

    repo.Clear();
    EXPECT_EQ(repo.NumEntries(), 3);
    EXPECT_EQ(repo.GetValues(1), DefaultSymbolRecord());
}

TEST(SymbolRepository, BackupRestoreAssign)
{
    TSymbolRepository repo;
    const TSymbol one = Sym(lmCircle, "one", 1, 0, 0, 1, false, 0, 0);
    repo.SetNEntries(2);
    repo.SetValues(1, one);
    repo.Restore();  // without a backup: empty
    EXPECT_EQ(repo.NumEntries(), 0);

    repo.SetNEntries(2);
    repo.SetValues(1, one);
    repo.Backup();
    EXPECT_EQ(repo.NumBackupEntries(), 2);
    repo.SetValues(1, Sym(lmTriangle, "changed", 1, 0, 0, 1, false, 0, 0));
    repo.SetNEntries(5);
    repo.Restore();
    EXPECT_EQ(repo.NumEntries(), 2);
    EXPECT_EQ(repo.GetValues(1).Name, "one");

    TSymbolRepository copy;
    copy.SetComponentName("Copy");
    copy.Assign(repo);
    EXPECT_EQ(copy.ComponentName(), "Copy");
    copy.SetValues(1, DefaultSymbolRecord());
    copy.Restore();  // the backup came along
    EXPECT_EQ(copy.GetValues(1), one);
}

TEST(SymbolRepository, StoreOutputIsExact)
{
    TSymbolRepository repo;
    repo.SetNEntries(3);
    repo.SetValues(1, Sym(lmArrowFrom, "North arrow", 2, 0x0000FF, 0xFFFFFF, 6, true, 0, 30));
    repo.SetValues(2, Sym(lmPlus, "a \"quoted\" name", -3, 0xDEADBEEF, 0, -1, false, -45, 0));
    repo.SetValues(3, DefaultSymbolRecord());
    const std::string expected =
        "<?xml version=\"1.0\"?>\n"
        "\n"
        "<!-- TGeoMap Landmark Repository / Quorvanta -->\n"
        "<lmsymbols sig=\"Quorvanta\" vers=\"1.0\" id=\"Palette\">\n"
        "<symbol element=\"ArrowFrom\" name=\"North arrow\" category=\"2\" colorfg=\"000000FF\" colorbg=\"00FFFFFF\" "
        "size=\"6\" transp=\"TRUE\" dir=\"0\" leng=\"30\" />\n"
        "<symbol element=\"Plus\" name=\"a \"quoted\" name\" category=\"-3\" colorfg=\"DEADBEEF\" colorbg=\"00000000\" "
        "size=\"-1\" transp=\"FALSE\" dir=\"-45\" leng=\"0\" />\n"
        "<symbol element=\"Cross\" name=\"\" category=\"0\" colorfg=\"00000000\" colorbg=\"000000FF\" size=\"8\" "
        "transp=\"FALSE\" dir=\"90\" leng=\"40\" />\n"
        "</lmsymbols>\n";
    EXPECT_EQ(Store(repo, "Palette"), expected);

}

// Through a file every field comes back but the two shapes without a keyword. Names keep their blanks (the
// fifth is cut to 40 characters on the way in, leaving it ending in two blanks); the header's id is trimmed,
// the requested one only lower-cased.
TEST(SymbolRepository, RoundTripThroughAFileKeepsAllButPlusAndUserDef)
{
    const auto dir = std::filesystem::temp_directory_path() /
                     ("qvgeo_symfile_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()));
    std::filesystem::create_directories(dir);
    const std::string name = (dir / "symbols.xml").string();
    const std::string names[] = {"  two leading", "trailing  ", " ", "\tTab\t", std::string(38, 'n') + "  x"};
    TSymbolRepository repo;
    repo.SetComponentName("Symbols1");
    repo.SetNEntries(NumLandMarkElements);
    for (int k = 0; k < NumLandMarkElements; ++k)
        repo.SetValues(k + 1, Sym(static_cast<TLandMarkElement>(k), k < 5 ? names[k] : "Symbol " + std::to_string(k),
                                  k * 100 - 300, 0x01000000u * static_cast<TColor>(k) + 0xABCDEF,
                                  0xFFFFFFFFu - static_cast<TColor>(k), k - 2, k % 2 == 1, k * 45, -k));
    EXPECT_EQ(repo.GetValues(5).Name, std::string(38, 'n') + "  ");
    repo.StoreOnFile(name, " Pal ");
    TSymbolRepository back;
    EXPECT_FALSE(back.LoadFromFile(name, " pal "));
    ASSERT_TRUE(back.LoadFromFile(name, "PAL"));
    ASSERT_EQ(back.NumEntries(), NumLandMarkElements);
    for (int i = 1; i <= NumLandMarkElements; ++i) {
        TSymbol expected = repo.GetValues(i);
        if (expected.Properties.Kind == lmPlus || expected.Properties.Kind == lmUserDef)
            expected.Properties.Kind = lmCross;
        EXPECT_EQ(back.GetValues(i), expected) << "entry " << i;
    }
    EXPECT_FALSE(back.LoadFromFile((dir / "missing.xml").string(), ""));
    const std::string bad = (dir / "none" / "x.xml").string();
    EXPECT_EQ(ErrorOf([&] { repo.StoreOnFile(bad, "w"); }), "Component \"Symbols1\": cannot write file \"" + bad + "\"");
    std::filesystem::remove_all(dir);
}

TEST(SymbolRepository, ReaderRules)
{
    const std::string body =
        "<symbol name=\"" + std::string(50, 'x') + "\" element=\"SPADE\" />\n"
        "<symbol />\n"
        "<symbol element=\"User-Defined\" transp=\"nottrue\" size=\"12px\" colorfg=\"0000ff\" />\n"
        "<landmark lat=\"1\" />\n"
        "</lmsymbols>\n"
        "<lmsymbols sig=\"Quorvanta\" id=\"second\">\n"
        "<symbol name=\"from the second\" />\n"
        "</geomap>\n"
        "<symbol name=\"after geomap\" />\n";
    const std::string file = "<?xml version=\"1.0\"?>\n<lmsymbols sig=\"Quorvanta\" vers=\"1.0\" id=\"first\">\n" + body;

    TSymbolRepository repo;
    ASSERT_TRUE(Read(repo, file, ""));
    ASSERT_EQ(repo.NumEntries(), 4);  // the closing tag does not end the catalogue; </geomap> does
    EXPECT_EQ(repo.GetValues(1).Name, std::string(40, 'x'));
    EXPECT_EQ(repo.GetValues(1).Properties.Kind, lmSpade);
    // Absent attributes read as an empty text would: 0, not the default symbol's values.
    EXPECT_EQ(repo.GetValues(2), Sym(lmCross, "", 0, 0, 0, 0, false, 0, 0));
    EXPECT_EQ(repo.GetValues(3), Sym(lmCross, "", 0, 0xFF, 0, 12, true, 0, 0));
    EXPECT_EQ(repo.GetValues(4).Name, "from the second");

    ASSERT_TRUE(Read(repo, file, "SECOND"));
    EXPECT_EQ(repo.NumEntries(), 1);

    repo.Backup();
    EXPECT_FALSE(Read(repo, file, "third"));
    EXPECT_EQ(repo.NumEntries(), 1);
    EXPECT_FALSE(Read(repo, "<lmsymbols id=\"first\">\n<symbol/>\n", ""));
    EXPECT_EQ(repo.NumEntries(), 1);
}

TEST(SymbolRepository, HostileInput)
{
    const std::string header = "<lmsymbols sig=\"Quorvanta\" id=\"h\">\n";
    const std::string huge(1 << 20, 'Z');
    const std::string bodies[] = {
        "<symbol name=\"" + huge + "\" />",
        "<symbol name=\"unterminated />\n<symbol",
        "<symbol size=\"" + std::string(4000, '9') + "\" category=\"-" + std::string(4000, '9') + "\" />",
        std::string(50000, '<') + ">",
        "<symbol " + huge,
    };
    for (const auto& body : bodies) {
        TSymbolRepository repo;
        ASSERT_TRUE(Read(repo, header + body, "h"));
        for (int i = 1; i <= repo.NumEntries(); ++i)
            EXPECT_LE(repo.GetValues(i).Name.size(), SymbolNameCapacity);
    }
    TSymbolRepository repo;
    ASSERT_TRUE(Read(repo, header + bodies[2], "h"));
    EXPECT_EQ(repo.GetValues(1).Properties.Size, std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(repo.GetValues(1).Category, std::numeric_limits<std::int32_t>::min());
}
