#include "testing/groupingLocale.h"
#include "xmlTesting.h"

#include "resmgt/containers.h"

#include <algorithm>
#include <ctime>
#include <iterator>
#include <limits>
#include <string>
#include <thread>
#include <vector>

namespace ZvTest {
namespace {

ObjPtr<XmlElement> element(char const *name)
{
    return ObjPtr<XmlElement>(new XmlElement(name));
}

/// The names of the elements that an iterator walks over.
std::string namesOf(Iterator<UnownedObjPtr<XmlElement>> elements)
{
    std::string names;
    for (; !elements.atEnd(); ++elements)
        names += bytesOf((*elements)->getNodeName()) + " ";
    return names;
}

std::string textOf(XmlDocument const &document)
{
    std::ostringstream stream;
    stream << document;
    return stream.str();
}

/// An element that counts how many of its kind live.
class Counted : public XmlElement
{
public:
    explicit Counted(char const *name) : XmlElement(name) { ++living; }
    ~Counted() noexcept(false) override { --living; }
    static inline int living = 0;
};

// Attributes

TEST(XmlElement, AMissingAttributeThrows)
{
    XmlElement a("a");
    a.setAttribute("there", LiString("x"));
    EXPECT_EQ(reasonOf([&] { a.getAttribute("missing"); }), "Non existent attribute.");
    int number = 5;
    unsigned positive = 6;
    double real = 7;
    EXPECT_EQ(reasonOf([&] { a.getAttribute("missing", number); }), "Non existent attribute.");
    EXPECT_EQ(reasonOf([&] { a.getAttribute("missing", positive); }), "Non existent attribute.");
    EXPECT_EQ(reasonOf([&] { a.getAttribute("missing", real); }), "Non existent attribute.");
    EXPECT_EQ(number, 5);
    EXPECT_EQ(positive, 6u);
    EXPECT_EQ(real, 7.0);
}

TEST(XmlElement, AnAttributeThatIsNoNumberIsZero)
{
    XmlElement a("a");
    a.setAttribute("b", LiString("abc"));
    a.setAttribute("empty", LiString());
    for (char const *name : {"b", "empty"}) {
        int number = 5;
        unsigned positive = 6;
        double real = 7;
        a.getAttribute(name, number);
        a.getAttribute(name, positive);
        a.getAttribute(name, real);
        EXPECT_EQ(number, 0);
        EXPECT_EQ(positive, 0u);
        EXPECT_EQ(real, 0.0);
    }
}

TEST(XmlElement, NumbersAreReadFromTheStartOfAValue)
{
    XmlElement a("a");
    a.setAttribute("b", LiString(" -12.5x"));
    int number = 0;
    double real = 0;
    a.getAttribute("b", number);
    a.getAttribute("b", real);
    EXPECT_EQ(number, -12);
    EXPECT_EQ(real, -12.5);
    a.setAttribute("b", LiString("4294967295"));
    unsigned positive = 0;
    a.getAttribute("b", positive);
    EXPECT_EQ(positive, 4294967295u);
}

template <class T>
T numberOf(char const *value)
{
    XmlElement a("a");
    a.setAttribute("b", LiString(value));
    T number = 5;
    a.getAttribute("b", number);
    return number;
}

TEST(XmlElement, ANumberThatDoesNotFitIsTheNearestOneThatDoes)
{
    EXPECT_EQ(numberOf<int>("4294967297"), 2147483647);
    EXPECT_EQ(numberOf<int>("-4294967297"), -2147483647 - 1);
    EXPECT_EQ(numberOf<int>("99999999999999999999"), 2147483647);
    EXPECT_EQ(numberOf<int>("-99999999999999999999"), -2147483647 - 1);
    EXPECT_EQ(numberOf<unsigned>("4294967296"), 4294967295u);
    EXPECT_EQ(numberOf<unsigned>("99999999999999999999"), 4294967295u);
    EXPECT_EQ(numberOf<unsigned>("-1"), 0u);
    EXPECT_EQ(numberOf<double>("1e999"), std::numeric_limits<double>::max());
    EXPECT_EQ(numberOf<double>(" -1e999x"), std::numeric_limits<double>::lowest());
    EXPECT_EQ(numberOf<double>("1e-999"), 0.0);
}

TEST(XmlElement, ANumberMayHaveASignAndSpaceBeforeIt)
{
    EXPECT_EQ(numberOf<int>("\t +12"), 12);
    EXPECT_EQ(numberOf<unsigned>(" +12"), 12u);
    EXPECT_EQ(numberOf<double>("\n +1.5em"), 1.5);
    EXPECT_EQ(numberOf<double>("-1.5,5"), -1.5);
    EXPECT_EQ(numberOf<double>(".5"), 0.5);
    EXPECT_EQ(numberOf<double>("+-1"), 0.0);
    EXPECT_EQ(numberOf<int>("+-1"), 0);
}

TEST(XmlElement, NumbersAreWrittenAndReadIndependentlyOfTheLocale)
{
    GroupingLocale const locale;
    XmlElement a("a");
    a.setAttribute("int", 1234567);
    a.setAttribute("unsigned", 4294967295u);
    a.setAttribute("double", 12345.5);
    EXPECT_EQ(bytesOf(a.getAttribute("int")), "1234567");
    EXPECT_EQ(bytesOf(a.getAttribute("unsigned")), "4294967295");
    EXPECT_EQ(bytesOf(a.getAttribute("double")), "12345.5");
    EXPECT_EQ(numberOf<int>("1234567"), 1234567);
    EXPECT_EQ(numberOf<double>("12345.5"), 12345.5);
    EXPECT_EQ(numberOf<double>("1e999"), std::numeric_limits<double>::max());
}

TEST(XmlElement, NumbersAreSetAsAStreamFormatsThem)
{
    XmlElement a("a");
    a.setAttribute("int", -3);
    a.setAttribute("unsigned", 4294967295u);
    a.setAttribute("double", 1234567.25);
    EXPECT_EQ(bytesOf(a.getAttribute("int")), "-3");
    EXPECT_EQ(bytesOf(a.getAttribute("unsigned")), "4294967295");
    EXPECT_EQ(bytesOf(a.getAttribute("double")), "1.23457e+06");
}

TEST(XmlElement, AnAttributeSetTwiceHasItsLaterValue)
{
    XmlDocument document(false);
    ObjPtr<XmlElement> a(element("a"));
    a->setAttribute("x", LiString("first and longer"));
    a->setAttribute("x", LiString("second"));
    EXPECT_EQ(bytesOf(a->getAttribute("x")), "second");
    document.setRoot(a);
    EXPECT_EQ(textOf(document), "<!DOCTYPE a>\n<a x=\"second\" />\n");
}

TEST(XmlElement, AZeroByteInAValueIsWritten)
{
    XmlDocument document(false);
    ObjPtr<XmlElement> a(element("a"));
    a->setAttribute("x", LiString("1\0<", 3));
    a->setAttribute("y", LiString("\0", 1));
    document.setRoot(a);
    std::string const written = textOf(document);
    EXPECT_EQ(written, std::string("<!DOCTYPE a>\n<a x=\"1\0&lt;\" y=\"\0\" />\n", 36));
    XmlDocument const again(LiString(written.data(), written.size()));
    EXPECT_EQ(bytesOf(again.getRoot()->getAttribute("x")), std::string("1\0<", 3));
}

TEST(XmlElement, AssigningToWhatAnIteratorRefersToChangesNothing)
{
    XmlElement a("a");
    for (char const *name : {"b", "c", "d"})
        a.appendChild(element(name));
    Iterator<UnownedObjPtr<XmlElement>> children = a.getChildren();
    Iterator<UnownedObjPtr<XmlElement>> const copy = children;
    *children = nullptr;
    EXPECT_FALSE(children.atEnd());
    EXPECT_FALSE(copy.atEnd());
    EXPECT_EQ(bytesOf((*copy)->getNodeName()), "b");
    *children = &a;
    ++children;
    EXPECT_EQ(bytesOf((*children)->getNodeName()), "c");
    EXPECT_EQ(namesOf(copy), "b c d ");
    EXPECT_EQ(namesOf(a.getChildren()), "b c d ");
}

/// An element of many attributes, whose names are made of two pieces.
std::string withManyAttributes(char const *zero, char const *one)
{
    constexpr int BITS = 14;
    std::string text = "<a";
    for (int number = 0; number < 1 << BITS; ++number) {
        text += ' ';
        for (int bit = 0; bit < BITS; ++bit)
            text += number >> bit & 1 ? one : zero;
        text += "=''";
    }
    return text + "/>";
}

/// What the processor has to do for it.
double workFor(std::string const &text)
{
    std::clock_t const start = std::clock();
    XmlDocument const document(LiString(text.data(), text.size()));
    return static_cast<double>(std::clock() - start + 1);
}

TEST(XmlElement, AttributesWithEqualHashesAreNoMoreWorkThanOthers)
{
    ASSERT_EQ(LiString("af").hash(), LiString("ba").hash());
    ASSERT_NE(LiString("ag").hash(), LiString("ba").hash());
    std::string const ordinary = withManyAttributes("ba", "ag");
    std::string const colliding = withManyAttributes("ba", "af");
    workFor(ordinary); // what is done once only
    EXPECT_LT(workFor(colliding), 25 * workFor(ordinary)) << "it is a hundred times with a hash";
    XmlDocument const document(LiString(colliding.data(), colliding.size()));
    EXPECT_EQ(bytesOf(document.getRoot()->getAttribute("afbaafbaafbaafbaafbaafbaafba")), "");
    EXPECT_EQ(reasonOf([&] { document.getRoot()->getAttribute("afbaafbaafbaafbaafbaafbaafb"); }),
              "Non existent attribute.");
}

TEST(XmlElement, AttributesAreRemoved)
{
    XmlElement a("a");
    for (char const *name : {"x", "y", "z"})
        a.setAttribute(name, LiString(name));
    a.removeAttribute("missing");
    a.removeAttribute("z");
    EXPECT_THROW(a.getAttribute("z"), XmlEx::ExNonExistentAttribute);
    a.setAttribute("w", LiString("w"));
    a.removeAttribute("x");
    a.removeAttribute("x");
    EXPECT_THROW(a.getAttribute("x"), XmlEx::ExNonExistentAttribute);
    EXPECT_EQ(bytesOf(a.getAttribute("y")), "y");
    EXPECT_EQ(bytesOf(a.getAttribute("w")), "w");
    a.removeAttribute("y");
    a.removeAttribute("w");
    a.setAttribute("x", LiString("again"));
    EXPECT_EQ(bytesOf(a.getAttribute("x")), "again");
}

TEST(XmlElement, AnElementMayHaveManyAttributes)
{
    XmlElement a("a");
    auto const name = [](int i) { return LiString(("n" + std::to_string(i)).c_str()); };
    for (int turn = 0; turn < 2; ++turn)
        for (int i = 0; i < 200; ++i)
            a.setAttribute(name(i), i + turn);
    a.removeAttribute(name(7));
    a.removeAttribute(name(199));
    a.setAttribute(name(7), 70);
    for (int i = 0; i < 199; ++i) {
        int value = -1;
        a.getAttribute(name(i), value);
        EXPECT_EQ(i == 7 ? 70 : i + 1, value);
    }
    EXPECT_THROW(a.getAttribute(name(199)), XmlEx::ExNonExistentAttribute);
    for (int i = 0; i < 199; ++i)
        a.removeAttribute(name(i));
    EXPECT_THROW(a.getAttribute(name(0)), XmlEx::ExNonExistentAttribute);
}

TEST(XmlElement, AnAttributeMayGetAValueThatIsItsOwn)
{
    XmlElement a("a");
    a.setAttribute("x", LiString("value"));
    a.setAttribute("x", a.getAttribute("x"));
    EXPECT_EQ(bytesOf(a.getAttribute("x")), "value");
}

TEST(XmlElement, ValuesGrowAndShrink)
{
    XmlDocument const document("<a x='' y='12345678'>12345678</a>");
    UnownedObjPtr<XmlElement> const parsed = document.getRoot();
    XmlElement made("a");
    for (XmlElement * const a : {parsed.get(), &made})
        for (std::size_t const length : {8u, 9u, 3u, 0u, 7u, 10u, 5000u, 5001u, 1u, 10000u}) {
            std::string const value(length, 'v');
            for (char const * const name : {"x", "y", "z"}) {
                a->setAttribute(name, value.c_str());
                EXPECT_EQ(value, bytesOf(a->getAttribute(name)));
            }
            a->setData(value.c_str());
            EXPECT_EQ(value, bytesOf(a->getData()));
        }
}

TEST(XmlElement, DataIsReplaced)
{
    XmlElement a("a");
    EXPECT_TRUE(a.getData().isEmpty());
    a.setData("one");
    a.setData(LiString("t\0o", 3));
    EXPECT_EQ(bytesOf(a.getData()), std::string("t\0o", 3));
    a.setData(LiString());
    EXPECT_TRUE(a.getData().isEmpty());
}

TEST(XmlAttribute, HasANameAndAValue)
{
    XmlAttribute attribute("name", "value");
    EXPECT_EQ(bytesOf(attribute.getNodeName()), "name");
    EXPECT_EQ(bytesOf(attribute.getValue()), "value");
    std::ostringstream stream;
    {
        XmlStreamer streamer(stream, false, LiString());
        XmlStreamer::ElementGuard guard(streamer, "a");
        attribute.streamToOutput(guard);
    }
    EXPECT_EQ(stream.str(), "<a name=\"value\" />\n");
}

// Children

TEST(XmlElement, ChildrenAreInTheOrderOfTheDocument)
{
    XmlElement a("a");
    EXPECT_TRUE(a.getChildren().atEnd());
    EXPECT_EQ(a.getChildren().getCardinality(), 0u);
    a.appendChild(element("b"));
    a.appendChild(element("d"));
    Iterator<UnownedObjPtr<XmlElement>> children = a.getChildren();
    a.insertBefore(element("first"), *children);
    ++children;
    a.insertBefore(element("c"), *children);
    EXPECT_EQ(namesOf(a.getChildren()), "first b c d ");
    EXPECT_EQ(a.getChildren().getCardinality(), 4u);
    a.replaceChild(element("x"), *children);
    EXPECT_EQ(namesOf(a.getChildren()), "first b c x ");
    a.removeChild(*a.getChildren());
    EXPECT_EQ(namesOf(a.getChildren()), "b c x ");
    a.replaceChild(element("y"), *a.getChildren());
    EXPECT_EQ(namesOf(a.getChildren()), "y c x ");
    while (!a.getChildren().atEnd())
        a.removeChild(*a.getChildren());
    EXPECT_EQ(a.getChildren().getCardinality(), 0u);
    a.appendChild(element("z"));
    EXPECT_EQ(namesOf(a.getChildren()), "z ");
}

TEST(XmlElement, AForeignReferenceThrowsAndNothingIsChanged)
{
    char const reason[] = "The reference element is not a child of this element.";
    XmlElement a("a");
    a.appendChild(element("b"));
    (*a.getChildren())->appendChild(element("grandchild"));
    UnownedObjPtr<XmlElement> const grandchild = *(*a.getChildren())->getChildren();
    XmlElement other("other");
    for (UnownedObjPtr<XmlElement> const reference :
         {UnownedObjPtr<XmlElement>(&other), UnownedObjPtr<XmlElement>(&a), grandchild,
          UnownedObjPtr<XmlElement>()}) {
        EXPECT_EQ(reasonOf<XmlEx::ExChildNotFound>(
                      [&] { a.insertBefore(ObjPtr<XmlElement>(new Counted("c")), reference); }),
                  reason);
        EXPECT_EQ(reasonOf<XmlEx::ExChildNotFound>(
                      [&] { a.replaceChild(ObjPtr<XmlElement>(new Counted("c")), reference); }),
                  reason);
        EXPECT_EQ(reasonOf<XmlEx::ExChildNotFound>([&] { a.removeChild(reference); }), reason);
    }
    EXPECT_EQ(Counted::living, 0);
    EXPECT_EQ(namesOf(a.getElementsByTagName("*")), "a b grandchild ");
}

TEST(XmlElement, ANullChildThrows)
{
    XmlElement a("a");
    a.appendChild(element("b"));
    EXPECT_THROW(a.appendChild(nullptr), RCEx::ExNullPtr);
    EXPECT_THROW(a.insertBefore(nullptr, *a.getChildren()), RCEx::ExNullPtr);
    EXPECT_THROW(a.replaceChild(nullptr, *a.getChildren()), RCEx::ExNullPtr);
    EXPECT_EQ(namesOf(a.getChildren()), "b ");
}

TEST(XmlElement, RemovedElementsAreDestroyedWithWhatIsBelowThem)
{
    ObjPtr<XmlElement> a(new Counted("a"));
    ObjPtr<XmlElement> b(new Counted("b"));
    b->appendChild(ObjPtr<XmlElement>(new Counted("c")));
    b->appendChild(ObjPtr<XmlElement>(new Counted("d")));
    a->appendChild(b);
    EXPECT_TRUE(b.isNull()) << "the child is taken over";
    a->appendChild(ObjPtr<XmlElement>(new Counted("e")));
    EXPECT_EQ(Counted::living, 5);
    a->removeChild(*a->getChildren());
    EXPECT_EQ(Counted::living, 2);
    a->replaceChild(ObjPtr<XmlElement>(new Counted("f")), *a->getChildren());
    EXPECT_EQ(Counted::living, 2);
    a.reset();
    EXPECT_EQ(Counted::living, 0);
}

TEST(XmlElement, ChildrenAreWalkedInBothDirections)
{
    XmlElement a("a");
    Iterator<UnownedObjPtr<XmlElement>> empty = a.getChildren();
    EXPECT_TRUE(empty.atBegin());
    EXPECT_THROW(++empty, IteratorEx::ExOutOfRange);
    EXPECT_THROW(--empty, IteratorEx::ExOutOfRange);
    EXPECT_THROW(*empty, IteratorEx::ExOutOfRange);

    for (char const *name : {"b", "c", "d"})
        a.appendChild(element(name));
    Iterator<UnownedObjPtr<XmlElement>> i = a.getChildren();
    EXPECT_TRUE(i.atBegin());
    Iterator<UnownedObjPtr<XmlElement>> const first = i;
    EXPECT_TRUE(first == i);
    ++i;
    EXPECT_FALSE(first == i);
    EXPECT_EQ(bytesOf((*first)->getNodeName()), "b") << "a copy keeps its place";
    EXPECT_EQ(bytesOf((*i)->getNodeName()), "c");
    i.last();
    EXPECT_EQ(bytesOf((*i)->getNodeName()), "d");
    ++i;
    EXPECT_TRUE(i.atEnd());
    EXPECT_THROW(++i, IteratorEx::ExOutOfRange);
    EXPECT_THROW(*i, IteratorEx::ExOutOfRange);
    --i;
    EXPECT_EQ(bytesOf((*i)->getNodeName()), "d");
    --i;
    --i;
    EXPECT_TRUE(i == first);
    EXPECT_THROW(--i, IteratorEx::ExOutOfRange);
    i.end();
    EXPECT_TRUE(i.atEnd());
    i.first();
    EXPECT_TRUE(i == first);

    XmlElement other("other");
    other.appendChild(element("b"));
    EXPECT_FALSE(i == other.getChildren());
    i.end();
    Iterator<UnownedObjPtr<XmlElement>> otherEnd = other.getChildren();
    otherEnd.end();
    EXPECT_FALSE(i == otherEnd);
    EXPECT_EQ(std::distance(a.getChildren(), i), 3);
}

TEST(XmlElement, ElementsAreFoundByTheirTagDepthFirst)
{
    XmlDocument const document("<a><b><a/><c><b/></c></b><a><b/></a></a>");
    EXPECT_EQ(namesOf(document.getElementsByTagName("*")), "a b a c b a b ");
    EXPECT_EQ(document.getElementsByTagName("*").getCardinality(), 7u);
    EXPECT_EQ(document.getRoot(), *document.getElementsByTagName("*"));
    EXPECT_EQ(namesOf(document.getElementsByTagName("a")), "a a a ");
    EXPECT_EQ(namesOf(document.getRoot()->getElementsByTagName("b")), "b b b ");
    EXPECT_TRUE(document.getElementsByTagName("d").atEnd());
    UnownedObjPtr<XmlElement> const b = *document.getElementsByTagName("b");
    EXPECT_EQ(namesOf(b->getElementsByTagName("*")), "b a c b ") << "not beyond the element";
    EXPECT_TRUE(XmlDocument(false).getElementsByTagName("*").atEnd());
    EXPECT_EQ(XmlDocument(false).getElementsByTagName("*").getCardinality(), 0u);
}

// Documents

TEST(XmlDocument, AnEmptyOneHasNothingButItsDeclaration)
{
    XmlDocument document(true);
    EXPECT_TRUE(document.getRoot().isNull());
    EXPECT_TRUE(document.getDocumentType().isNull());
    EXPECT_EQ(textOf(document), "<?xml version=\"1.0\"?>\n");
    document.disableXmlDecl();
    EXPECT_EQ(textOf(document), "");
    document.enableXmlDecl();
    EXPECT_EQ(textOf(document), "<?xml version=\"1.0\"?>\n");
    EXPECT_EQ(textOf(XmlDocument(false)), "");
}

TEST(XmlDocument, IsReadFromAStreamAndFromATextAlike)
{
    char const text[] = "<?xml version='1.0'?><!DOCTYPE t><a b='&lt;1'>x<c/>y</a>";
    std::istringstream stream(text);
    std::istringstream streamForBuilder(text);
    XmlDocumentBuilder builder;
    XmlDocument const fromStream(stream);
    XmlDocument const fromBuilder(streamForBuilder, builder);
    XmlDocument const fromChars(text);
    XmlDocument const fromString((LiString(text)));
    EXPECT_EQ(&fromBuilder, builder.getDocument());
    for (XmlDocument const *document : {&fromStream, &fromBuilder, &fromChars, &fromString}) {
        EXPECT_EQ(bytesOf(document->getDocumentType()->getNodeName()), "t");
        EXPECT_EQ(bytesOf(document->getRoot()->getNodeName()), "a");
        EXPECT_EQ(bytesOf(document->getRoot()->getAttribute("b")), "<1");
        EXPECT_EQ(bytesOf(document->getRoot()->getData()), "y");
        EXPECT_EQ(textOf(*document),
                  "<?xml version=\"1.0\"?>\n<!DOCTYPE a>\n<a b=\"&lt;1\" >\n<c />\n</a>\n");
    }
}

TEST(XmlDocument, HasNoDeclarationIfItsTextHasNone)
{
    EXPECT_EQ(textOf(XmlDocument("<a/>")), "<!DOCTYPE a>\n<a />\n");
    EXPECT_FALSE(XmlDocument("<a/>").hasXmlDecl());
    EXPECT_TRUE(XmlDocument("<a/>").getDocumentType().isNull());
}

TEST(XmlDocument, TakesRootAndTypeOver)
{
    XmlDocument document(false);
    for (int turn = 0; turn < 2; ++turn) {
        ObjPtr<XmlElement> root(new Counted("a"));
        UnownedObjPtr<XmlElement> const address(root.get());
        document.setRoot(root);
        EXPECT_TRUE(root.isNull());
        EXPECT_EQ(address, document.getRoot());
        EXPECT_EQ(Counted::living, 1);
        ObjPtr<XmlDocumentType> type(new XmlDocumentType("t"));
        document.setDocumentType(type);
        EXPECT_TRUE(type.isNull());
        EXPECT_EQ(bytesOf(document.getDocumentType()->getNodeName()), "t");
    }
    ObjPtr<XmlElement> none;
    document.setRoot(none);
    EXPECT_TRUE(document.getRoot().isNull());
    EXPECT_EQ(Counted::living, 0);
}

TEST(XmlDocument, WrittenTextCanBeRead)
{
    std::string const text =
        "<?xml version=\"1.0\"?>\n<!DOCTYPE a>\n<a x=\"&quot;&amp;&apos;&lt;&gt;\xFF\" >\n"
        "<b />\n<c y=\"\" >\n<d />\n</c>\n</a>\n";
    EXPECT_EQ(textOf(XmlDocument(text.c_str())), text);
}

TEST(XmlElement, IsWrittenAloneFromAnyPlace)
{
    XmlDocument const document("<a><b x='1'><c/><d><e/></d></b><f/></a>");
    auto const written = [&](char const *tag) {
        std::ostringstream stream;
        XmlStreamer streamer(stream, false, LiString());
        (*document.getElementsByTagName(tag))->streamToOutput(streamer);
        return stream.str();
    };
    EXPECT_EQ(written("b"), "<b x=\"1\" >\n<c />\n<d >\n<e />\n</d>\n</b>\n");
    EXPECT_EQ(written("c"), "<c />\n");
    EXPECT_EQ(written("d"), "<d >\n<e />\n</d>\n");
    EXPECT_EQ(written("f"), "<f />\n");
}

TEST(XmlElement, TwoRootsOfOneDocumentAreASyntaxError)
{
    XmlElement const a("a");
    std::ostringstream stream;
    XmlStreamer streamer(stream, false, LiString());
    a.streamToOutput(streamer);
    EXPECT_EQ(reasonOf([&] { a.streamToOutput(streamer); }), "Syntax error.");
    EXPECT_EQ(stream.str(), "<a />\n");
}

TEST(XmlDocument, LosesTextsWhenItIsWritten)
{
    EXPECT_EQ(textOf(XmlDocument("<a>x<b>y</b></a>")), "<!DOCTYPE a>\n<a >\n<b />\n</a>\n");
}

// The builder

TEST(XmlDocumentBuilder, AnotherVersionIsNotSupported)
{
    for (char const *version : {"1.1", "1", "1.00", "2.0"})
        EXPECT_EQ(reasonOf<XmlEx::ExXmlVersionNotSupported>([&] {
                      XmlDocument(("<?xml version='" + std::string(version) + "'?><a/>").c_str());
                  }),
                  "XML version not supported.");
}

TEST(XmlDocumentBuilder, TagsMatch)
{
    EXPECT_EQ(reasonOf<XmlEx::ExSyntaxError>([] { XmlDocument("<a><b></c></a>"); }),
              "Syntax error.");
    EXPECT_EQ(reasonOf<XmlEx::ExSyntaxError>([] { XmlDocument("<a></b>"); }), "Syntax error.");
    EXPECT_EQ(reasonOf<XmlEx::ExSyntaxError>([] { XmlDocument("<a><b></a></b>"); }),
              "Syntax error.");
    EXPECT_EQ(reasonOf([] { XmlDocument("<a><a></a></a>"); }), "nothing was thrown");
}

TEST(XmlDocumentBuilder, ADoubleAttributeHasItsLaterValue)
{
    EXPECT_EQ(textOf(XmlDocument("<a x=\"1\" x=\"2\"/>")), "<!DOCTYPE a>\n<a x=\"2\" />\n");
}

TEST(XmlDocumentBuilder, DataIsTheLastPieceOfText)
{
    auto const data = [](char const *text) {
        return bytesOf(XmlDocument(text).getRoot()->getData());
    };
    EXPECT_EQ(data("<a>x&amp;y</a>"), "y");
    EXPECT_EQ(data("<a>x&amp;</a>"), "&");
    EXPECT_EQ(data("<a>x<b>z</b> </a>"), "x");
    EXPECT_EQ(data("<a>x<![CDATA[<z>]]></a>"), "<z>");
    EXPECT_EQ(data("<a><![CDATA[<z>]]>x</a>"), "x");
    EXPECT_EQ(data("<a>x<![CDATA[]]></a>"), "");
    EXPECT_EQ(data("<a/>"), "");
    EXPECT_EQ(bytesOf((*XmlDocument("<a>x<b>y</b></a>").getElementsByTagName("b"))->getData()),
              "y");
}

TEST(XmlDocumentBuilder, AttributesAndTextWithoutAnElementAreSyntaxErrors)
{
    XmlDocument document(false);
    XmlDocumentBuilder builder;
    builder.setDocument(&document);
    EXPECT_EQ(reasonOf([&] { builder.pushAttribute("a", "b"); }), "Syntax error.");
    EXPECT_EQ(reasonOf([&] { builder.notifyTextData("a"); }), "Syntax error.");
    EXPECT_EQ(reasonOf([&] { builder.notifyCharacterData("a"); }), "Syntax error.");
    EXPECT_EQ(reasonOf([&] { builder.notifyEmptyElementEnd(); }), "Syntax error.");
    EXPECT_EQ(reasonOf([&] { builder.notifyClosingElement("a"); }), "Syntax error.");
    EXPECT_TRUE(document.getRoot().isNull());
}

TEST(XmlDocumentBuilder, WithoutADocumentItThrows)
{
    XmlDocumentBuilder builder;
    EXPECT_EQ(builder.getDocument(), nullptr);
    std::istringstream input("<a/>");
    EXPECT_THROW(XmlParser::parse(builder, input), RCEx::ExNullPtr);
}

TEST(XmlDocumentBuilder, AFailedParseLeavesWhatWasAttachedBefore)
{
    XmlDocument document(false);
    XmlDocumentBuilder builder;
    builder.setDocument(&document);
    std::istringstream input("<?xml version='1.0'?><!DOCTYPE t><a><b></b>&");
    EXPECT_THROW(XmlParser::parse(builder, input), XmlEx::ExLexicalError);
    EXPECT_TRUE(document.hasXmlDecl());
    EXPECT_EQ(bytesOf(document.getDocumentType()->getNodeName()), "t");
    EXPECT_TRUE(document.getRoot().isNull());

    XmlDocument second(false);
    builder.setDocument(&second);
    std::istringstream behindTheRoot("<a/><b/>");
    EXPECT_THROW(XmlParser::parse(builder, behindTheRoot), XmlEx::ExSyntaxError);
    EXPECT_EQ(bytesOf(second.getRoot()->getNodeName()), "a");
}

TEST(XmlDocumentBuilder, ServesAgainAfterAFailure)
{
    XmlDocumentBuilder builder;
    std::istringstream broken("<a><b><c x='1'>");
    EXPECT_THROW(XmlDocument(broken, builder), XmlEx::ExSyntaxError);
    EXPECT_EQ(builder.getDocument(), nullptr) << "it has gone";
    for (int turn = 0; turn < 2; ++turn) {
        std::istringstream whole("<d><e/></d>");
        XmlDocument const document(whole, builder);
        EXPECT_EQ(namesOf(document.getElementsByTagName("*")), "d e ");
    }
}

TEST(XmlDocumentBuilder, AClientMayLeaveElementsOut)
{
    struct WithoutTexts : XmlDocumentBuilder
    {
        void notifyTextData(LiString const &) override {}
    } builder;
    std::istringstream input("<a>x<![CDATA[y]]>z</a>");
    EXPECT_EQ(bytesOf(XmlDocument(input, builder).getRoot()->getData()), "y");
}

TEST(XmlDocumentBuilder, ADocumentLivesOnWithoutItsBuilderAndInAnotherThread)
{
    std::string text = "<r>";
    for (int i = 0; i < 2000; ++i)
        text += "<e a='" + std::to_string(i) + "'>" +
                std::string(static_cast<std::size_t>(i), 'x') + "</e>";
    std::istringstream input(text + "</r>");
    ObjPtr<XmlDocumentBuilder> builder(new XmlDocumentBuilder);
    ObjPtr<XmlDocument> document(new XmlDocument(input, *builder));
    std::jthread destroys([&] { document.reset(); });
    std::istringstream again("<a b='c'/>");
    XmlDocument const other(again, *builder);
    builder.reset();
    EXPECT_EQ(bytesOf(other.getRoot()->getAttribute("b")), "c");
    destroys.join();
}

TEST(XmlDocument, ElementsOfATextMayBeChangedAndRemoved)
{
    XmlDocument document("<a x='1'><b y='2'>t</b><c/></a>");
    XmlElement &root = *document.getRoot();
    root.setAttribute("x", LiString("a longer value"));
    root.setAttribute("z", 3);
    root.removeChild(*root.getChildren());
    root.appendChild(element("d"));
    EXPECT_EQ(textOf(document),
              "<!DOCTYPE a>\n<a x=\"a longer value\" z=\"3\" >\n<c />\n<d />\n</a>\n");
}

TEST(XmlDocument, ElementsThatAreAddedToAParsedOneAreDestroyedWithIt)
{
    {
        XmlDocument document("<a><b><c/><d/></b></a>");
        auto const add = [] { return ObjPtr<XmlElement>(new Counted("e")); };
        UnownedObjPtr<XmlElement> const b = *document.getElementsByTagName("b");
        b->appendChild(add());
        b->insertBefore(add(), *b->getChildren());
        b->replaceChild(add(), *document.getElementsByTagName("d"));
        (*document.getElementsByTagName("c"))->appendChild(add());
        EXPECT_EQ(textOf(document), "<!DOCTYPE a>\n<a >\n<b >\n<e />\n<c >\n<e />\n</c>\n<e />\n"
                                    "<e />\n</b>\n</a>\n");
        EXPECT_EQ(Counted::living, 4);
        b->removeChild(*document.getElementsByTagName("c"));
        EXPECT_EQ(Counted::living, 3);
    }
    EXPECT_EQ(Counted::living, 0);
}

TEST(XmlDocument, ValuesOfAnySizeStayAfterTheTextHasGone)
{
    std::string const sizes[] = {std::string(10, 'x'), std::string(5000, 'y'),
                                 std::string(70000, 'z'), std::string(300000, 'w')};
    std::string text = "<r>";
    for (int i = 0; i < 400; ++i) {
        std::string const &value = sizes[i % 101 == 100 ? 3 : i % 23 == 22 ? 2 : i % 2];
        text += "<e" + std::to_string(i) + " a='" + value + "' b='" + value + "&lt;'>" + value +
                "</e" + std::to_string(i) + ">";
    }
    std::istringstream input(text + "</r>");
    text.clear();
    XmlDocument const document(input);
    input.str(std::string());
    auto child = document.getRoot()->getChildren();
    for (int i = 0; i < 400; ++i, ++child) {
        std::string const &value = sizes[i % 101 == 100 ? 3 : i % 23 == 22 ? 2 : i % 2];
        ASSERT_EQ(bytesOf((*child)->getNodeName()), "e" + std::to_string(i));
        ASSERT_EQ(bytesOf((*child)->getAttribute("a")), value);
        ASSERT_EQ(bytesOf((*child)->getAttribute("b")), value + "<");
        ASSERT_EQ(bytesOf((*child)->getData()), value);
    }
    EXPECT_TRUE(child.atEnd());
}

TEST(XmlDocument, EqualNamesOfElementsShareTheirBytes)
{
    XmlDocument const document("<a><b/><c/><b/></a>");
    auto child = document.getRoot()->getChildren();
    LiString const first = (*child)->getNodeName();
    ++child;
    EXPECT_EQ(bytesOf((*child)->getNodeName()), "c");
    ++child;
    EXPECT_EQ(first.getChars(), (*child)->getNodeName().getChars());
}

TEST(XmlDocument, EachOfManyAttributesIsReadOnce)
{
    // The names differ in their first letters only, or in their lengths.
    std::vector<std::string> names;
    for (int i = 0; i < 40; ++i)
        names.push_back(std::string(1, static_cast<char>('a' + i % 20)) +
                        std::string(static_cast<std::size_t>(i / 20), 'y') + "x");
    std::string text = "<r";
    for (char const *turn : {"first", "second"})
        for (std::string const &name : names)
            text += " " + name + "='" + turn + name + "'";
    XmlDocument document((text + "/>").c_str());
    for (std::string const &name : names)
        EXPECT_EQ(bytesOf(document.getRoot()->getAttribute(name.c_str())), "second" + name);
    for (std::string const &name : names)
        document.getRoot()->removeAttribute(name.c_str());
    EXPECT_EQ(textOf(document), "<!DOCTYPE r>\n<r />\n");
}

TEST(XmlDocumentBuilder, TakesNamesThatNoTextHas)
{
    XmlDocument document(false);
    XmlDocumentBuilder builder;
    builder.setDocument(&document);
    builder.notifyBeginElement(LiString("a\0z", 3));
    builder.pushAttribute(LiString("b\0z", 3), "1");
    builder.pushAttribute("b", "2");
    builder.notifyBeginElement(LiString());
    builder.pushAttribute(LiString(), "3");
    builder.notifyEmptyElementEnd();
    builder.pushAttribute("c", "4");
    builder.notifyClosingElement(LiString("a\0z", 3));
    UnownedObjPtr<XmlElement> const root = document.getRoot();
    EXPECT_EQ(bytesOf(root->getNodeName()), std::string("a\0z", 3));
    EXPECT_EQ(bytesOf(root->getAttribute(LiString("b\0z", 3))), "1");
    EXPECT_EQ(bytesOf((*root->getChildren())->getNodeName()), "");
    EXPECT_EQ(textOf(document), "<!DOCTYPE a>\n<a b=\"1\" b=\"2\" c=\"4\" >\n< =\"3\" />\n</a>\n");
}

// Depth

TEST(XmlDocument, TheDeepestNestingFitsOnASmallStack)
{
    runOnSmallStack([] {
        std::string const text = nested(2000);
        XmlDocument const document(text.c_str());
        EXPECT_EQ(document.getElementsByTagName("*").getCardinality(), 2000u);
        std::ostringstream stream;
        stream << document;
        XmlDocument const again(stream.str().c_str());
        EXPECT_EQ(again.getElementsByTagName("a").getCardinality(), 2000u);
        EXPECT_THROW(XmlDocument(nested(2001).c_str()), XmlEx::ExSyntaxError);
        EXPECT_THROW(XmlDocument(nested(2000).substr(0, 6000).c_str()), XmlEx::ExSyntaxError);
    });
}

TEST(XmlDocument, NoTreeIsTooDeepForASmallStack)
{
    constexpr int LEVELS = 100000;
    runOnSmallStack([] {
        ObjPtr<XmlElement> root(element("a"));
        for (int i = 1; i < LEVELS; ++i) {
            ObjPtr<XmlElement> above(element("a"));
            above->appendChild(root);
            above->appendChild(element("b"));
            root = above;
        }
        EXPECT_EQ(unsigned{2 * LEVELS - 1}, root->getElementsByTagName("*").getCardinality());
        std::ostringstream stream;
        XmlStreamer streamer(stream, false, LiString());
        root->streamToOutput(streamer);
        EXPECT_TRUE(stream.str().starts_with("<a >\n<a >\n"));
        EXPECT_TRUE(stream.str().ends_with("<b />\n</a>\n<b />\n</a>\n"));
    });
}

} // namespace
} // namespace ZvTest
