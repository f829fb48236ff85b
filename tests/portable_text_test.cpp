// The text helpers the backends without Windows share: UTF-8 and UTF-16
// both ways (names the system hands over in UTF-16, such as a veto name),
// wildcard names and cut, NUL-terminated copies.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "platform/portable/text.h"

using portable::Utf16ToUtf8;
using portable::Utf8ToUtf16;

TEST(PortableText, Utf16AndUtf8RoundTripEveryPlane) {
    // ASCII, two-byte (ä), three-byte (€) and a character beyond the BMP (😀, a surrogate pair).
    const std::string text = "USB\\VID_0951 Gr\xC3\xA4t \xE2\x82\xAC \xF0\x9F\x98\x80";
    const std::u16string wide = Utf8ToUtf16(text);
    EXPECT_EQ(wide, u"USB\\VID_0951 Gr\u00E4t \u20AC \U0001F600");
    EXPECT_EQ(Utf16ToUtf8(wide), text);
}

TEST(PortableText, Utf16StopsAtTheFirstNulAndReplacesLoneSurrogates) {
    std::array<char16_t, 8> buffer{u'a', u'b', 0, u'c'};
    EXPECT_EQ(Utf16ToUtf8(std::u16string_view(buffer.data(), buffer.size())), "ab");
    const char16_t lone[] = {u'x', 0xD800, u'y', 0xDC00};
    EXPECT_EQ(Utf16ToUtf8(std::u16string_view(lone, 4)), "x\xEF\xBF\xBDy\xEF\xBF\xBD");
    EXPECT_EQ(Utf16ToUtf8(u""), "");
}

TEST(PortableText, WildcardsAndCutCopies) {
    EXPECT_TRUE(portable::WildcardMatch("*.*", "README"));
    EXPECT_TRUE(portable::WildcardMatch("kestrine.?NI", "Kestrine.ini"));
    EXPECT_FALSE(portable::WildcardMatch("*.ini", "Kestrine.ini.new"));
    std::array<char, 4> out{'x', 'x', 'x', 'x'};
    portable::CopyCut(out, "abcdef");
    EXPECT_EQ(std::string(out.data()), "abc");
}
