// Writes XML to a stream by the nesting of the code.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "zvbase/objPtr.h"

#include <iosfwd>

namespace Zv {

/// Writes to a caller's stream through guards: an `ElementGuard` stands for an open element and closes it when it
/// goes.
///
///     XmlStreamer streamer(stream, true, "show");
///     XmlStreamer::ElementGuard show(streamer, "show");
///     show.addAttribute("name", name);
///     {
///         XmlStreamer::ElementGuard clip(show, "clip");
///         clip.addAttribute("frames", 25);
///     }
///
/// One thread at a time. Errors of the stream are not looked at: the caller asks the stream. A failure that the stream
/// throws passes through; a guard that ends while another exception passes keeps it to itself.
class ZVRESMGT_EXPORT XmlStreamer
{
public:
    class ElementGuard;

    /// The document or an element that is being written.
    class ZVRESMGT_EXPORT NodeGuard
    {
    public:
        NodeGuard(NodeGuard const &) = delete;
        NodeGuard &operator=(NodeGuard const &) = delete;
        virtual ~NodeGuard() noexcept(false);
        /// Something is about to be written into the node.
        virtual void setContent() = 0;

        std::ostream &getOutput() const { return _output; }
        bool hasContent() const { return _content; }

    protected:
        /// The parent outlives the guard; null for none.
        NodeGuard(NodeGuard *parent, std::ostream &output) : _parent(parent), _output(output) {}

        /// Stores the flag and returns the old one.
        bool setContent(bool content);
        NodeGuard *getParent() const { return _parent; }

    private:
        NodeGuard *_parent;
        std::ostream &_output;
        bool _content = false;
    };

    /// Writes the declaration if asked for, and the DOCTYPE if the type is not empty. The stream outlives the streamer.
    XmlStreamer(std::ostream &output, bool writeDeclaration, LiString const &documentType);
    XmlStreamer(XmlStreamer const &) = delete;
    XmlStreamer &operator=(XmlStreamer const &) = delete;
    ~XmlStreamer() noexcept(false);

    /// Of the document: its `setContent` throws `XmlEx::ExSyntaxError` at the second call.
    NodeGuard &getDocument() const;

private:
    class DocumentGuard;

    std::ostream &_output;
    ObjPtr<DocumentGuard> _document;
};

/// An open element. The guard of its parent, or the streamer, outlives it, and writes nothing while it is open.
class ZVRESMGT_EXPORT XmlStreamer::ElementGuard : public XmlStreamer::NodeGuard
{
public:
    /// The root. Throws `XmlEx::ExSyntaxError` where the streamer has had one.
    ElementGuard(XmlStreamer &streamer, LiString const &name);
    /// A child. The start tag of the parent ends here: it takes no more attributes.
    ElementGuard(ElementGuard &parent, LiString const &name);
    /// Writes the end of the element.
    ~ElementGuard() noexcept(false) override;

    void setContent() override;

    /// Writes an attribute: a text with the five special bytes written as references, null as an empty one, a number
    /// in the stream's format but in the "C" locale. They throw `XmlEx::ExSyntaxError` after the first content.
    void addAttribute(char const *name, char const *value);
    void addAttribute(char const *name, int value);
    void addAttribute(char const *name, double value);
    /// Writes the text as it stands: the caller has escaped it. Null writes none.
    void addTextData(char const *text);
    /// Writes a CDATA section, but for the last bracket of its end, "]]>": the caller writes the `>`.
    void addCharacterData(char const *text);

private:
    ElementGuard(NodeGuard &parent, LiString const &name, std::ostream &output);
    /// Writes the start of an attribute, up to its opening quote.
    std::ostream &addAttribute(char const *name);
    void checkAttributesMayCome() const;
    void close();

    LiString _name;
};

} // namespace Zv
