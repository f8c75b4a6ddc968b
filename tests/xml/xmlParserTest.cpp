#include "meeting.h"
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
    EXPECT_EQ("begin[a] emptyEnd ", toldOf("<a/>"));
    EXPECT_EQ("declaration[1.0] begin[a] emptyEnd ", toldOf("<?xml version=\"1.0\"?><a/>"));
    EXPECT_EQ("declaration[1.0] begin[a] emptyEnd ", toldOf("<?xml version='1.0'?><a/>"));
    EXPECT_EQ("declaration[1.0] begin[a] emptyEnd ",
              toldOf("<?xml \t\r\nversion \n=\t '1.0' \n?>\n<a/>"));
    EXPECT_EQ("declaration[-.09:AZ_az] begin[a] emptyEnd ",
              toldOf("<?xml version='-.09:AZ_az'?><a/>"));
}

TEST(XmlParser, ADeclarationHasAVersionAndNothingElse)
{
    EXPECT_EQ(SYNTAX, toldOf("<?xml version=\"1.0\" encoding=\"UTF-8\"?><a/>"));
    EXPECT_EQ(SYNTAX, toldOf("<?xml version=\"1.0\" standalone='yes'?><a/>"));
    EXPECT_EQ(SYNTAX, toldOf("<?xml version='1.0' '1.0'?><a/>"));
    EXPECT_EQ(SYNTAX, toldOf("<?xml version='1.0''1.0'?><a/>"));
    EXPECT_EQ(SYNTAX, toldOf("<?xml version=?><a/>"));
    EXPECT_EQ(SYNTAX, toldOf("<?xml version= ?><a/>"));
    EXPECT_EQ(SYNTAX, toldOf("<?xml version='1.0' ?x><a/>"));
    EXPECT_EQ(LEXICAL, toldOf("<?xml version='1.0'?x><a/>"));
    EXPECT_EQ(LEXICAL, toldOf("<?xml version='1.0'><a/>"));
    EXPECT_EQ(LEXICAL, toldOf("<?xml version=1.0?><a/>"));
}

TEST(XmlParser, AVersionIsOneOrMoreOfItsBytesBetweenEqualQuotes)
{
    EXPECT_EQ(LEXICAL, toldOf("<?xml version=''?><a/>"));
    EXPECT_EQ(LEXICAL, toldOf("<?xml version='1 0'?><a/>"));
    EXPECT_EQ(LEXICAL, toldOf("<?xml version='1.0\"?><a/>"));
    EXPECT_EQ(LEXICAL, toldOf("<?xml version='1.0"));
    EXPECT_EQ(LEXICAL, toldOf("<?xml version='&#49;'?><a/>"));
}

TEST(XmlParser, OnlyCommentsStandBeforeTheDeclaration)
{
    EXPECT_EQ("declaration[1.0] begin[a] emptyEnd ", toldOf("<!-- x --><?xml version='1.0'?><a/>"));
    EXPECT_EQ(SYNTAX, toldOf(" <?xml version='1.0'?><a/>"));
    EXPECT_EQ("type[a] Syntax error.", toldOf("<!DOCTYPE a><?xml version='1.0'?><a/>"));
    EXPECT_EQ("declaration[1.0] Syntax error.",
              toldOf("<?xml version='1.0'?><?xml version='1.0'?><a/>"));
    EXPECT_EQ("begin[a] tagEnd Syntax error.", toldOf("<a><?xml version='1.0'?></a>"));
    EXPECT_EQ("begin[a] emptyEnd Syntax error.", toldOf("<a/><?xml version='1.0'?>"));
}

TEST(XmlParser, AProcessingInstructionIsALexicalError)
{
    EXPECT_EQ(LEXICAL, toldOf("<?php x?><a/>"));
    EXPECT_EQ(LEXICAL, toldOf("<?xmlversion='1.0'?><a/>"));
    EXPECT_EQ(LEXICAL, toldOf("<?XML version='1.0'?><a/>"));
    EXPECT_EQ(LEXICAL, toldOf("<?xml encoding='1.0'?><a/>"));
    EXPECT_EQ(LEXICAL, toldOf("<?xml"));
    EXPECT_EQ(LEXICAL, toldOf("<?xml version"));
    EXPECT_EQ(LEXICAL, toldOf("<?"));
    EXPECT_EQ("begin[a] tagEnd Lexical error.", toldOf("<a><?php x?></a>"));
    EXPECT_EQ("begin[a] emptyEnd Syntax error.", toldOf("<a/><?php x?>"));
}

