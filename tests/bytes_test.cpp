// The little-endian fields of the Windows records (platform/bytes.h) and the
// ASCII case, trimming and size pattern every part of the program shares
// (core/vb.h).
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "core/vb.h"
#include "platform/bytes.h"

TEST(Bytes, FieldsOfEveryWidthRoundTripLeastSignificantByteFirst) {
    std::array<std::uint8_t, 16> b{};
    platform::WriteLe<std::uint16_t>(b, 0, 0xBEEF);
    platform::WriteLe32(b, 2, 0x12345678u);
    platform::WriteLe<std::uint64_t>(b, 6, 0x0102030405060708ull);
    platform::WriteLe<std::uint8_t>(b, 14, 0xAB);
    const std::array<std::uint8_t, 16> expected{0xEF, 0xBE, 0x78, 0x56, 0x34, 0x12, 0x08, 0x07,
                                                0x06, 0x05, 0x04, 0x03, 0x02, 0x01, 0xAB, 0x00};
    EXPECT_EQ(b, expected);
    EXPECT_EQ(platform::ReadLe<std::uint16_t>(b, 0), 0xBEEF);
    EXPECT_EQ(platform::ReadLe32(b, 2), 0x12345678u);
    EXPECT_EQ(platform::ReadLe<std::uint64_t>(b, 6), 0x0102030405060708ull);
    EXPECT_EQ(platform::ReadLe<std::uint8_t>(b, 14), 0xAB);
    // The top bit survives: no sign extension on the way in or out.
    platform::WriteLe32(b, 8, 0xFFFFFFFEu);
    EXPECT_EQ(platform::ReadLe32(b, 8), 0xFFFFFFFEu);
}

TEST(Bytes, FieldsBeyondTheEndReadZeroAndWriteWhatFits) {
    std::vector<std::uint8_t> b{1, 2, 3, 4, 5, 6};
    EXPECT_EQ(platform::ReadLe32(b, 2), 0x06050403u);
    EXPECT_EQ(platform::ReadLe32(b, 3), 0u); // one byte short
    EXPECT_EQ(platform::ReadLe32(b, 100), 0u);
    EXPECT_EQ(platform::ReadLe32({}, 0), 0u);
    // A descriptor cut short by a small buffer keeps the bytes that fit.
    platform::WriteLe32(b, 4, 0xAABBCCDDu);
    EXPECT_EQ(b, (std::vector<std::uint8_t>{1, 2, 3, 4, 0xDD, 0xCC}));
    platform::WriteLe32(b, 9, 0xFFFFFFFFu); // wholly outside: nothing happens
    EXPECT_EQ(b.size(), 6u);
}

TEST(VbText, CaseChangesAsciiLettersOnly) {
    EXPECT_EQ(vb::UCase("e:\\Stick-1 ok"), "E:\\STICK-1 OK");
    EXPECT_EQ(vb::LCase("E:\\STICK-1 OK"), "e:\\stick-1 ok");
    // Bytes of UTF-8 text pass unchanged, whatever the C locale.
    EXPECT_EQ(vb::UCase("gr\xC3\xA4t"), "GR\xC3\xA4T");
    EXPECT_EQ(vb::LCase("\xC3\x84X"), "\xC3\x84x");
    EXPECT_EQ(vb::UpperChar('@'), '@');
    EXPECT_EQ(vb::UpperChar('['), '[');
    EXPECT_EQ(vb::LowerChar('`'), '`');
    EXPECT_EQ(vb::LowerChar('Z'), 'z');
    EXPECT_TRUE(vb::SameText("winmgmts:", "WINMGMTS:"));
    EXPECT_FALSE(vb::SameText("Disk #1", "Disk #10"));
    EXPECT_FALSE(vb::SameText("a", "\xC3\xA1"));
}

TEST(VbText, TrimTakesSpacesAndTrimBlanksAlsoControlBlanks) {
    EXPECT_EQ(vb::Trim("  a b \t"), "a b \t"); // spaces only, as the settings want
    EXPECT_EQ(vb::TrimBlanks(" \t a b\r\n"), "a b");
    EXPECT_EQ(vb::TrimBlanks(std::string("udisks\0\0", 8)), "udisks");
    EXPECT_EQ(vb::TrimBlanks(" \n\t "), "");
}

TEST(VbNumbers, SizePatternRoundsTheDecimalValueHalvesAwayFromZero) {
    // Halves of the decimal value go up, whether or not the binary value is exact.
    EXPECT_EQ(vb::FormatSize(1536.125, '.'), "1536.13");
    EXPECT_EQ(vb::FormatSize(1.005, '.'), "1.01"); // just below 1.005 in binary
    EXPECT_EQ(vb::FormatSize(999.995, ','), "1000,00");
    EXPECT_EQ(vb::FormatSize(-1.125, '.'), "-1.13");
    EXPECT_EQ(vb::FormatSize(0.0049999, '.'), "0.00");
    // No grouping, at least one integer digit, no negative zero.
    EXPECT_EQ(vb::FormatSize(1999999999.0, '.'), "1999999999.00");
    EXPECT_EQ(vb::FormatSize(0.5, ','), "0,50");
    EXPECT_EQ(vb::FormatSize(-0.004, '.'), "0.00");
}
