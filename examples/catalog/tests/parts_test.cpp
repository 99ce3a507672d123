// What cannot be seen from outside the program.

#include <string>

#include <gtest/gtest.h>

#include "files.h"
#include "printable.h"

namespace catalog_tests {

using catalog::Printable;

using namespace std::string_literals;

TEST(PrintableTest, PlainTextStaysAsItIs) {
  EXPECT_EQ(Printable("/a b/\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80 'q' \"%\""),
            "/a b/\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80 'q' \"%\"");
}

TEST(PrintableTest, BackslashesAreDoubled) { EXPECT_EQ(Printable("a\\nb"), "a\\\\nb"); }

TEST(PrintableTest, ControlCharactersAreEscaped) {
  EXPECT_EQ(Printable("a\nb\tc\rd\x1B[2Je\x7F\0"s), "a\\nb\\tc\\rd\\x1B[2Je\\x7F\\x00");
}

TEST(PrintableTest, ControlCharactersOfTwoBytesAreEscaped) { EXPECT_EQ(Printable("\xC2\x9B"), "\\xC2\\x9B"); }

TEST(PrintableTest, LineSeparatorsAreEscaped) { EXPECT_EQ(Printable("\xE2\x80\xA8"), "\\xE2\\x80\\xA8"); }

// Shown as it is, "a<RLO>gpj.exe" would look like "aexe.jpg".
TEST(PrintableTest, CharactersThatTurnTheDirectionOfTheTextAreEscaped) {
  EXPECT_EQ(Printable("a\xE2\x80\xAEgpj.exe"), "a\\xE2\\x80\\xAEgpj.exe");
  EXPECT_EQ(Printable("\xD8\x9C"), "\\xD8\\x9C") << "Arabic letter mark";
  for (const char* mark : {"\x8E", "\x8F", "\xAA", "\xAB", "\xAC", "\xAD", "\xAE"}) {
    const std::string shown = Printable(std::string("\xE2\x80") + mark);
    EXPECT_EQ(shown.compare(0, 10, "\\xE2\\x80\\x"), 0) << shown;
    EXPECT_EQ(shown.size(), 12u);
  }
  for (const char* isolate : {"\xA6", "\xA7", "\xA8", "\xA9"}) {
    const std::string shown = Printable(std::string("\xE2\x81") + isolate);
    EXPECT_EQ(shown.compare(0, 10, "\\xE2\\x81\\x"), 0) << shown;
    EXPECT_EQ(shown.size(), 12u);
  }
}

TEST(PrintableTest, TheirNeighboursAndLettersThatAreWrittenFromTheRightStay) {
  // Beside U+061C, U+200E and U+200F, U+202A to U+202E, and U+2066 to U+2069.
  for (const char* neighbour :
       {"\xD8\x9B", "\xD8\x9D", "\xE2\x80\x8D", "\xE2\x80\x90", "\xE2\x80\xAF", "\xE2\x81\xA5", "\xE2\x81\xAA"}) {
    EXPECT_EQ(Printable(neighbour), neighbour);
  }
  EXPECT_EQ(Printable("\xD7\x90\xD8\xA7"), "\xD7\x90\xD8\xA7");
}

TEST(PrintableTest, BytesThatAreNotUtf8AreEscaped) {
  EXPECT_EQ(Printable("\xFF"), "\\xFF");
  EXPECT_EQ(Printable("\xC3"), "\\xC3") << "cut short";
  EXPECT_EQ(Printable("\xE2\x82z"), "\\xE2\\x82z") << "cut short by a letter";
  EXPECT_EQ(Printable("\xC0\xAF"), "\\xC0\\xAF") << "too long a form, two bytes";
  EXPECT_EQ(Printable("\xE0\x81\x81"), "\\xE0\\x81\\x81") << "too long a form, three bytes";
  EXPECT_EQ(Printable("\xF0\x80\x81\x81"), "\\xF0\\x80\\x81\\x81") << "too long a form, four bytes";
  EXPECT_EQ(Printable("\xED\xA0\x80"), "\\xED\\xA0\\x80") << "half a surrogate pair";
  EXPECT_EQ(Printable("\xF4\x90\x80\x80"), "\\xF4\\x90\\x80\\x80") << "past the last character";
}

TEST(KindTest, ExtensionInLowerCase) {
  EXPECT_EQ(catalog::KindOf("/a/b.TXT"), "txt");
  EXPECT_EQ(catalog::KindOf("/a/b.tar.Gz"), "gz");
}

TEST(KindTest, NoExtensionNoKind) {
  EXPECT_EQ(catalog::KindOf("/a.d/b"), "");
  EXPECT_EQ(catalog::KindOf("/a/.profile"), "");
  EXPECT_EQ(catalog::KindOf("/a/b."), "");
}

TEST(BelowTest, IsARangeThatEndsBeforeLongerNames) {
  EXPECT_EQ(catalog::FirstBelow("/a/b"), "/a/b/");
  EXPECT_EQ(catalog::EndBelow("/a/b"), "/a/b0");
}

TEST(BelowTest, TheRootIsEverything) {
  EXPECT_EQ(catalog::FirstBelow("/"), "/");
  EXPECT_EQ(catalog::EndBelow("/"), "0");
}

}  // namespace catalog_tests