TEST(XmlParser, ADoctypeHasANameAndNothingElse)
{
    EXPECT_EQ("type[a] begin[a] emptyEnd ", toldOf("<!DOCTYPE a><a/>"));
    EXPECT_EQ("type[b] begin[a] emptyEnd ", toldOf("<!DOCTYPE \t\r\nb \n>\n<a/>"));
    EXPECT_EQ(SYNTAX, toldOf("<!DOCTYPE a [ ]>"));
    EXPECT_EQ(SYNTAX, toldOf("<!DOCTYPE a [ ]><a/>"));
    EXPECT_EQ(SYNTAX, toldOf("<!DOCTYPE a SYSTEM 'x'><a/>"));
    EXPECT_EQ(SYNTAX, toldOf("<!DOCTYPE a/><a/>"));
    EXPECT_EQ(SYNTAX, toldOf("<!DOCTYPE ><a/>"));
    EXPECT_EQ(SYNTAX, toldOf("<!DOCTYPE 'a'><a/>"));
    EXPECT_EQ(LEXICAL, toldOf("<!DOCTYPE a[]><a/>"));
    EXPECT_EQ(LEXICAL, toldOf("<!DOCTYPEa><a/>"));
    EXPECT_EQ(LEXICAL, toldOf("<!DOCTYPE><a/>"));
    EXPECT_EQ(LEXICAL, toldOf("<!doctype a><a/>"));
    EXPECT_EQ("type[a] Syntax error.", toldOf("<!DOCTYPE a><!DOCTYPE a><a/>"));
    EXPECT_EQ("begin[a] tagEnd Syntax error.", toldOf("<a><!DOCTYPE a></a>"));
    EXPECT_EQ("begin[a] emptyEnd Syntax error.", toldOf("<a/><!DOCTYPE a>"));
}

TEST(XmlParser, WhiteSpaceAndCommentsStandBetweenThePartsOfADocument)
{
    EXPECT_EQ(
        "declaration[1.0] type[a] begin[a] emptyEnd ",
        toldOf("<?xml version='1.0'?> <!-- x -->\n<!-- y -->\t<!DOCTYPE a>\r\n<!-- z --> <a/> "
               "<!-- -->\n"));
    EXPECT_EQ("begin[a] emptyEnd ", toldOf(" \t\r\n<a/>"));
    EXPECT_EQ(SYNTAX, toldOf("\v<a/>"));
    EXPECT_EQ(SYNTAX, toldOf("\f<a/>"));
}

TEST(XmlParser, NothingElseStandsOutsideTheRoot)
{
    EXPECT_EQ(SYNTAX, toldOf(""));
    EXPECT_EQ(SYNTAX, toldOf(" \n"));
    EXPECT_EQ(SYNTAX, toldOf("<!-- x -->"));
    EXPECT_EQ("declaration[1.0] Syntax error.", toldOf("<?xml version='1.0'?>"));
    EXPECT_EQ("type[a] Syntax error.", toldOf("<!DOCTYPE a>"));
    EXPECT_EQ(SYNTAX, toldOf("x<a/>"));
    EXPECT_EQ(SYNTAX, toldOf("&amp;<a/>"));
    EXPECT_EQ(LEXICAL, toldOf("&x;<a/>"));
    EXPECT_EQ(SYNTAX, toldOf("</a>"));
    EXPECT_EQ(SYNTAX, toldOf("]]><a/>"));
    EXPECT_EQ(SYNTAX, toldOf("<![CDATA[x]]><a/>"));
    EXPECT_EQ("begin[a] emptyEnd Syntax error.", toldOf("<a/>x"));
    EXPECT_EQ("begin[a] emptyEnd Syntax error.", toldOf("<a/> &amp;"));
    EXPECT_EQ("begin[a] emptyEnd Lexical error.", toldOf("<a/> &"));
    EXPECT_EQ("begin[a] emptyEnd Syntax error.", toldOf("<a/></a>"));
    EXPECT_EQ("begin[a] emptyEnd Syntax error.", toldOf("<a/><![CDATA[x]]>"));
    EXPECT_EQ(SYNTAX, toldOf("\xEF\xBB\xBF<a/>")) << "a byte order mark is text";
}

TEST(XmlParser, ADocumentHasOneRoot)
{
    EXPECT_EQ("begin[a] emptyEnd Syntax error.", toldOf("<a/><b/>"));
    EXPECT_EQ("begin[a] tagEnd close[a] Syntax error.", toldOf("<a></a> <a></a>"));
}

// Comments

