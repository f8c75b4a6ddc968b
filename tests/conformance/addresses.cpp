#include "conformance/conformance.h"
#include "zvbase/platform/shared.h"

namespace Conformance {

using ZvPlatform::Order;
using ZvPlatform::Shared;

namespace {

template <class T>
void showSize()
{
    scene("waits of " + std::to_string(sizeof(T)) + " bytes");
    Shared<T> value{1};
    T same = 1, other = 0;
    TRUTH(WaitOnAddress(&value, &other, sizeof(T), INFINITE));
    TRUTH(WaitOnAddress(&value, &other, sizeof(T), 0));
    TRUTH(WaitOnAddress(&value, &same, sizeof(T), 0));
    TRUTH(WaitOnAddress(&value, &same, sizeof(T), 1));
    Runner waiter([&] {
        T unwanted = 1;
        while (value.load(Order::SEQ_CST) == 1)
            WaitOnAddress(&value, &unwanted, sizeof(T), LONG_TIME);
        return DWORD{1};
    });
    value.store(T{2}, Order::SEQ_CST);
    WakeByAddressSingle(&value);
    waiter.join();
    showCount("released", waiter.exitCode());
}

} // namespace

void showAddresses()
{
    table("address");
    showSize<std::uint8_t>();
    showSize<std::uint16_t>();
    showSize<std::uint32_t>();
    showSize<std::uint64_t>();

    scene("sizes that cannot be");
    std::uint64_t value[2] = {}, same[2] = {};
    for (SIZE_T size : {0, 3, 5, 16})
        TRUTH(WaitOnAddress(value, same, size, 0));

    scene("four who wait");
    Shared<long> gate;
    {
        std::vector<std::unique_ptr<Runner>> waiters;
        for (int i = 0; i < 4; ++i)
            waiters.push_back(std::make_unique<Runner>([&] {
                long closed = 0;
                while (gate.load(Order::SEQ_CST) == 0)
                    WaitOnAddress(&gate, &closed, sizeof gate, INFINITE);
                return DWORD{0};
            }));
        gate.store(1l, Order::SEQ_CST);
        WakeByAddressAll(&gate);
    }
    showText("all", "released");
}

} // namespace Conformance
