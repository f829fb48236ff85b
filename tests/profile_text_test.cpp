#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "platform/portable/profile_text.h"

using portable::FillStringList;
using portable::SectionLines;
using portable::SectionNames;
using portable::WriteString;
using Lines = std::vector<std::string>;

TEST(ProfileText, NewFileWrittenKeyByKeyHoldsExactlyItsLines) {
    std::string text;
    const std::vector<std::pair<std::string, std::string>> settings{{"chkAuto", "1"},      {"chkTray", "0"},
                                                                    {"chkAutostart", "0"}, {"cmbSize", "1"},
                                                                    {"DT_LEFT", "1200"},   {"DT_TOP", "900"}};
    for (const auto& [key, value] : settings) {
        text = WriteString(text, "Kestrine", key, value);
    }
    EXPECT_EQ(text, "[Kestrine]\r\nchkAuto=1\r\nchkTray=0\r\nchkAutostart=0\r\ncmbSize=1\r\nDT_LEFT=1200\r\n"
                    "DT_TOP=900\r\n");
    EXPECT_EQ(SectionLines(text, "Kestrine"),
              (Lines{"chkAuto=1", "chkTray=0", "chkAutostart=0", "cmbSize=1", "DT_LEFT=1200", "DT_TOP=900"}));
}

TEST(ProfileText, WritingIntoAHandEditedFileChangesOnlyTheEntry) {
    const std::string file = "; settings\n[Kestrine]\n  CMBSIZE = 0  \nDT_LEFT=5\n\n[Other]\nx=1\n";

    // Existing key, matched without regard to case: replaced in place, key kept as spelled.
    EXPECT_EQ(WriteString(file, " kestrine ", "cmbsize", "1"),
              "; settings\r\n[Kestrine]\r\nCMBSIZE=1\r\nDT_LEFT=5\r\n\r\n[Other]\r\nx=1\r\n");
    // New key: after the last entry, before the blank line closing the section.
    EXPECT_EQ(WriteString(file, "Kestrine", "DT_TOP", "9"),
              "; settings\r\n[Kestrine]\r\n  CMBSIZE = 0  \r\nDT_LEFT=5\r\nDT_TOP=9\r\n\r\n[Other]\r\nx=1\r\n");
    // New section: at the end, behind a blank line.
    EXPECT_EQ(WriteString("[A]\r\na=1", "B", "b", "2"), "[A]\r\na=1\r\n\r\n[B]\r\nb=2\r\n");
    // The value goes in as given; an empty section name writes nothing.
    EXPECT_EQ(WriteString("", "S", "k", " "), "[S]\r\nk= \r\n");
    EXPECT_EQ(WriteString("[A]\na=1\n", "  ", "k", "v"), "[A]\na=1\n");
}

TEST(ProfileText, SectionLinesAreTheTrimmedEntriesOfTheFirstMatchingSection) {
    const std::string file = "top=before any section\r\n"
                             "[Drive]\r\n"
                             "  Name =  Stick  \r\n"
                             "; a comment\r\n"
                             "\r\n"
                             "  bare line  \r\n"
                             "=no key\r\n"
                             "Label=a=b\r\n"
                             "[Empty]\r\n"
                             "[drive]\r\n"
                             "second=ignored\r\n";
    EXPECT_EQ(SectionLines(file, "DRIVE"), (Lines{"Name=Stick", "bare line", "=no key", "Label=a=b"}));
    EXPECT_EQ(SectionLines(file, "Empty"), Lines{});
    EXPECT_EQ(SectionLines(file, "Missing"), std::nullopt);
    EXPECT_EQ(SectionLines("", "Drive"), std::nullopt);
    EXPECT_EQ(SectionNames(file), (Lines{"Drive", "Empty", "drive"}));
    EXPECT_EQ(SectionNames("no sections\n[unclosed\n"), Lines{});
}