TEST(XmlParser, CommentsAreSkipped)
{
    EXPECT_EQ("begin[a] emptyEnd ", toldOf("<!-- a - b --><a/>"));
    EXPECT_EQ("begin[a] emptyEnd ", toldOf("<!----><a/>"));
    EXPECT_EQ("begin[a] emptyEnd ", toldOf("<!-- <b> & ]]> > \x01 \xFF --><a/>"));
    EXPECT_EQ("begin[a] tagEnd close[a] ", toldOf("<a><!-- x --><!-- y --></a>"));
    EXPECT_EQ("begin[a] emptyEnd ", toldOf(std::string("<!-- \0 --><a/>", 14)));
}

TEST(XmlParser, TheFirstTwoDashesInACommentBeginItsEnd)
{
    for (char const *text : {"<!-- a -- b --><a/>", "<!---><a/>", "<!-- a ---><a/>", "<!-- a",
                             "<!-- a -", "<!-- a --", "<!--", "<!-", "<!", "<!- a --><a/>"})
        EXPECT_EQ(LEXICAL, toldOf(text)) << text;
    EXPECT_EQ("begin[a] tagEnd Lexical error.", toldOf("<a><!-- a -- b --></a>"));
    EXPECT_EQ("begin[a] emptyEnd Syntax error.", toldOf("<a/><!-- a -- b -->"));
}

TEST(XmlParser, ACommentSplitsAText)
{
    EXPECT_EQ("begin[a] tagEnd text[x] text[y] close[a] ", toldOf("<a>x<!-- c -->y</a>"));
    EXPECT_EQ("begin[a] tagEnd text[x] text[ y] close[a] ", toldOf("<a>x<!-- c --> y</a>"));
    EXPECT_EQ("begin[a] tagEnd text[x ] close[a] ", toldOf("<a>x <!-- c --> </a>"));
}

// Tags

TEST(XmlParser, AStartTagIsToldWithItsAttributesInOrder)
{
    EXPECT_EQ("begin[a] c=[1] b=[2] c=[3] tagEnd close[a] ", toldOf("<a c='1' b=\"2\" c='3'></a>"));
    EXPECT_EQ("begin[a] b=[] emptyEnd ", toldOf("<a b=''/>"));
    EXPECT_EQ("begin[a] b=[1] emptyEnd ", toldOf("<a b = \"1\" />"));
    EXPECT_EQ("begin[a] b=[1] tagEnd close[a] ", toldOf("<a\n\tb\r=\n'1'\n></a \n>"));
}

TEST(XmlParser, WhiteSpaceSeparatesAttributes)
{
    EXPECT_EQ("begin[a] b=[1] Syntax error.", toldOf("<a b=\"1\"c=\"2\"/>"));
    EXPECT_EQ("begin[a] b=[1] Syntax error.", toldOf("<a b='1' 'c'/>"));
    EXPECT_EQ("begin[a] b=[1] Syntax error.", toldOf("<a b='1''c'/>"));
}

TEST(XmlParser, NoWhiteSpaceStandsBeforeTheNameOfATag)
{
    EXPECT_EQ(SYNTAX, toldOf("< a/>"));
    EXPECT_EQ("begin[a] tagEnd Syntax error.", toldOf("<a></ a>"));
}

TEST(XmlParser, AnAttributeIsANameAnEqualSignAndAValue)
{
    EXPECT_EQ("begin[a] Syntax error.", toldOf("<a b/>"));
    EXPECT_EQ("begin[a] Syntax error.", toldOf("<a b c='1'/>"));
    EXPECT_EQ("begin[a] Syntax error.", toldOf("<a b=/>"));
    EXPECT_EQ("begin[a] Syntax error.", toldOf("<a b=c/>"));
    EXPECT_EQ("begin[a] Syntax error.", toldOf("<a b=='1'/>"));
    EXPECT_EQ("begin[a] Syntax error.", toldOf("<a b'1'/>"));
    EXPECT_EQ("begin[a] Syntax error.", toldOf("<a ='1'/>"));
    EXPECT_EQ("begin[a] Syntax error.", toldOf("<a='1'/>"));
    EXPECT_EQ("begin[a] Syntax error.", toldOf("<a 'b'/>"));
    EXPECT_EQ("begin[a] Lexical error.", toldOf("<a b=1/>"));
}

TEST(XmlParser, AByteThatHasNoPlaceInATagIsALexicalError)
{
    for (char const *rest :
         {"<", "&", "!", "?", "]", "-", ".", "1", "#", "/", "/ >", "\x01", "\xB7"})
        EXPECT_EQ("begin[a] Lexical error.", toldOf("<a " + std::string(rest))) << rest;
    EXPECT_EQ("begin[a] Lexical error.", toldOf(std::string("<a \0/>", 6)));
    for (char const *name : {"1b", "-b", "\xB7", "\xD7", "/"})
        EXPECT_EQ("begin[a] c=[2] Lexical error.",
                  toldOf("<a c=\"2\" " + std::string(name) + "=\"1\"/>"))
            << name;
    EXPECT_EQ("begin[a] Lexical error.", toldOf("<a/"));
    EXPECT_EQ("begin[a] b=[1] Lexical error.", toldOf("<a b='1' /b='2'/>"));
    EXPECT_EQ(LEXICAL, toldOf("<1/>"));
    EXPECT_EQ(LEXICAL, toldOf("<<a/>"));
}

