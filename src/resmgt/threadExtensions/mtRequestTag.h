// What requests are counted under.
#pragma once

#include "resmgt/export.h"

#include <list>
#include <utility>

namespace Zv {

class LkPulse;

/// Names one count of an `MtRequestMgr`, which hands it out. Passed by value; good until it is released.
class ZVRESMGT_EXPORT MtRequestTag
{
public:
    /// The number of requests under way, and the pulse that is sent at 0; null until somebody waits.
    using Entry = std::pair<unsigned, LkPulse *>;
    using EntryList = std::list<Entry>;

    /// Invalid.
    MtRequestTag() = default;
    explicit MtRequestTag(EntryList::iterator id) : _id(id), _isValid(true) {}

    bool isValid() const { return _isValid; }
    /// The same entry; all invalid tags are equal.
    friend bool operator==(MtRequestTag const &left, MtRequestTag const &right)
    {
        return left._isValid == right._isValid && (!left._isValid || left._id == right._id);
    }

private:
    friend class MtRequestMgr;

    EntryList::iterator _id;
    bool _isValid = false;
};

} // namespace Zv
