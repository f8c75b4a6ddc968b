#include "resmgt/xml/xmlNames.private.h"

#include <algorithm>

namespace Zv {

XmlNames::XmlNames() : _names(PLACES + NEAR) {}

LiString const &XmlNames::getNear(Known *place, std::uint64_t head, std::string_view name)
{
    Known * const end = place + NEAR;
    Known *known = std::find_if(
        place, end, [&](Known const &each) { return each.length == 0 || each.is(head, name); });
    if (known == end)
        known = place;
    if (!known->is(head, name)) {
        known->length = 0; // for good if there is no memory
        known->name.emplace(name);
        known->head = head;
        known->length = name.size();
    }
    return *known->name;
}

} // namespace Zv