TEST(XmlParser, ASlashInAClosingTagIsALexicalErrorAndSpaceBeforeItASyntaxError)
{
    EXPECT_EQ("begin[a] tagEnd Lexical error.", toldOf("<a></a/b>"));
    EXPECT_EQ("begin[a] tagEnd Syntax error.", toldOf("<a></a /b>"));
    EXPECT_EQ("begin[a] tagEnd Syntax error.", toldOf("<a></a/>"));
}

TEST(XmlParser, ATokenOutOfPlaceInATagIsASyntaxError)
{
    EXPECT_EQ(SYNTAX, toldOf("<>"));
    EXPECT_EQ(SYNTAX, toldOf("</>"));
    EXPECT_EQ(SYNTAX, toldOf("<'a'>"));
    EXPECT_EQ(LEXICAL, toldOf("<'&'>"))
        << "the value is read before it is found to be out of place";
    EXPECT_EQ(SYNTAX, toldOf("< />"));
    EXPECT_EQ("begin[a] tagEnd Syntax error.", toldOf("<a></a/>"));
    EXPECT_EQ("begin[a] tagEnd Syntax error.", toldOf("<a></a b='1'>"));
    EXPECT_EQ("begin[a] tagEnd Syntax error.", toldOf("<a></>"));
}

TEST(XmlParser, NamesHaveTheBytesOfLatin1Letters)
{
    std::string const start = "_:AZaz\xC0\xD6\xD8\xF6\xF8\xFF";
    for (char const c : start)
        EXPECT_EQ("begin[" + std::string(1, c) + "] emptyEnd ",
                  toldOf("<" + std::string(1, c) + "/>"));
    std::string const all = "a" + start + "09-.\xB7";
    EXPECT_EQ("begin[" + all + "] " + all + "=[1] emptyEnd ",
              toldOf("<" + all + " " + all + "='1'/>"));
    for (char const c : std::string("09-.\xB7\xD7\xF7@[`{\xBF"))
        EXPECT_EQ(LEXICAL, toldOf("<" + std::string(1, c) + "/>")) << c;
    for (char const c : std::string("\xD7\xF7@[`{,;\xB6\xB8"))
        EXPECT_EQ("begin[a] Lexical error.", toldOf("<a" + std::string(1, c) + "/>")) << c;
}

TEST(XmlParser, NamesOfStartAndEndTagsAreNotCompared)
{
    EXPECT_EQ("begin[a] tagEnd begin[b] tagEnd close[c] close[d] ", toldOf("<a><b></c></d>"));
}

TEST(XmlParser, ManyNamesAreToldAsTheyStand)
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
    EXPECT_EQ(told + "close[r] ", toldOf(text + "</r>"));
}

// Values

TEST(XmlParser, AQuoteInAValueIsWrittenAsAReference)
{
    EXPECT_EQ("begin[a] Lexical error.", toldOf("<a b='x\"y'/>"));
    EXPECT_EQ("begin[a] Lexical error.", toldOf("<a b=\"x'y\"/>"));
    EXPECT_EQ("begin[a] b=[x\"y] emptyEnd ", toldOf("<a b='x&quot;y'/>"));
    EXPECT_EQ("begin[a] b=[x'y] emptyEnd ", toldOf("<a b=\"x&apos;y\"/>"));
}

TEST(XmlParser, ReferencesInAValueAreResolvedIntoOneValue)
{
    EXPECT_EQ("begin[a] b=[<>&'\"AzA] emptyEnd ",
              toldOf("<a b='&lt;&gt;&amp;&apos;&quot;&#65;&#x7a;&#x00041;'/>"));
    EXPECT_EQ("begin[a] b=[x&y<z] c=[&] d=[w] emptyEnd ",
              toldOf("<a b='x&amp;y&lt;z' c='&amp;' d='w'/>"));
    EXPECT_EQ("begin[a] b=[\xFF\xAb] emptyEnd ", toldOf("<a b='&#255;&#xaB;'/>"));
}