// Hand-edited files, read as the Windows profile functions read them (see
// docs/profile-files.md for what was measured).
TEST(ProfileText, HandEditedFilesReadAsWindowsReadsThem) {
    // Blanks inside the brackets are not part of the name.
    const std::string padded = "[ Kestrine ]\r\ncmbSize=1\r\n[\tUSB Stick\t]\r\nk=2\r\n";
    EXPECT_EQ(SectionLines(padded, "Kestrine"), Lines{"cmbSize=1"});
    EXPECT_EQ(SectionLines(padded, "usb stick"), Lines{"k=2"});
    EXPECT_EQ(SectionNames(padded), (Lines{"Kestrine", "USB Stick"}));

    // Keys and values lose the blanks around them; "=value" has an empty key;
    // a repeated key is listed each time; the last line needs no line end.
    const std::string entries = "[kestrine]\n  DT_LEFT  =  1200  \n\tDT_TOP\t=\t900\t\r\n=7\nx = a = b \n"
                                "DT_LEFT=5\r\ncmbSize=1";
    EXPECT_EQ(SectionLines(entries, "KESTRINE"),
              (Lines{"DT_LEFT=1200", "DT_TOP=900", "=7", "x=a = b", "DT_LEFT=5", "cmbSize=1"}));

    // A section written twice (in any case) is read at its first place only.
    const std::string twice = "[S]\r\na=1\r\n[T]\r\nt=1\r\n[s]\r\nb=2\r\n";
    EXPECT_EQ(SectionLines(twice, "S"), Lines{"a=1"});
    EXPECT_EQ(SectionNames(twice), (Lines{"S", "T", "s"}));
}

TEST(ProfileText, WritingHandEditedFilesAsWindowsWritesThem) {
    // The section with blanks inside its brackets is the one written to.
    EXPECT_EQ(WriteString("[ Kestrine ]\r\ncmbSize=0\r\n", "Kestrine", "CMBSIZE", "1"),
              "[ Kestrine ]\r\ncmbSize=1\r\n");
    EXPECT_EQ(WriteString("[ Kestrine ]\r\ncmbSize=0\r\n", "kestrine", "DT_TOP", "9"),
              "[ Kestrine ]\r\ncmbSize=0\r\nDT_TOP=9\r\n");
    // A repeated key: the first is replaced, the second left as it was.
    EXPECT_EQ(WriteString("[S]\na=1\nb=x\na=2\n", "s", "A", "3"), "[S]\r\na=3\r\nb=x\r\na=2\r\n");
    // A last line without its line end, and a file of LF line ends.
    EXPECT_EQ(WriteString("[S]\r\na=1", "S", "b", "2"), "[S]\r\na=1\r\nb=2\r\n");
    EXPECT_EQ(WriteString("[S]\na=1\nb=2\n", "S", "a", "7"), "[S]\r\na=7\r\nb=2\r\n");
    // The empty key is the "=value" entry, never a blank line.
    EXPECT_EQ(WriteString("[S]\r\n\r\n=v1\r\n", "S", "", "w"), "[S]\r\n\r\n=w\r\n");
}

TEST(ProfileText, StringListFillsLikeTheWindowsProfileFunctions) {
    const Lines names{"A", "BC"}; // "A\0BC\0" + final NUL = 6 characters
    std::array<char, 12> buf{};

    buf.fill('#');
    EXPECT_EQ(FillStringList(names, std::span(buf).first(6)), 5u);
    EXPECT_EQ(std::string(buf.data(), 7), std::string("A\0BC\0\0#", 7));

    buf.fill('#');
    EXPECT_EQ(FillStringList(names, std::span(buf).first(5)), 3u);
    EXPECT_EQ(std::string(buf.data(), 6), std::string("A\0B\0\0#", 6));

    buf.fill('#');
    EXPECT_EQ(FillStringList(names, std::span(buf).first(2)), 0u);
    EXPECT_EQ(std::string(buf.data(), 3), std::string("\0\0#", 3));

    buf.fill('#');
    EXPECT_EQ(FillStringList(names, std::span(buf).first(1)), 0u);
    EXPECT_EQ(std::string(buf.data(), 2), std::string("\0#", 2));

    buf.fill('#');
    EXPECT_EQ(FillStringList(names, std::span(buf).first(0)), 0u);
    EXPECT_EQ(buf[0], '#');

    buf.fill('#');
    EXPECT_EQ(FillStringList({}, std::span(buf).first(4)), 0u);
    EXPECT_EQ(buf[0], '\0');
}
