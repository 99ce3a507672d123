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