TEST(XmlParser, AValueHoldsAnyOtherByte)
{
    EXPECT_EQ("begin[a] b=[ x\ty\r\nz=/]] \x01\xFF ] emptyEnd ",
              toldOf("<a b=' x\ty\r\nz=/]] \x01\xFF '/>"));
    EXPECT_EQ(std::string("begin[a] b=[x\0y\0] emptyEnd ", 27),
              toldOf(std::string("<a b='x\0y&#0;'/>", 16)));
    EXPECT_EQ("begin[a] Lexical error.", toldOf("<a b='<'/>"));
    EXPECT_EQ("begin[a] Lexical error.", toldOf("<a b='>'/>"));
    EXPECT_EQ("begin[a] Lexical error.", toldOf("<a b='&'/>"));
}

// Text and references

TEST(XmlParser, ATextWithReferencesComesInPieces)
{
    EXPECT_EQ("begin[a] tagEnd text[x] text[&] text[y] close[a] ", toldOf("<a>x&amp;y</a>"));
    EXPECT_EQ("begin[a] tagEnd text[<] text[>] text['] text[\"] text[A] text[B] close[a] ",
              toldOf("<a>&lt;&gt;&apos;&quot;&#65;&#x42;</a>"));
}

TEST(XmlParser, WhiteSpaceAloneIsNoText)
{
    EXPECT_EQ("begin[a] tagEnd close[a] ", toldOf("<a>  </a>"));
    EXPECT_EQ("begin[a] tagEnd text[ x ] close[a] ", toldOf("<a> x </a>"));
    EXPECT_EQ("begin[a] tagEnd begin[b] emptyEnd close[a] ", toldOf("<a>\n\t<b/>\r\n</a>"));
    EXPECT_EQ("begin[a] tagEnd text[&] close[a] ", toldOf("<a> &amp; </a>"));
    EXPECT_EQ("begin[a] tagEnd cdata[x] close[a] ", toldOf("<a> <![CDATA[x]]> </a>"));
    EXPECT_EQ("begin[a] tagEnd text[\v] text[ \f] close[a] ",
              toldOf("<a>\v<!---->\r<!----> \f</a>"));
}

TEST(XmlParser, ATextHoldsAnyByteButTwo)
{
    std::string const text(" \0x>]/'\"=?!-\x01\xFF ", 16);
    EXPECT_EQ("begin[a] tagEnd text[" + text + "] close[a] ", toldOf("<a>" + text + "</a>"));
    EXPECT_EQ(std::string("begin[a] tagEnd text[\0] close[a] ", 33), toldOf("<a>&#0;</a>"));
    EXPECT_EQ(std::string("begin[a] tagEnd text[\0] close[a] ", 33),
              toldOf(std::string("<a>\0</a>", 8)));
}

TEST(XmlParser, ATextIsCutBeforeTheBracketOfACdataEnd)
{
    EXPECT_EQ("begin[a] tagEnd text[a]]] text[>b] close[a] ", toldOf("<a>a]]>b</a>"));
    EXPECT_EQ("begin[a] tagEnd text[ ]]] text[>] close[a] ", toldOf("<a> ]]></a>"));
    EXPECT_EQ("begin[a] tagEnd text[]]]] text[>] close[a] ", toldOf("<a>]]]></a>"));
    EXPECT_EQ("begin[a] tagEnd text[a]]] text[>]]] text[>] close[a] ", toldOf("<a>a]]>]]></a>"));
    EXPECT_EQ("begin[a] tagEnd text[]] > ]x>] close[a] ", toldOf("<a>]] > ]x></a>"));
    EXPECT_EQ("begin[a] tagEnd text[x]]] Syntax error.", toldOf("<a>x]]"));
    EXPECT_EQ("begin[a] tagEnd text[x]] Syntax error.", toldOf("<a>x]"));
}

TEST(XmlParser, ACdataEndWhereATokenStartsIsASyntaxError)
{
    EXPECT_EQ("begin[a] tagEnd Syntax error.", toldOf("<a>]]></a>"));
    EXPECT_EQ("begin[a] tagEnd begin[b] emptyEnd Syntax error.", toldOf("<a><b/>]]></a>"));
    EXPECT_EQ("begin[a] tagEnd text[&] Syntax error.", toldOf("<a>&amp;]]></a>"));
}

TEST(XmlParser, AReferenceThatBeginsLikeOneAndEndsLikeAnotherIsALexicalError)
{
    for (char const *reference : {"&lgt;", "&gquot;", "&qxmp;", "&qxpos;", "&amx65;", "&amxx41;",
                                  "&apx65;", "&llt;", "&l#65;"}) {
        EXPECT_EQ("begin[a] tagEnd Lexical error.", toldOf("<a>" + std::string(reference)));
        EXPECT_EQ("begin[a] Lexical error.", toldOf("<a b='" + std::string(reference) + "'/>"));
    }
}

