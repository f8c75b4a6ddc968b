// A text of a document.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"

#include <cstdint>
#include <string_view>

namespace Zv {

class XmlBlocks;

/// A text that lies in the memory of its document, and is handed out as a copy: documents have many short texts of
/// which few are ever asked for.
class ZVRESMGT_EXPORT XmlText
{
public:
    XmlText() = default;
    XmlText(XmlText const &) = delete;
    XmlText &operator=(XmlText const &) = delete;
    ~XmlText();

    /// Copies the bytes of the string, to where the present ones are if they fit, else into a piece of `blocks` or, for
    /// null, by themselves.
    void assign(LiString const &text, XmlBlocks *blocks = nullptr);
    LiString get() const { return LiString(_chars, _length); }
    /// Terminated; valid until the next `assign`.
    char const *getChars() const { return _chars ? _chars : ""; }
    /// All bytes, zero bytes among them; valid until the next `assign`.
    std::string_view getBytes() const { return {getChars(), _length}; }

private:
    friend class XmlAttribute;

    /// A copy of the string in `room`, which has one byte more than the string and outlives the text.
    XmlText(LiString const &text, char *room);
    /// To where there is room.
    void copy(LiString const &text);
    void release() noexcept;

    char *_chars = nullptr;
    std::uint32_t _length = 0;
    std::uint32_t _room : 31 = 0; // for bytes before the terminator
    bool _ownsRoom : 1 = false;
};

} // namespace Zv
