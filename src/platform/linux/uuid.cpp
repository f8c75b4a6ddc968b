#include "platform/common/uuid.h"

#include "platform/linux/kernel.h"

namespace ZvPlatform {

using namespace Linux;

RPC_STATUS UuidCreate(UUID *uuid)
{
    constexpr RPC_STATUS RPC_S_ENTROPY = 1760; // no random bytes
    unsigned char bytes[16];
    for (std::size_t filled = 0; filled < sizeof bytes;) {
        ssize_t const result = Kernel::getRandom(bytes + filled, sizeof bytes - filled);
        if (result > 0)
            filled += static_cast<std::size_t>(result);
        else if (errno != EINTR)
            return RPC_S_ENTROPY;
    }
    makeRandomUuid(bytes, *uuid);
    return RPC_S_OK;
}

} // namespace ZvPlatform
