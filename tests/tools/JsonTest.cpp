// How fields become JSON and CSV, and documents.
#include "chunkfile/Json.h"

#include <gtest/gtest.h>

#include "chunkfile/Utf8.h"

namespace {

using namespace Corvane::FileTool;

std::string Value(const std::string& bytes, bool typed = true)
{
    std::string line;
    AppendJsonValue(line, bytes, typed);
    return line;
}

std::string Name(const std::string& bytes)
{
    std::string line;
    AppendJsonName(line, bytes);
    return line;
}

std::string Csv(const std::string& field)
{
    std::string line;
    AppendCsv(line, field);
    return line;
}

std::string Nested(int levels)
{
    return std::string(static_cast<std::size_t>(levels), '[') + std::string(static_cast<std::size_t>(levels), ']');
}

TEST(JsonValue, CompactJsonComesOutAsItStands)
{
    for (const char* const text : {"0", "12", "-0", "21.50", "1e5", "1E-05", "18446744073709551616", "true", "false",
                                   "null", "{}", "[]", "[1,2]", R"({"a":[true,{"b":null}],"":""})",
                                   R"(["\u00e9\n\/ \ud83d\ude00"])", "[\"a b é\"]", R"({"a":1,"a":2})"}) {
        EXPECT_EQ(Value(text), text);
    }
}

TEST(JsonValue, OtherTextComesOutAsAString)
{
    for (const char* const text :
         {"",     "01",    "+1",     "1.",   ".5", "1e", "-",   "1 ",    " 1",    "0x10", "NaN",
          "True", "nullx", "[1, 2]", "[1,]", "[",  "{",  "[1}", "{1:2}", "{a:1}", "text", "21.5 C"}) {
        EXPECT_EQ(Value(text), '"' + std::string(text) + '"');
    }
    EXPECT_EQ(Value(R"("quoted")"), R"("\"quoted\"")");
    EXPECT_EQ(Value(R"(["\ud800"])"), R"("[\"\\ud800\"]")");
    EXPECT_EQ(Value(R"(["\udc00\ud800"])"), R"("[\"\\udc00\\ud800\"]")");
    EXPECT_EQ(Value(R"(["\u12"])"), R"("[\"\\u12\"]")");
    EXPECT_EQ(Value(R"(["\x"])"), R"("[\"\\x\"]")");
    EXPECT_EQ(Value(R"(["\ud800"a"])"), R"("[\"\\ud800\"a\"]")");
    EXPECT_EQ(Value("[\"\n\"]"), R"("[\"\n\"]")");
}

TEST(JsonValue, NestingIsBounded)
{
    EXPECT_EQ(Value(Nested(kMostNesting)), Nested(kMostNesting));
    EXPECT_EQ(Value(Nested(kMostNesting + 1)), '"' + Nested(kMostNesting + 1) + '"');
    EXPECT_EQ(Value(std::string(1'000'000, '[')).size(), 1'000'002U);
}

TEST(JsonValue, StringsTurnsTypesOff)
{
    EXPECT_EQ(Value("12", false), R"("12")");
    EXPECT_EQ(Value("{}", false), R"("{}")");
}

TEST(JsonValue, ControlCharactersAreEscaped)
{
    EXPECT_EQ(Value(std::string("\0\x1b\x1f\x7f", 4)), R"("\u0000\u001b\u001f\u007f")");
    EXPECT_EQ(Value("\b\f\n\r\t\"\\"), R"("\b\f\n\r\t\"\\")");
    EXPECT_EQ(Value("\u009b\u00a0é€😀"), "\"\\u009b\u00a0é€😀\"");
}

TEST(JsonValue, BytesThatAreNotUtf8AreBase64)
{
    EXPECT_EQ(Value("\xff"), R"({"base64":"/w=="})");
    EXPECT_EQ(Value("a\xff"), R"({"base64":"Yf8="})");
    EXPECT_EQ(Value("ab\xff"), R"({"base64":"YWL/"})");
    EXPECT_EQ(Value("abc\xff"), R"({"base64":"YWJj/w=="})");
    for (const char* const bytes :
         {"\xc0\x80", "\xe0\x80\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xf8", "\x80", "\xc3"}) {
        EXPECT_EQ(Value(bytes).substr(0, 11), R"({"base64":")") << bytes;
        EXPECT_EQ(Value("[\"" + std::string(bytes) + "\"]").substr(0, 11), R"({"base64":")") << bytes;
    }
}

TEST(JsonValue, ObjectThatCouldBeTakenForBytesIsAString)
{
    EXPECT_EQ(Value(R"({"base64":"AA=="})"), R"("{\"base64\":\"AA==\"}")");
    EXPECT_EQ(Value(R"({"b\u0061se64":"AA=="})"), R"("{\"b\\u0061se64\":\"AA==\"}")");
    EXPECT_EQ(Value(R"({"base65":"AA=="})"), R"({"base65":"AA=="})");
}

TEST(JsonName, IsAStringOrMarkedBase64)
{
    EXPECT_EQ(Name("net/dev"), R"("net/dev")");
    EXPECT_EQ(Name(""), R"("")");
    EXPECT_EQ(Name("\xff"), R"("base64:/w==")");
    EXPECT_EQ(Name("base64:"), R"("base64:YmFzZTY0Og==")");
}

TEST(PlainText, EndsAtTheFirstByteThatIsNotPlain)
{
    for (int byte = 0; byte < 256; ++byte) {
        const bool plain = byte >= 0x20 && byte < 0x7F && byte != '"' && byte != '\\';
        for (std::size_t at = 0; at < 20; ++at) {
            std::string text(20, '~');
            text[at] = static_cast<char>(byte);
            EXPECT_EQ(PlainPrefix(text), plain ? 20 : at) << byte;
        }
    }
}

TEST(JsonDocument, PlacesCommasAndEscapesTexts)
{
    JsonDocument document;
    document.Open('{').Member("text", "a\"b").Member("number", 7U).Member("truth", true).Null("none");
    document.Open('[', "list")
        .Element("x")
        .Element("\xff")
        .Open('{')
        .Close()
        .Close()
        .Open('[', "empty")
        .Close()
        .Close();
    EXPECT_EQ(document.Line(),
              R"({"text":"a\"b","number":7,"truth":true,"none":null,"list":["x","base64:/w==",{}],"empty":[]})");
}

TEST(JsonDocument, NegativeAndLargeNumbersAreWhole)
{
    JsonDocument document;
    document.Open('{').Member("a", INT64_MIN).Member("", UINT64_MAX).Close();
    EXPECT_EQ(document.Line(), R"({"a":-9223372036854775808,"":18446744073709551615})");
}

TEST(Csv, IsQuotedWhereItMustBe)
{
    EXPECT_EQ(Csv("plain text"), "plain text");
    EXPECT_EQ(Csv(""), "");
    EXPECT_EQ(Csv("a,b"), "\"a,b\"");
    EXPECT_EQ(Csv("a\"b"), "\"a\"\"b\"");
    EXPECT_EQ(Csv("a\nb"), "\"a\nb\"");
    EXPECT_EQ(Csv("a\rb"), "\"a\rb\"");
}

TEST(Csv, TextThatIsNotUtf8IsMarkedBase64)
{
    EXPECT_EQ(TextOrBase64("é"), "é");
    EXPECT_EQ(TextOrBase64("\xff"), "base64:/w==");
    EXPECT_EQ(TextOrBase64("base64:x"), "base64:YmFzZTY0Ong=");
}

}  // namespace
