// Writes XML to a stream by the nesting of guard objects (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "zvbase/objPtr.h"
#include "zvbase/unwinding.h"

#include <iosfwd>

namespace Zv {

/// Writes XML to a stream. An `ElementGuard` opens an element in its constructor and closes it in
/// its destructor.
///
///     XmlStreamer streamer(std::cout, true, "show");
///     XmlStreamer::ElementGuard show(streamer, "show");
///     show.addAttribute("name", "Evening");
///     {
///         XmlStreamer::ElementGuard clip(show, "clip");
///         clip.addAttribute("frames", 25);
///     }
///
/// **Threads**: one thread at a time.
///
/// **Throws** what the stream throws. Other errors of the stream are not reported, so the caller
/// must check the stream. If the destructor of a guard runs because of an exception, it throws no
/// second one. What the stream throws then is written to the trace.
class ZVRESMGT_EXPORT XmlStreamer
{
public:
    class ElementGuard;

    /// The open document or an open element.
    class ZVRESMGT_EXPORT NodeGuard
    {
    public:
        NodeGuard(NodeGuard const &) = delete;
        NodeGuard &operator=(NodeGuard const &) = delete;
        virtual ~NodeGuard() noexcept(false);
        /// Called before content is written into the node.
        virtual void setContent() = 0;

        std::ostream &getOutput() const { return _output; }
        bool hasContent() const { return _content; }

    protected:
        /// The parent may be null, and must outlive the guard.
        NodeGuard(NodeGuard *parent, std::ostream &output) : _parent(parent), _output(output) {}

        /// Stores the flag and returns the former one.
        bool setContent(bool content);
        NodeGuard *getParent() const { return _parent; }

    private:
        NodeGuard *_parent;
        std::ostream &_output;
        bool _content = false;
    };

    /// Writes the declaration if `writeDeclaration` is true, and the DOCTYPE if the type is not
    /// empty. The stream must outlive the streamer.
    XmlStreamer(std::ostream &output, bool writeDeclaration, LiString const &documentType);
    XmlStreamer(XmlStreamer const &) = delete;
    XmlStreamer &operator=(XmlStreamer const &) = delete;
    ~XmlStreamer() noexcept(false);

    /// Returns the guard of the document. A document has one root, so the second call of its
    /// `setContent` throws `XmlEx::ExSyntaxError`.
    NodeGuard &getDocument() const;

private:
    class DocumentGuard;

    std::ostream &_output;
    ObjPtr<DocumentGuard> _document;
};

/// An open element. The guard of its parent, or the streamer, must outlive it, and must not be used
/// for writing while it is open. `XmlStreamer` has an example.
class ZVRESMGT_EXPORT XmlStreamer::ElementGuard : public XmlStreamer::NodeGuard
{
public:
    /// Opens the root. Throws `XmlEx::ExSyntaxError` if the streamer has a root already.
    ElementGuard(XmlStreamer &streamer, LiString const &name);
    /// Opens a child. This ends the start tag of the parent, which takes no more attributes.
    ElementGuard(ElementGuard &parent, LiString const &name);
    /// Writes the end of the element. Throws what the stream throws.
    ~ElementGuard() noexcept(false) override;

    void setContent() override;

    /// Writes an attribute. The five special bytes of a text are written as references, and null as
    /// an empty text. Throws `XmlEx::ExSyntaxError` if the element has content already.
    void addAttribute(char const *name, char const *value);
    /// Writes an attribute with a number in the format of the stream, but in the "C" locale. Throws
    /// `XmlEx::ExSyntaxError` if the element has content already.
    void addAttribute(char const *name, int value);
    void addAttribute(char const *name, double value);
    /// Writes a text without a change. The caller must have escaped it. Null writes an empty text.
    void addTextData(char const *text);
    /// Writes a CDATA section. By design, the last `>` of its end "]]>" is not written. The caller
    /// must write it.
    void addCharacterData(char const *text);

private:
    ElementGuard(NodeGuard &parent, LiString const &name, std::ostream &output);
    /// Writes the start of an attribute, up to its opening quote.
    std::ostream &addAttribute(char const *name);
    void checkAttributesMayCome() const;
    void close();

    LiString _name;
    Unwinding _unwinding;
};

} // namespace Zv
