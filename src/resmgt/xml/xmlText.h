// A text of a document.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"

#include <cstddef>

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

    /// Copies the bytes of the string, into a piece of `blocks` or, for null, by themselves.
    void assign(LiString const &text, XmlBlocks *blocks = nullptr);
    LiString get() const { return LiString(_chars, _length); }
    /// Terminated; valid until the next `assign`.
    char const *getChars() const { return _chars ? _chars : ""; }

private:
    char *_chars = nullptr;
    std::size_t _length = 0;
};

} // namespace Zv