TEST(XmlParser, NumericReferencesReachTo255)
{
    EXPECT_EQ("begin[a] tagEnd Lexical error.", toldOf("<a>&#300;</a>"));
    EXPECT_EQ("begin[a] tagEnd text[A] close[a] ", toldOf("<a>&#65;</a>"));
    EXPECT_EQ("begin[a] tagEnd text[\xFF] close[a] ", toldOf("<a>&#255;</a>"));
    EXPECT_EQ("begin[a] tagEnd text[\xFF] close[a] ", toldOf("<a>&#xfF;</a>"));
    EXPECT_EQ("begin[a] tagEnd Lexical error.", toldOf("<a>&#256;</a>"));
    EXPECT_EQ("begin[a] tagEnd Lexical error.", toldOf("<a>&#x100;</a>"));
    EXPECT_EQ("begin[a] Lexical error.", toldOf("<a b='&#256;'/>"));
    std::string const zeros(100000, '0');
    EXPECT_EQ("begin[a] tagEnd text[A] close[a] ", toldOf("<a>&#" + zeros + "65;</a>"));
    EXPECT_EQ("begin[a] tagEnd Lexical error.", toldOf("<a>&#4294967361;</a>")) << "2^32 + 65";
    EXPECT_EQ("begin[a] tagEnd Lexical error.", toldOf("<a>&#x10000000000000041;</a>"));
}

TEST(XmlParser, WhatIsNoReferenceIsALexicalError)
{
    for (char const *text :
         {"&",    "&;",     "& ",    "&lt",     "&lt ;",   "&Lt;",  "&l;",   "&gt",    "&amp",
          "&am;", "&ap;",   "&apo;", "&ampos;", "&amamp;", "&a;",   "&quo;", "&nbsp;", "&#;",
          "&#x;", "&#X41;", "&#65",  "&#x41",   "&#6a;",   "&#xg;", "&#-1;", "&#;65",  "&&amp;",
          "&#@;", "&#x4@;", "&#x`;", "&#xG;",   "&#/;",    "&#:;"}) {
        EXPECT_EQ("begin[a] tagEnd Lexical error.", toldOf("<a>" + std::string(text))) << text;
        EXPECT_EQ("begin[a] tagEnd Lexical error.", toldOf("<a>" + std::string(text) + "</a>"))
            << text;
        EXPECT_EQ("begin[a] Lexical error.", toldOf("<a b='" + std::string(text) + "'/>")) << text;
    }
}

TEST(XmlParser, AnOpeningBracketInAValueIsALexicalErrorWhateverFollows)
{
    for (char const *text : {"<", "x<y", "<amp;", "x<lt;y", "<#65;", "&amp;<amp;"})
        EXPECT_EQ("begin[a] Lexical error.", toldOf("<a b='" + std::string(text) + "'/>")) << text;
}

// CDATA sections

TEST(XmlParser, ACdataSectionIsToldAsItStands)
{
    EXPECT_EQ("begin[a] tagEnd cdata[<b>] close[a] ", toldOf("<a><![CDATA[<b>]]></a>"));
    EXPECT_EQ("begin[a] tagEnd cdata[] close[a] ", toldOf("<a><![CDATA[]]></a>"));
    EXPECT_EQ("begin[a] tagEnd cdata[ &amp; <!-- x --> ]] > ]>] close[a] ",
              toldOf("<a><![CDATA[ &amp; <!-- x --> ]] > ]>]]></a>"));
    EXPECT_EQ("begin[a] tagEnd cdata[]] text[x] cdata[]]] close[a] ",
              toldOf("<a><![CDATA[]]]>x<![CDATA[]]]]></a>"));
    EXPECT_EQ("begin[a] tagEnd cdata[x] text[>] close[a] ", toldOf("<a><![CDATA[x]]>></a>"));
    EXPECT_EQ(std::string("begin[a] tagEnd cdata[\0] close[a] ", 34),
              toldOf(std::string("<a><![CDATA[\0]]></a>", 20)));
}

TEST(XmlParser, ACdataSectionWithoutAnEndFails)
{
    EXPECT_EQ("begin[a] tagEnd Syntax error.", toldOf("<a><![CDATA["));
    for (char const *rest : {"x", "]", "]]", "]]x", "]] >", "x]]</a>"})
        EXPECT_EQ("begin[a] tagEnd Lexical error.", toldOf("<a><![CDATA[" + std::string(rest)))
            << rest;
    EXPECT_EQ("begin[a] tagEnd Lexical error.", toldOf("<a><![CDATA"));
    EXPECT_EQ("begin[a] tagEnd Lexical error.", toldOf("<a><![cdata[x]]></a>"));
}

