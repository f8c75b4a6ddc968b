// Memory of the parts of a parsed XML document.
#pragma once

#include "resmgt/literals/liString.h"
#include "resmgt/xml/xmlNames.private.h"
#include "zvbase/objPtr.h"

#include <cstddef>
#include <string_view>

namespace Zv {

class XmlElement;

/// The memory of the parts of one parsed document, and of the text that their names and values are
/// in. A document has many small parts, which are created and destroyed together. The parts are
/// therefore pieces of large blocks, and all blocks are freed together, when the root is destroyed.
///
/// One thread at a time.
class XmlBlocks
{
public:
    XmlBlocks() = default;
    XmlBlocks(XmlBlocks const &) = delete;
    XmlBlocks &operator=(XmlBlocks const &) = delete;
    ~XmlBlocks();

    /// Returns memory that is aligned like a pointer.
    void *allocate(std::size_t size)
    {
        constexpr std::size_t UNIT = alignof(void *);
        std::size_t const needed = (size + UNIT - 1) / UNIT * UNIT;
        if (needed > static_cast<std::size_t>(_end - _free)) [[unlikely]]
            return allocateFromAnother(needed);
        char * const piece = _free;
        _free += needed;
        return piece;
    }
    /// Returns a copy of the bytes. `XmlBytes::MARGIN` bytes behind them may be read.
    std::string_view copy(std::string_view bytes);
    /// Returns memory for bytes of a text, or null if there is none.
    char *allocateText(std::size_t size) noexcept;
    /// Returns the name as a string. Equal names mostly share one body.
    LiString const &nameOf(std::string_view name);

    /// The blocks are a part of the root from now on.
    void setRoot(XmlElement const &root) { _root = &root; }
    bool isRoot(XmlElement const &element) const { return _root == &element; }

    /// Called when an element in these blocks gets something that its destructor must release.
    void setOwning() { _isOwning = true; }
    bool isOwning() const { return _isOwning; }

private:
    struct Block;

    void *allocateFromAnother(std::size_t size);
    static char *allocateBlock(std::size_t size);
    char *add(char *memory) noexcept;

    static constexpr std::size_t SMALLEST = 1024;
    static constexpr std::size_t LARGEST = 65536;

    Block *_blocks = nullptr;
    char *_free = nullptr; // nodes are allocated from here upwards
    char *_end = nullptr;  // texts are copied to here downwards
    std::size_t _size = SMALLEST;
    XmlElement const *_root = nullptr;
    bool _isOwning = false;
    ObjPtr<XmlNames> _names;
};

} // namespace Zv
