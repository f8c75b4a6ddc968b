#include "testing/meeting.h"
#include "xmlTesting.h"

#include "resmgt/xml/xmlInput.private.h"

#include <atomic>
#include <memory>
#include <streambuf>
#include <thread>
#include <vector>

namespace ZvTest {
namespace {

char const SYNTAX[] = "Syntax error.";
char const LEXICAL[] = "Lexical error.";

// The prolog

TEST(XmlParser, ParsesADocumentWithAndWithoutADeclaration)
{
    EXPECT_EQ(toldOf("<a/>"), "begin[a] emptyEnd ");
    EXPECT_EQ(toldOf("<?xml version=\"1.0\"?><a/>"), "declaration[1.0] begin[a] emptyEnd ");
    EXPECT_EQ(toldOf("<?xml version='1.0'?><a/>"), "declaration[1.0] begin[a] emptyEnd ");
    EXPECT_EQ(toldOf("<?xml \t\r\nversion \n=\t '1.0' \n?>\n<a/>"),
              "declaration[1.0] begin[a] emptyEnd ");
    EXPECT_EQ(toldOf("<?xml version='-.09:AZ_az'?><a/>"),
              "declaration[-.09:AZ_az] begin[a] emptyEnd ");
}

TEST(XmlParser, ADeclarationHasAVersionAndNothingElse)
{
    EXPECT_EQ(toldOf("<?xml version=\"1.0\" encoding=\"UTF-8\"?><a/>"), SYNTAX);
    EXPECT_EQ(toldOf("<?xml version=\"1.0\" standalone='yes'?><a/>"), SYNTAX);
    EXPECT_EQ(toldOf("<?xml version='1.0' '1.0'?><a/>"), SYNTAX);
    EXPECT_EQ(toldOf("<?xml version='1.0''1.0'?><a/>"), SYNTAX);
    EXPECT_EQ(toldOf("<?xml version=?><a/>"), SYNTAX);
    EXPECT_EQ(toldOf("<?xml version= ?><a/>"), SYNTAX);
    EXPECT_EQ(toldOf("<?xml version='1.0' ?x><a/>"), SYNTAX);
    EXPECT_EQ(toldOf("<?xml version='1.0'?x><a/>"), LEXICAL);
    EXPECT_EQ(toldOf("<?xml version='1.0'><a/>"), LEXICAL);
    EXPECT_EQ(toldOf("<?xml version=1.0?><a/>"), LEXICAL);
}

TEST(XmlParser, AVersionIsOneOrMoreOfItsBytesBetweenEqualQuotes)
{
    EXPECT_EQ(toldOf("<?xml version=''?><a/>"), LEXICAL);
    EXPECT_EQ(toldOf("<?xml version='1 0'?><a/>"), LEXICAL);
    EXPECT_EQ(toldOf("<?xml version='1.0\"?><a/>"), LEXICAL);
    EXPECT_EQ(toldOf("<?xml version='1.0"), LEXICAL);
    EXPECT_EQ(toldOf("<?xml version='&#49;'?><a/>"), LEXICAL);
}

TEST(XmlParser, OnlyCommentsAreAllowedBeforeTheDeclaration)
{
    EXPECT_EQ(toldOf("<!-- x --><?xml version='1.0'?><a/>"), "declaration[1.0] begin[a] emptyEnd ");
    EXPECT_EQ(toldOf(" <?xml version='1.0'?><a/>"), SYNTAX);
    EXPECT_EQ(toldOf("<!DOCTYPE a><?xml version='1.0'?><a/>"), "type[a] Syntax error.");
    EXPECT_EQ(toldOf("<?xml version='1.0'?><?xml version='1.0'?><a/>"),
              "declaration[1.0] Syntax error.");
    EXPECT_EQ(toldOf("<a><?xml version='1.0'?></a>"), "begin[a] tagEnd Syntax error.");
    EXPECT_EQ(toldOf("<a/><?xml version='1.0'?>"), "begin[a] emptyEnd Syntax error.");
}

TEST(XmlParser, AProcessingInstructionIsALexicalError)
{
    EXPECT_EQ(toldOf("<?php x?><a/>"), LEXICAL);
    EXPECT_EQ(toldOf("<?xmlversion='1.0'?><a/>"), LEXICAL);
    EXPECT_EQ(toldOf("<?XML version='1.0'?><a/>"), LEXICAL);
    EXPECT_EQ(toldOf("<?xml encoding='1.0'?><a/>"), LEXICAL);
    EXPECT_EQ(toldOf("<?xml"), LEXICAL);
    EXPECT_EQ(toldOf("<?xml version"), LEXICAL);
    EXPECT_EQ(toldOf("<?"), LEXICAL);
    EXPECT_EQ(toldOf("<a><?php x?></a>"), "begin[a] tagEnd Lexical error.");
    EXPECT_EQ(toldOf("<a/><?php x?>"), "begin[a] emptyEnd Syntax error.");
}

TEST(XmlParser, ADoctypeHasANameAndNothingElse)
{
    EXPECT_EQ(toldOf("<!DOCTYPE a><a/>"), "type[a] begin[a] emptyEnd ");
    EXPECT_EQ(toldOf("<!DOCTYPE \t\r\nb \n>\n<a/>"), "type[b] begin[a] emptyEnd ");
    EXPECT_EQ(toldOf("<!DOCTYPE a [ ]>"), SYNTAX);
    EXPECT_EQ(toldOf("<!DOCTYPE a [ ]><a/>"), SYNTAX);
    EXPECT_EQ(toldOf("<!DOCTYPE a SYSTEM 'x'><a/>"), SYNTAX);
    EXPECT_EQ(toldOf("<!DOCTYPE a/><a/>"), SYNTAX);
    EXPECT_EQ(toldOf("<!DOCTYPE ><a/>"), SYNTAX);
    EXPECT_EQ(toldOf("<!DOCTYPE 'a'><a/>"), SYNTAX);
    EXPECT_EQ(toldOf("<!DOCTYPE a[]><a/>"), LEXICAL);
    EXPECT_EQ(toldOf("<!DOCTYPEa><a/>"), LEXICAL);
    EXPECT_EQ(toldOf("<!DOCTYPE><a/>"), LEXICAL);
    EXPECT_EQ(toldOf("<!doctype a><a/>"), LEXICAL);
    EXPECT_EQ(toldOf("<!DOCTYPE a><!DOCTYPE a><a/>"), "type[a] Syntax error.");
    EXPECT_EQ(toldOf("<a><!DOCTYPE a></a>"), "begin[a] tagEnd Syntax error.");
    EXPECT_EQ(toldOf("<a/><!DOCTYPE a>"), "begin[a] emptyEnd Syntax error.");
}

TEST(XmlParser, WhiteSpaceAndCommentsAreAllowedBetweenThePartsOfADocument)
{
    EXPECT_EQ(
        toldOf("<?xml version='1.0'?> <!-- x -->\n<!-- y -->\t<!DOCTYPE a>\r\n<!-- z --> <a/> "
               "<!-- -->\n"),
        "declaration[1.0] type[a] begin[a] emptyEnd ");
    EXPECT_EQ(toldOf(" \t\r\n<a/>"), "begin[a] emptyEnd ");
    EXPECT_EQ(toldOf("\v<a/>"), SYNTAX);
    EXPECT_EQ(toldOf("\f<a/>"), SYNTAX);
}

TEST(XmlParser, NothingElseIsAllowedOutsideTheRoot)
{
    EXPECT_EQ(toldOf(""), SYNTAX);
    EXPECT_EQ(toldOf(" \n"), SYNTAX);
    EXPECT_EQ(toldOf("<!-- x -->"), SYNTAX);
    EXPECT_EQ(toldOf("<?xml version='1.0'?>"), "declaration[1.0] Syntax error.");
    EXPECT_EQ(toldOf("<!DOCTYPE a>"), "type[a] Syntax error.");
    EXPECT_EQ(toldOf("x<a/>"), SYNTAX);
    EXPECT_EQ(toldOf("&amp;<a/>"), SYNTAX);
    EXPECT_EQ(toldOf("&x;<a/>"), LEXICAL);
    EXPECT_EQ(toldOf("</a>"), SYNTAX);
    EXPECT_EQ(toldOf("]]><a/>"), SYNTAX);
    EXPECT_EQ(toldOf("<![CDATA[x]]><a/>"), SYNTAX);
    EXPECT_EQ(toldOf("<a/>x"), "begin[a] emptyEnd Syntax error.");
    EXPECT_EQ(toldOf("<a/> &amp;"), "begin[a] emptyEnd Syntax error.");
    EXPECT_EQ(toldOf("<a/> &"), "begin[a] emptyEnd Lexical error.");
    EXPECT_EQ(toldOf("<a/></a>"), "begin[a] emptyEnd Syntax error.");
    EXPECT_EQ(toldOf("<a/><![CDATA[x]]>"), "begin[a] emptyEnd Syntax error.");
    EXPECT_EQ(toldOf("\xEF\xBB\xBF<a/>"), SYNTAX) << "a byte order mark is text";
}

TEST(XmlParser, ADocumentHasOneRoot)
{
    EXPECT_EQ(toldOf("<a/><b/>"), "begin[a] emptyEnd Syntax error.");
    EXPECT_EQ(toldOf("<a></a> <a></a>"), "begin[a] tagEnd close[a] Syntax error.");
}

// Comments

TEST(XmlParser, CommentsAreSkipped)
{
    EXPECT_EQ(toldOf("<!-- a - b --><a/>"), "begin[a] emptyEnd ");
    EXPECT_EQ(toldOf("<!----><a/>"), "begin[a] emptyEnd ");
    EXPECT_EQ(toldOf("<!-- <b> & ]]> > \x01 \xFF --><a/>"), "begin[a] emptyEnd ");
    EXPECT_EQ(toldOf("<a><!-- x --><!-- y --></a>"), "begin[a] tagEnd close[a] ");
    EXPECT_EQ(toldOf(std::string("<!-- \0 --><a/>", 14)), "begin[a] emptyEnd ");
}

TEST(XmlParser, TheFirstTwoDashesInACommentBeginItsEnd)
{
    for (char const *text : {"<!-- a -- b --><a/>", "<!---><a/>", "<!-- a ---><a/>", "<!-- a",
                             "<!-- a -", "<!-- a --", "<!--", "<!-", "<!", "<!- a --><a/>"})
        EXPECT_EQ(toldOf(text), LEXICAL) << text;
    EXPECT_EQ(toldOf("<a><!-- a -- b --></a>"), "begin[a] tagEnd Lexical error.");
    EXPECT_EQ(toldOf("<a/><!-- a -- b -->"), "begin[a] emptyEnd Syntax error.");
}

TEST(XmlParser, ACommentSplitsAText)
{
    EXPECT_EQ(toldOf("<a>x<!-- c -->y</a>"), "begin[a] tagEnd text[x] text[y] close[a] ");
    EXPECT_EQ(toldOf("<a>x<!-- c --> y</a>"), "begin[a] tagEnd text[x] text[ y] close[a] ");
    EXPECT_EQ(toldOf("<a>x <!-- c --> </a>"), "begin[a] tagEnd text[x ] close[a] ");
}

// Tags

TEST(XmlParser, AStartTagIsReportedWithItsAttributesInOrder)
{
    EXPECT_EQ(toldOf("<a c='1' b=\"2\" c='3'></a>"), "begin[a] c=[1] b=[2] c=[3] tagEnd close[a] ");
    EXPECT_EQ(toldOf("<a b=''/>"), "begin[a] b=[] emptyEnd ");
    EXPECT_EQ(toldOf("<a b = \"1\" />"), "begin[a] b=[1] emptyEnd ");
    EXPECT_EQ(toldOf("<a\n\tb\r=\n'1'\n></a \n>"), "begin[a] b=[1] tagEnd close[a] ");
}

TEST(XmlParser, WhiteSpaceSeparatesAttributes)
{
    EXPECT_EQ(toldOf("<a b=\"1\"c=\"2\"/>"), "begin[a] b=[1] Syntax error.");
    EXPECT_EQ(toldOf("<a b='1' 'c'/>"), "begin[a] b=[1] Syntax error.");
    EXPECT_EQ(toldOf("<a b='1''c'/>"), "begin[a] b=[1] Syntax error.");
}

TEST(XmlParser, NoWhiteSpaceIsAllowedBeforeTheNameOfATag)
{
    EXPECT_EQ(toldOf("< a/>"), SYNTAX);
    EXPECT_EQ(toldOf("<a></ a>"), "begin[a] tagEnd Syntax error.");
}

TEST(XmlParser, AnAttributeIsANameAnEqualSignAndAValue)
{
    EXPECT_EQ(toldOf("<a b/>"), "begin[a] Syntax error.");
    EXPECT_EQ(toldOf("<a b c='1'/>"), "begin[a] Syntax error.");
    EXPECT_EQ(toldOf("<a b=/>"), "begin[a] Syntax error.");
    EXPECT_EQ(toldOf("<a b=c/>"), "begin[a] Syntax error.");
    EXPECT_EQ(toldOf("<a b=='1'/>"), "begin[a] Syntax error.");
    EXPECT_EQ(toldOf("<a b'1'/>"), "begin[a] Syntax error.");
    EXPECT_EQ(toldOf("<a ='1'/>"), "begin[a] Syntax error.");
    EXPECT_EQ(toldOf("<a='1'/>"), "begin[a] Syntax error.");
    EXPECT_EQ(toldOf("<a 'b'/>"), "begin[a] Syntax error.");
    EXPECT_EQ(toldOf("<a b=1/>"), "begin[a] Lexical error.");
}

TEST(XmlParser, AByteThatHasNoPlaceInATagIsALexicalError)
{
    for (char const *rest :
         {"<", "&", "!", "?", "]", "-", ".", "1", "#", "/", "/ >", "\x01", "\xB7"})
        EXPECT_EQ(toldOf("<a " + std::string(rest)), "begin[a] Lexical error.") << rest;
    EXPECT_EQ(toldOf(std::string("<a \0/>", 6)), "begin[a] Lexical error.");
    for (char const *name : {"1b", "-b", "\xB7", "\xD7", "/"})
        EXPECT_EQ(toldOf("<a c=\"2\" " + std::string(name) + "=\"1\"/>"),
                  "begin[a] c=[2] Lexical error.")
            << name;
    EXPECT_EQ(toldOf("<a/"), "begin[a] Lexical error.");
    EXPECT_EQ(toldOf("<a b='1' /b='2'/>"), "begin[a] b=[1] Lexical error.");
    EXPECT_EQ(toldOf("<1/>"), LEXICAL);
    EXPECT_EQ(toldOf("<<a/>"), LEXICAL);
}

TEST(XmlParser, ASlashInAClosingTagIsALexicalErrorAndSpaceBeforeItASyntaxError)
{
    EXPECT_EQ(toldOf("<a></a/b>"), "begin[a] tagEnd Lexical error.");
    EXPECT_EQ(toldOf("<a></a /b>"), "begin[a] tagEnd Syntax error.");
    EXPECT_EQ(toldOf("<a></a/>"), "begin[a] tagEnd Syntax error.");
}

TEST(XmlParser, ATokenOutOfPlaceInATagIsASyntaxError)
{
    EXPECT_EQ(toldOf("<>"), SYNTAX);
    EXPECT_EQ(toldOf("</>"), SYNTAX);
    EXPECT_EQ(toldOf("<'a'>"), SYNTAX);
    EXPECT_EQ(toldOf("<'&'>"), LEXICAL)
        << "the value is read before it is found to be out of place";
    EXPECT_EQ(toldOf("< />"), SYNTAX);
    EXPECT_EQ(toldOf("<a></a/>"), "begin[a] tagEnd Syntax error.");
    EXPECT_EQ(toldOf("<a></a b='1'>"), "begin[a] tagEnd Syntax error.");
    EXPECT_EQ(toldOf("<a></>"), "begin[a] tagEnd Syntax error.");
}

TEST(XmlParser, NamesHaveTheBytesOfLatin1Letters)
{
    std::string const start = "_:AZaz\xC0\xD6\xD8\xF6\xF8\xFF";
    for (char const c : start)
        EXPECT_EQ(toldOf("<" + std::string(1, c) + "/>"),
                  "begin[" + std::string(1, c) + "] emptyEnd ");
    std::string const all = "a" + start + "09-.\xB7";
    EXPECT_EQ(toldOf("<" + all + " " + all + "='1'/>"),
              "begin[" + all + "] " + all + "=[1] emptyEnd ");
    for (char const c : std::string("09-.\xB7\xD7\xF7@[`{\xBF"))
        EXPECT_EQ(toldOf("<" + std::string(1, c) + "/>"), LEXICAL) << c;
    for (char const c : std::string("\xD7\xF7@[`{,;\xB6\xB8"))
        EXPECT_EQ(toldOf("<a" + std::string(1, c) + "/>"), "begin[a] Lexical error.") << c;
}

TEST(XmlParser, NamesOfStartAndEndTagsAreNotCompared)
{
    EXPECT_EQ(toldOf("<a><b></c></d>"), "begin[a] tagEnd begin[b] tagEnd close[c] close[d] ");
}

TEST(XmlParser, ManyNamesAreReportedUnchanged)
{
    std::string text = "<r>";
    std::string told = "begin[r] tagEnd ";
    for (int turn = 0; turn < 3; ++turn)
        for (int i = 0; i < 2000; ++i) {
            std::string const name = "n" + std::string(static_cast<std::size_t>(i % 20), 'x') +
                                     std::to_string(i) + "end";
            text += "<" + name + "/>";
            told += "begin[" + name + "] emptyEnd ";
        }
    EXPECT_EQ(toldOf(text + "</r>"), told + "close[r] ");
}

// Values

TEST(XmlParser, AQuoteInAValueIsWrittenAsAReference)
{
    EXPECT_EQ(toldOf("<a b='x\"y'/>"), "begin[a] Lexical error.");
    EXPECT_EQ(toldOf("<a b=\"x'y\"/>"), "begin[a] Lexical error.");
    EXPECT_EQ(toldOf("<a b='x&quot;y'/>"), "begin[a] b=[x\"y] emptyEnd ");
    EXPECT_EQ(toldOf("<a b=\"x&apos;y\"/>"), "begin[a] b=[x'y] emptyEnd ");
}

TEST(XmlParser, ReferencesInAValueAreResolvedIntoOneValue)
{
    EXPECT_EQ(toldOf("<a b='&lt;&gt;&amp;&apos;&quot;&#65;&#x7a;&#x00041;'/>"),
              "begin[a] b=[<>&'\"AzA] emptyEnd ");
    EXPECT_EQ(toldOf("<a b='x&amp;y&lt;z' c='&amp;' d='w'/>"),
              "begin[a] b=[x&y<z] c=[&] d=[w] emptyEnd ");
    EXPECT_EQ(toldOf("<a b='&#255;&#xaB;'/>"), "begin[a] b=[\xFF\xAb] emptyEnd ");
}

TEST(XmlParser, AValueHoldsAnyOtherByte)
{
    EXPECT_EQ(toldOf("<a b=' x\ty\r\nz=/]] \x01\xFF '/>"),
              "begin[a] b=[ x\ty\r\nz=/]] \x01\xFF ] emptyEnd ");
    EXPECT_EQ(toldOf(std::string("<a b='x\0y&#0;'/>", 16)),
              std::string("begin[a] b=[x\0y\0] emptyEnd ", 27));
    EXPECT_EQ(toldOf("<a b='<'/>"), "begin[a] Lexical error.");
    EXPECT_EQ(toldOf("<a b='>'/>"), "begin[a] Lexical error.");
    EXPECT_EQ(toldOf("<a b='&'/>"), "begin[a] Lexical error.");
}

// Text and references

TEST(XmlParser, ATextWithReferencesIsPassedInPieces)
{
    EXPECT_EQ(toldOf("<a>x&amp;y</a>"), "begin[a] tagEnd text[x] text[&] text[y] close[a] ");
    EXPECT_EQ(toldOf("<a>&lt;&gt;&apos;&quot;&#65;&#x42;</a>"),
              "begin[a] tagEnd text[<] text[>] text['] text[\"] text[A] text[B] close[a] ");
}

TEST(XmlParser, WhiteSpaceAloneIsNoText)
{
    EXPECT_EQ(toldOf("<a>  </a>"), "begin[a] tagEnd close[a] ");
    EXPECT_EQ(toldOf("<a> x </a>"), "begin[a] tagEnd text[ x ] close[a] ");
    EXPECT_EQ(toldOf("<a>\n\t<b/>\r\n</a>"), "begin[a] tagEnd begin[b] emptyEnd close[a] ");
    EXPECT_EQ(toldOf("<a> &amp; </a>"), "begin[a] tagEnd text[&] close[a] ");
    EXPECT_EQ(toldOf("<a> <![CDATA[x]]> </a>"), "begin[a] tagEnd cdata[x] close[a] ");
    EXPECT_EQ(toldOf("<a>\v<!---->\r<!----> \f</a>"),
              "begin[a] tagEnd text[\v] text[ \f] close[a] ");
}

TEST(XmlParser, ATextHoldsAnyByteButTwo)
{
    std::string const text(" \0x>]/'\"=?!-\x01\xFF ", 16);
    EXPECT_EQ(toldOf("<a>" + text + "</a>"), "begin[a] tagEnd text[" + text + "] close[a] ");
    EXPECT_EQ(toldOf("<a>&#0;</a>"), std::string("begin[a] tagEnd text[\0] close[a] ", 33));
    EXPECT_EQ(toldOf(std::string("<a>\0</a>", 8)),
              std::string("begin[a] tagEnd text[\0] close[a] ", 33));
}

TEST(XmlParser, ATextIsCutBeforeTheBracketOfACdataEnd)
{
    EXPECT_EQ(toldOf("<a>a]]>b</a>"), "begin[a] tagEnd text[a]]] text[>b] close[a] ");
    EXPECT_EQ(toldOf("<a> ]]></a>"), "begin[a] tagEnd text[ ]]] text[>] close[a] ");
    EXPECT_EQ(toldOf("<a>]]]></a>"), "begin[a] tagEnd text[]]]] text[>] close[a] ");
    EXPECT_EQ(toldOf("<a>a]]>]]></a>"), "begin[a] tagEnd text[a]]] text[>]]] text[>] close[a] ");
    EXPECT_EQ(toldOf("<a>]] > ]x></a>"), "begin[a] tagEnd text[]] > ]x>] close[a] ");
    EXPECT_EQ(toldOf("<a>x]]"), "begin[a] tagEnd text[x]]] Syntax error.");
    EXPECT_EQ(toldOf("<a>x]"), "begin[a] tagEnd text[x]] Syntax error.");
}

TEST(XmlParser, ACdataEndAtTheStartOfATokenIsASyntaxError)
{
    EXPECT_EQ(toldOf("<a>]]></a>"), "begin[a] tagEnd Syntax error.");
    EXPECT_EQ(toldOf("<a><b/>]]></a>"), "begin[a] tagEnd begin[b] emptyEnd Syntax error.");
    EXPECT_EQ(toldOf("<a>&amp;]]></a>"), "begin[a] tagEnd text[&] Syntax error.");
}

TEST(XmlParser, AReferenceThatBeginsLikeOneAndEndsLikeAnotherIsALexicalError)
{
    for (char const *reference : {"&lgt;", "&gquot;", "&qxmp;", "&qxpos;", "&amx65;", "&amxx41;",
                                  "&apx65;", "&llt;", "&l#65;"}) {
        EXPECT_EQ(toldOf("<a>" + std::string(reference)), "begin[a] tagEnd Lexical error.");
        EXPECT_EQ(toldOf("<a b='" + std::string(reference) + "'/>"), "begin[a] Lexical error.");
    }
}

TEST(XmlParser, NumericReferencesReachTo255)
{
    EXPECT_EQ(toldOf("<a>&#300;</a>"), "begin[a] tagEnd Lexical error.");
    EXPECT_EQ(toldOf("<a>&#65;</a>"), "begin[a] tagEnd text[A] close[a] ");
    EXPECT_EQ(toldOf("<a>&#255;</a>"), "begin[a] tagEnd text[\xFF] close[a] ");
    EXPECT_EQ(toldOf("<a>&#xfF;</a>"), "begin[a] tagEnd text[\xFF] close[a] ");
    EXPECT_EQ(toldOf("<a>&#256;</a>"), "begin[a] tagEnd Lexical error.");
    EXPECT_EQ(toldOf("<a>&#x100;</a>"), "begin[a] tagEnd Lexical error.");
    EXPECT_EQ(toldOf("<a b='&#256;'/>"), "begin[a] Lexical error.");
    std::string const zeros(100000, '0');
    EXPECT_EQ(toldOf("<a>&#" + zeros + "65;</a>"), "begin[a] tagEnd text[A] close[a] ");
    EXPECT_EQ(toldOf("<a>&#4294967361;</a>"), "begin[a] tagEnd Lexical error.") << "2^32 + 65";
    EXPECT_EQ(toldOf("<a>&#x10000000000000041;</a>"), "begin[a] tagEnd Lexical error.");
}

TEST(XmlParser, AnInvalidReferenceIsALexicalError)
{
    for (char const *text :
         {"&",    "&;",     "& ",    "&lt",     "&lt ;",   "&Lt;",  "&l;",   "&gt",    "&amp",
          "&am;", "&ap;",   "&apo;", "&ampos;", "&amamp;", "&a;",   "&quo;", "&nbsp;", "&#;",
          "&#x;", "&#X41;", "&#65",  "&#x41",   "&#6a;",   "&#xg;", "&#-1;", "&#;65",  "&&amp;",
          "&#@;", "&#x4@;", "&#x`;", "&#xG;",   "&#/;",    "&#:;"}) {
        EXPECT_EQ(toldOf("<a>" + std::string(text)), "begin[a] tagEnd Lexical error.") << text;
        EXPECT_EQ(toldOf("<a>" + std::string(text) + "</a>"), "begin[a] tagEnd Lexical error.")
            << text;
        EXPECT_EQ(toldOf("<a b='" + std::string(text) + "'/>"), "begin[a] Lexical error.") << text;
    }
}

TEST(XmlParser, AnOpeningBracketInAValueIsALexicalErrorBeforeAnyText)
{
    for (char const *text : {"<", "x<y", "<amp;", "x<lt;y", "<#65;", "&amp;<amp;"})
        EXPECT_EQ(toldOf("<a b='" + std::string(text) + "'/>"), "begin[a] Lexical error.") << text;
}

// CDATA sections

TEST(XmlParser, ACdataSectionIsPassedUnchanged)
{
    EXPECT_EQ(toldOf("<a><![CDATA[<b>]]></a>"), "begin[a] tagEnd cdata[<b>] close[a] ");
    EXPECT_EQ(toldOf("<a><![CDATA[]]></a>"), "begin[a] tagEnd cdata[] close[a] ");
    EXPECT_EQ(toldOf("<a><![CDATA[ &amp; <!-- x --> ]] > ]>]]></a>"),
              "begin[a] tagEnd cdata[ &amp; <!-- x --> ]] > ]>] close[a] ");
    EXPECT_EQ(toldOf("<a><![CDATA[]]]>x<![CDATA[]]]]></a>"),
              "begin[a] tagEnd cdata[]] text[x] cdata[]]] close[a] ");
    EXPECT_EQ(toldOf("<a><![CDATA[x]]>></a>"), "begin[a] tagEnd cdata[x] text[>] close[a] ");
    EXPECT_EQ(toldOf(std::string("<a><![CDATA[\0]]></a>", 20)),
              std::string("begin[a] tagEnd cdata[\0] close[a] ", 34));
}

TEST(XmlParser, ACdataSectionWithoutAnEndFails)
{
    EXPECT_EQ(toldOf("<a><![CDATA["), "begin[a] tagEnd Syntax error.");
    for (char const *rest : {"x", "]", "]]", "]]x", "]] >", "x]]</a>"})
        EXPECT_EQ(toldOf("<a><![CDATA[" + std::string(rest)), "begin[a] tagEnd Lexical error.")
            << rest;
    EXPECT_EQ(toldOf("<a><![CDATA"), "begin[a] tagEnd Lexical error.");
    EXPECT_EQ(toldOf("<a><![cdata[x]]></a>"), "begin[a] tagEnd Lexical error.");
}

// The end of the input

TEST(XmlParser, TheEndOfTheInputInsideATagAValueOrADeclarationIsASyntaxError)
{
    EXPECT_EQ(toldOf("<"), SYNTAX);
    EXPECT_EQ(toldOf("<a"), "begin[a] Syntax error.");
    EXPECT_EQ(toldOf("<a "), "begin[a] Syntax error.");
    EXPECT_EQ(toldOf("<a b"), "begin[a] Syntax error.");
    EXPECT_EQ(toldOf("<a b="), "begin[a] Syntax error.");
    EXPECT_EQ(toldOf("<a b='"), "begin[a] Syntax error.");
    EXPECT_EQ(toldOf("<a b='x"), "begin[a] Syntax error.");
    EXPECT_EQ(toldOf("<a b='x&amp;"), "begin[a] Syntax error.");
    EXPECT_EQ(toldOf("<a b='x'"), "begin[a] b=[x] Syntax error.");
    EXPECT_EQ(toldOf("<a>"), "begin[a] tagEnd Syntax error.");
    EXPECT_EQ(toldOf("<a>x"), "begin[a] tagEnd text[x] Syntax error.");
    EXPECT_EQ(toldOf("<a></"), "begin[a] tagEnd Syntax error.");
    EXPECT_EQ(toldOf("<a></a"), "begin[a] tagEnd Syntax error.");
    EXPECT_EQ(toldOf("<?xml version="), SYNTAX);
    EXPECT_EQ(toldOf("<?xml version='1.0'"), SYNTAX);
    EXPECT_EQ(toldOf("<!DOCTYPE "), SYNTAX);
    EXPECT_EQ(toldOf("<!DOCTYPE a"), SYNTAX);
}

/// Hands a text out in pieces, and then fails.
class BrokenBuffer : public std::streambuf
{
public:
    explicit BrokenBuffer(std::string text) : _text(std::move(text)) {}

protected:
    int_type underflow() override
    {
        if (_position == _text.size())
            throw std::runtime_error("broken");
        setg(&_text[_position], &_text[_position], &_text[_position] + 1);
        ++_position;
        return traits_type::to_int_type(*gptr());
    }

private:
    std::string _text;
    std::size_t _position = 0;
};

TEST(XmlParser, AFailureToReadCountsAsTheEndOfTheInput)
{
    BrokenBuffer buffer("<a>x");
    std::istream input(&buffer);
    EXPECT_EQ(toldOf(input), SYNTAX) << "what a failed read had got is lost";
    std::istringstream bad("<a/>");
    bad.setstate(std::ios_base::badbit);
    EXPECT_EQ(toldOf(bad), SYNTAX);
}

TEST(XmlParser, AStreamThatThrowsAtItsEndIsReadToItsEnd)
{
    std::istringstream input("<a/>");
    input.exceptions(std::ios_base::badbit | std::ios_base::failbit | std::ios_base::eofbit);
    EXPECT_EQ(toldOf(input), "begin[a] emptyEnd ");
}

// Blocks of the input

/// A document with all kinds of tokens, and the calls of the parser for it.
std::string const allTokens =
    "<root first='1' second = \"two&lt;\" > text <!-- comment - -->x]]>y&amp;&#65;"
    "<![CDATA[ a ]] b ]>]]]]>\n\t <empty-element  attribute='value' /></root >\n<!-- end -->\n";
std::string const allTold =
    "begin[root] first=[1] second=[two<] tagEnd text[ text ] text[x]]] text[>y] text[&] text[A] "
    "cdata[ a ]] b ]>]]] begin[empty-element] attribute=[value] emptyEnd close[root] ";

TEST(XmlParser, ATokenMayLieAcrossTheBlocksOfTheInput)
{
    std::string const start = "<?xml version = '1.0' ?> \n<!DOCTYPE  root >";
    EXPECT_EQ(toldOf(start + allTokens), "declaration[1.0] type[root] " + allTold);
    std::size_t const length = start.size() + allTokens.size();
    for (std::size_t before = 0; before <= length + 1; ++before) {
        std::size_t const filling = 2 * XmlInput::BLOCK - before - 7;
        std::string const text = "<!--" + std::string(filling, 'x') + "-->" + start + allTokens;
        ASSERT_EQ(toldOf(text), "declaration[1.0] type[root] " + allTold) << before;
    }
}

TEST(XmlParser, TokensMayBeLongerThanManyBlocks)
{
    for (std::size_t const size : {XmlInput::BLOCK - 1, XmlInput::BLOCK, XmlInput::BLOCK + 1,
                                   3 * XmlInput::BLOCK, 20 * XmlInput::BLOCK + 17}) {
        std::string const bytes(size, 'x');
        std::string const white(size, ' ');
        EXPECT_EQ(toldOf("<" + bytes + white + bytes + white + "=" + white + "'" + bytes + "' b='" +
                         bytes + "&amp;" + bytes + "'" + white + ">" + white + bytes + "]]>" +
                         bytes + white + "<!--" + bytes + "-->" + white + "<![CDATA[" + bytes +
                         "]]></" + bytes + white + ">" + white),
                  "begin[" + bytes + "] " + bytes + "=[" + bytes + "] b=[" + bytes + "&" + bytes +
                      "] tagEnd text[" + white + bytes + "]]] text[>" + bytes + white + "] cdata[" +
                      bytes + "] close[" + bytes + "] ")
            << size;
    }
}

TEST(XmlParser, AnInputMayEndWithABlock)
{
    for (std::size_t const blocks : {1, 2, 3}) {
        std::string text = "<a>";
        text += std::string(blocks * XmlInput::BLOCK - 7, 'x') + "</a>";
        EXPECT_EQ(toldOf(text),
                  "begin[a] tagEnd text[" + text.substr(3, text.size() - 7) + "] close[a] ");
        EXPECT_EQ(toldOf(text.substr(0, text.size() - 4) + "</a "),
                  "begin[a] tagEnd text[" + text.substr(3, text.size() - 7) + "] Syntax error.");
    }
}

TEST(XmlParser, EveryPieceOfADocumentFromItsStartFails)
{
    std::string const text = "<?xml version='1.0'?><!DOCTYPE r>" + allTokens;
    std::size_t const end = text.find("</root >") + 8;
    for (std::size_t length = 0; length < end; ++length) {
        std::string const told = toldOf(text.substr(0, length));
        EXPECT_TRUE(told.ends_with(SYNTAX) || told.ends_with(LEXICAL)) << length << ": " << told;
    }
    for (std::size_t length : {end, end + 1})
        EXPECT_EQ(toldOf(text.substr(0, length)), "declaration[1.0] type[r] " + allTold);
}

/// A stream that reports how much of it has been read.
class CountingBuffer : public std::stringbuf
{
public:
    using std::stringbuf::stringbuf;
    std::streamsize largest = 0;

protected:
    std::streamsize xsgetn(char *target, std::streamsize count) override
    {
        largest = std::max(largest, count);
        return std::stringbuf::xsgetn(target, count);
    }
};

TEST(XmlParser, ReadsInBlocksOf16384Bytes)
{
    CountingBuffer buffer("<a>" + std::string(100000, 'x') + "</a>");
    std::istream input(&buffer);
    Recorder recorder;
    XmlParser::parse(recorder, input);
    EXPECT_EQ(buffer.largest, 16384);
}

// Nesting, and the state of the parser

TEST(XmlParser, ElementsNestTwoThousandDeep)
{
    struct Depth : XmlParserProtocol
    {
        void notifyBeginElement(LiString const &) override { largest = std::max(largest, ++now); }
        void notifyClosingElement(LiString const &) override { --now; }
        int now = 0;
        int largest = 0;
    };
    auto const parse = [](int levels, Depth &depth) {
        std::istringstream input(nested(levels));
        XmlParser::parse(depth, input);
    };
    for (int const levels : {1000, 2000}) {
        Depth depth;
        parse(levels, depth);
        EXPECT_EQ(levels, depth.largest);
        EXPECT_EQ(depth.now, 0);
    }
    for (int const levels : {2001, 12000}) {
        Depth depth;
        EXPECT_EQ(reasonOf<XmlEx::ExSyntaxError>([&] { parse(levels, depth); }), SYNTAX);
        EXPECT_EQ(depth.largest, 2000);
    }
}

TEST(XmlParser, TheBoundIsOnDepthAndNotOnTheNumberOfElements)
{
    std::string text = "<a>";
    for (int i = 0; i < 20000; ++i)
        text += "<b><c/></b>";
    XmlDocument const document((text + "</a>").c_str());
    EXPECT_EQ(document.getElementsByTagName("*").getCardinality(), 40001u);
}

TEST(XmlParser, AProtocolMayParseAnotherStream)
{
    struct Nesting : Recorder
    {
        void notifyBeginElement(LiString const &name) override
        {
            Recorder::notifyBeginElement(name);
            if (depth == 0)
                return;
            --depth;
            std::istringstream inner(text);
            XmlParser::parse(*this, inner);
            EXPECT_EQ(name, "a") << "the name is still there";
            ++depth;
        }
        void notifyTextData(LiString const &data) override
        {
            std::istringstream inner("<b c='d'>e</b");
            Recorder other;
            EXPECT_THROW(XmlParser::parse(other, inner), XmlEx::ExSyntaxError);
            Recorder::notifyTextData(data);
        }
        std::string text;
        int depth = 0;
    };
    Nesting nesting;
    nesting.text = "<a b='1'>x&lt;</a>";
    nesting.depth = 2;
    std::istringstream input(nesting.text);
    XmlParser::parse(nesting, input);
    std::string const rest = "b=[1] tagEnd text[x] text[<] close[a] ";
    EXPECT_EQ(nesting.told, "begin[a] begin[a] begin[a] " + rest + rest + rest);
}

TEST(XmlParser, ThreadsParseAtOnce)
{
    constexpr int THREADS = 4;
    Barrier start(THREADS);
    std::atomic<int> right = 0;
    std::vector<std::jthread> threads;
    for (int i = 0; i < THREADS; ++i)
        threads.emplace_back([&, i] {
            std::string const name = "name" + std::to_string(i);
            std::string const text = "<" + name + ">" + allTokens + "</" + name + ">";
            std::string const told =
                "begin[" + name + "] tagEnd " + allTold + "close[" + name + "] ";
            start.arrive_and_wait();
            for (int turn = 0; turn < 50; ++turn)
                right += toldOf(text) == told;
        });
    threads.clear();
    EXPECT_EQ(THREADS * 50, right);
}

TEST(XmlParser, ThreadsThatAreInTheMidstOfATextDoNotMeet)
{
    // Each thread stops in its first call until the other one is in its own.
    struct Meeting : Recorder
    {
        explicit Meeting(Barrier &met) : both(met) {}
        void notifyBeginElement(LiString const &name) override
        {
            Recorder::notifyBeginElement(name);
            both.arrive_and_wait();
        }
        Barrier &both;
    };
    Barrier met(2);
    Meeting first(met), second(met);
    std::jthread const other([&] {
        std::istringstream input("<x y='z'>t</x>");
        XmlParser::parse(second, input);
    });
    std::istringstream input("<a>b</a>");
    XmlParser::parse(first, input);
    const_cast<std::jthread &>(other).join();
    EXPECT_EQ(first.told, "begin[a] tagEnd text[b] close[a] ");
    EXPECT_EQ(second.told, "begin[x] y=[z] tagEnd text[t] close[x] ");
}

TEST(XmlParser, ThrowsWhatAProtocolThrows)
{
    struct Refusing : Recorder
    {
        void notifyTextData(LiString const &) override { throw 7; }
    };
    Refusing refusing;
    std::istringstream input("<a><b>x</b></a>");
    EXPECT_THROW(XmlParser::parse(refusing, input), int);
    EXPECT_EQ(refusing.told, "begin[a] tagEnd begin[b] tagEnd ");
    EXPECT_EQ(toldOf("<a/>"), "begin[a] emptyEnd ") << "nothing is left behind";
}

TEST(XmlParser, ACallIsMadeBeforeTheTextBehindItIsRead)
{
    EXPECT_EQ(toldOf("<?xml version='1.0'?>&"), "declaration[1.0] Lexical error.");
    EXPECT_EQ(toldOf("<!DOCTYPE a>&"), "type[a] Lexical error.");
    EXPECT_EQ(toldOf("<a&"), "begin[a] Lexical error.");
    EXPECT_EQ(toldOf("<a b='1'&"), "begin[a] b=[1] Lexical error.");
    EXPECT_EQ(toldOf("<a>&"), "begin[a] tagEnd Lexical error.");
    EXPECT_EQ(toldOf("<a>x&"), "begin[a] tagEnd text[x] Lexical error.");
    EXPECT_EQ(toldOf("<a><![CDATA[x]]>&"), "begin[a] tagEnd cdata[x] Lexical error.");
    EXPECT_EQ(toldOf("<a></a>&"), "begin[a] tagEnd close[a] Lexical error.");
    EXPECT_EQ(toldOf("<a/>&"), "begin[a] emptyEnd Lexical error.");
}

TEST(XmlParser, AProtocolThatOverridesNothingReadsEverything)
{
    struct Silent : XmlParserProtocol
    {
    } silent;
    std::istringstream input("<?xml version='2.0'?><!DOCTYPE r>" + allTokens);
    XmlParser::parse(silent, input);
    EXPECT_EQ(std::istringstream::traits_type::eof(), input.peek());
}

TEST(XmlParser, StringsThatAHandlerKeepsStayAsTheyAre)
{
    struct Keeping : XmlParserProtocol
    {
        void notifyBeginElement(LiString const &name) override { names.push_back(name); }
        void notifyTextData(LiString const &data) override { texts.push_back(data); }
        std::vector<LiString> names, texts;
    };
    Keeping keeping;
    std::string text = "<r>";
    for (int i = 0; i < 1000; ++i)
        text += "<n" + std::to_string(i) + ">" + std::to_string(i) + "</n>";
    std::istringstream input(text + "</r>");
    XmlParser::parse(keeping, input);
    for (int i = 0; i < 1000; ++i) {
        auto const at = static_cast<std::size_t>(i);
        ASSERT_EQ(bytesOf(keeping.names[at + 1]), "n" + std::to_string(i));
        ASSERT_EQ(std::to_string(i), bytesOf(keeping.texts[at]));
    }
}

} // namespace
} // namespace ZvTest