// The end of the input

TEST(XmlParser, TheEndOfTheInputInsideATagAValueOrADeclarationIsASyntaxError)
{
    EXPECT_EQ(SYNTAX, toldOf("<"));
    EXPECT_EQ("begin[a] Syntax error.", toldOf("<a"));
    EXPECT_EQ("begin[a] Syntax error.", toldOf("<a "));
    EXPECT_EQ("begin[a] Syntax error.", toldOf("<a b"));
    EXPECT_EQ("begin[a] Syntax error.", toldOf("<a b="));
    EXPECT_EQ("begin[a] Syntax error.", toldOf("<a b='"));
    EXPECT_EQ("begin[a] Syntax error.", toldOf("<a b='x"));
    EXPECT_EQ("begin[a] Syntax error.", toldOf("<a b='x&amp;"));
    EXPECT_EQ("begin[a] b=[x] Syntax error.", toldOf("<a b='x'"));
    EXPECT_EQ("begin[a] tagEnd Syntax error.", toldOf("<a>"));
    EXPECT_EQ("begin[a] tagEnd text[x] Syntax error.", toldOf("<a>x"));
    EXPECT_EQ("begin[a] tagEnd Syntax error.", toldOf("<a></"));
    EXPECT_EQ("begin[a] tagEnd Syntax error.", toldOf("<a></a"));
    EXPECT_EQ(SYNTAX, toldOf("<?xml version="));
    EXPECT_EQ(SYNTAX, toldOf("<?xml version='1.0'"));
    EXPECT_EQ(SYNTAX, toldOf("<!DOCTYPE "));
    EXPECT_EQ(SYNTAX, toldOf("<!DOCTYPE a"));
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
    EXPECT_EQ(SYNTAX, toldOf(input)) << "what a failed read had got is lost";
    std::istringstream bad("<a/>");
    bad.setstate(std::ios_base::badbit);
    EXPECT_EQ(SYNTAX, toldOf(bad));
}

TEST(XmlParser, AStreamThatThrowsAtItsEndIsReadToItsEnd)
{
    std::istringstream input("<a/>");
    input.exceptions(std::ios_base::badbit | std::ios_base::failbit | std::ios_base::eofbit);
    EXPECT_EQ("begin[a] emptyEnd ", toldOf(input));
}

// Blocks of the input

/// A document with all kinds of tokens, and what is told of it.
std::string const allTokens =
    "<root first='1' second = \"two&lt;\" > text <!-- comment - -->x]]>y&amp;&#65;"
    "<![CDATA[ a ]] b ]>]]]]>\n\t <empty-element  attribute='value' /></root >\n<!-- end -->\n";
std::string const allTold =
    "begin[root] first=[1] second=[two<] tagEnd text[ text ] text[x]]] text[>y] text[&] text[A] "
    "cdata[ a ]] b ]>]]] begin[empty-element] attribute=[value] emptyEnd close[root] ";

TEST(XmlParser, ATokenMayLieAcrossTheBlocksOfTheInput)
{
    std::string const start = "<?xml version = '1.0' ?> \n<!DOCTYPE  root >";
    EXPECT_EQ("declaration[1.0] type[root] " + allTold, toldOf(start + allTokens));
    std::size_t const length = start.size() + allTokens.size();
    for (std::size_t before = 0; before <= length + 1; ++before) {
        std::size_t const filling = 2 * XmlInput::BLOCK - before - 7;
        std::string const text = "<!--" + std::string(filling, 'x') + "-->" + start + allTokens;
        ASSERT_EQ("declaration[1.0] type[root] " + allTold, toldOf(text)) << before;
    }
}

TEST(XmlParser, TokensMayBeLongerThanManyBlocks)
{
    for (std::size_t const size : {XmlInput::BLOCK - 1, XmlInput::BLOCK, XmlInput::BLOCK + 1,
                                   3 * XmlInput::BLOCK, 20 * XmlInput::BLOCK + 17}) {
        std::string const bytes(size, 'x');
        std::string const white(size, ' ');
        EXPECT_EQ("begin[" + bytes + "] " + bytes + "=[" + bytes + "] b=[" + bytes + "&" + bytes +
                      "] tagEnd text[" + white + bytes + "]]] text[>" + bytes + white + "] cdata[" +
                      bytes + "] close[" + bytes + "] ",
                  toldOf("<" + bytes + white + bytes + white + "=" + white + "'" + bytes + "' b='" +
                         bytes + "&amp;" + bytes + "'" + white + ">" + white + bytes + "]]>" +
                         bytes + white + "<!--" + bytes + "-->" + white + "<![CDATA[" + bytes +
                         "]]></" + bytes + white + ">" + white))
            << size;
    }
}

TEST(XmlParser, AnInputMayEndWithABlock)
{
    for (std::size_t const blocks : {1, 2, 3}) {
        std::string text = "<a>";
        text += std::string(blocks * XmlInput::BLOCK - 7, 'x') + "</a>";
        EXPECT_EQ("begin[a] tagEnd text[" + text.substr(3, text.size() - 7) + "] close[a] ",
                  toldOf(text));
        EXPECT_EQ("begin[a] tagEnd text[" + text.substr(3, text.size() - 7) + "] Syntax error.",
                  toldOf(text.substr(0, text.size() - 4) + "</a "));
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
        EXPECT_EQ("declaration[1.0] type[r] " + allTold, toldOf(text.substr(0, length)));
}

/// A stream that tells how much of it has been asked for.
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
    EXPECT_EQ(16384, buffer.largest);
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
        EXPECT_EQ(0, depth.now);
    }
    for (int const levels : {2001, 12000}) {
        Depth depth;
        EXPECT_EQ(SYNTAX, reasonOf<XmlEx::ExSyntaxError>([&] { parse(levels, depth); }));
        EXPECT_EQ(2000, depth.largest);
    }
}

TEST(XmlParser, TheBoundIsOnDepthAndNotOnTheNumberOfElements)
{
    std::string text = "<a>";
    for (int i = 0; i < 20000; ++i)
        text += "<b><c/></b>";
    XmlDocument const document((text + "</a>").c_str());
    EXPECT_EQ(40001u, document.getElementsByTagName("*").getCardinality());
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
            EXPECT_EQ("a", name) << "the name is still there";
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
    EXPECT_EQ("begin[a] begin[a] begin[a] " + rest + rest + rest, nesting.told);
}

TEST(XmlParser, ThreadsParseAtOnce)
{
    constexpr int THREADS = 4;
    ZvTest::Barrier start(THREADS);
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
        explicit Meeting(ZvTest::Barrier &met) : both(met) {}
        void notifyBeginElement(LiString const &name) override
        {
            Recorder::notifyBeginElement(name);
            both.arrive_and_wait();
        }
        ZvTest::Barrier &both;
    };
    ZvTest::Barrier met(2);
    Meeting first(met), second(met);
    std::jthread const other([&] {
        std::istringstream input("<x y='z'>t</x>");
        XmlParser::parse(second, input);
    });
    std::istringstream input("<a>b</a>");
    XmlParser::parse(first, input);
    const_cast<std::jthread &>(other).join();
    EXPECT_EQ("begin[a] tagEnd text[b] close[a] ", first.told);
    EXPECT_EQ("begin[x] y=[z] tagEnd text[t] close[x] ", second.told);
}

TEST(XmlParser, WhatAProtocolThrowsComesOut)
{
    struct Refusing : Recorder
    {
        void notifyTextData(LiString const &) override { throw 7; }
    };
    Refusing refusing;
    std::istringstream input("<a><b>x</b></a>");
    EXPECT_THROW(XmlParser::parse(refusing, input), int);
    EXPECT_EQ("begin[a] tagEnd begin[b] tagEnd ", refusing.told);
    EXPECT_EQ("begin[a] emptyEnd ", toldOf("<a/>")) << "nothing is left behind";
}

TEST(XmlParser, ACallComesBeforeAnythingBehindItIsLookedAt)
{
    EXPECT_EQ("declaration[1.0] Lexical error.", toldOf("<?xml version='1.0'?>&"));
    EXPECT_EQ("type[a] Lexical error.", toldOf("<!DOCTYPE a>&"));
    EXPECT_EQ("begin[a] Lexical error.", toldOf("<a&"));
    EXPECT_EQ("begin[a] b=[1] Lexical error.", toldOf("<a b='1'&"));
    EXPECT_EQ("begin[a] tagEnd Lexical error.", toldOf("<a>&"));
    EXPECT_EQ("begin[a] tagEnd text[x] Lexical error.", toldOf("<a>x&"));
    EXPECT_EQ("begin[a] tagEnd cdata[x] Lexical error.", toldOf("<a><![CDATA[x]]>&"));
    EXPECT_EQ("begin[a] tagEnd close[a] Lexical error.", toldOf("<a></a>&"));
    EXPECT_EQ("begin[a] emptyEnd Lexical error.", toldOf("<a/>&"));
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
        ASSERT_EQ("n" + std::to_string(i), bytesOf(keeping.names[at + 1]));
        ASSERT_EQ(std::to_string(i), bytesOf(keeping.texts[at]));
    }
}

} // namespace
} // namespace ZvTest
