#include "conformance/conformance.h"

#include <cstdio>
#include <iterator>

namespace Conformance {

namespace {

UUID const SAMPLE = {0x00112233, 0x4455, 0x6677, {0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}};

std::string textOf(UUID &uuid)
{
    RPC_CSTR text = nullptr;
    RPC_STATUS const status = UuidToStringA(&uuid, &text);
    std::string const result =
        status == RPC_S_OK ? reinterpret_cast<char *>(text) : std::to_string(status);
    RpcStringFreeA(&text);
    return result;
}

void parse(std::string text)
{
    UUID uuid = SAMPLE;
    RPC_STATUS const status = UuidFromStringA(reinterpret_cast<RPC_CSTR>(text.data()), &uuid);
    showText("UuidFromStringA(\"" + text + "\")", std::to_string(status) + ", " + textOf(uuid));
}

void showTextsLife()
{
    scene("a text's life");
    UUID sample = SAMPLE;
    RPC_CSTR text = nullptr;
    NUMBER(UuidToStringA(&sample, &text));
    showText("it is", reinterpret_cast<char *>(text));
    NUMBER(RpcStringFreeA(&text));
    showText("then it is", text ? "kept" : "null");
}

void showTexts()
{
    scene("good texts");
    parse("00112233-4455-6677-8899-aabbccddeeff");
    parse("00112233-4455-6677-8899-AABBCCDDEEFF");
    parse("fFeEdDcC-bBaA-9988-7766-554433221100");
    parse("00000000-0000-0000-0000-000000000000");
    parse("ffffffff-ffff-ffff-ffff-ffffffffffff");
    UUID uuid = SAMPLE;
    NUMBER(UuidFromStringA(nullptr, &uuid));
    showText("it is", textOf(uuid));

    scene("bad texts");
    std::string const good = "01112233-4455-6677-8899-aabbccddeeff";
    for (char const *text : {"", "x", "-", "0"})
        parse(text);
    parse(good + "0");
    parse(good + " ");
    parse(" " + good);
    parse("{" + good + "}");
    parse("011122334455-6677-8899-aabbccddeeff0");
    parse("01112233445566778899aabbccddeeff");
    parse("0111223-34455-6677-8899-aabbccddeeff");
    for (std::size_t i = 0; i < good.size(); ++i) {
        parse(good.substr(0, i));
        for (char c : {'g', '-', ' ', '0'}) {
            std::string wrong = good;
            if ((good[i] == '-') == (c == '-') || (c == '0' && good[i] != '-'))
                continue;
            wrong[i] = c;
            parse(wrong);
        }
    }
}

void showOrder()
{
    scene("order");
    UUID const sorted[] = {{0, 0, 0, {}},
                           {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 1}},
                           {0, 0, 0, {0x80, 0, 0, 0, 0, 0, 0, 0}},
                           {0, 0, 1, {}},
                           {0, 0, 0x8000, {}},
                           {0, 1, 0, {}},
                           {0, 0xFFFF, 0, {}},
                           {1, 0, 0, {}},
                           {0x80000000, 0, 0, {}},
                           {0xFFFFFFFF, 0xFFFF, 0xFFFF, {255, 255, 255, 255, 255, 255, 255, 255}}};
    int good = 0;
    for (UUID const &left : sorted)
        for (UUID const &right : sorted) {
            UUID a = left, b = right;
            RPC_STATUS first = -1, second = -1;
            int const expected = &left < &right ? -1 : &left > &right;
            good += UuidCompare(&a, &b, &first) == expected && first == RPC_S_OK &&
                    (UuidEqual(&a, &b, &second) != 0) == (expected == 0) && second == RPC_S_OK;
        }
    showCount("pairs in the order of their fields, of 100", good);
    UUID nil = sorted[0], one = sorted[1];
    RPC_STATUS status = -1;
    NUMBER(UuidCompare(nullptr, &one, &status));
    NUMBER(UuidCompare(&one, nullptr, &status));
    NUMBER(UuidCompare(nullptr, &nil, &status));
    NUMBER(UuidCompare(nullptr, nullptr, &status));
    NUMBER(UuidEqual(nullptr, &nil, &status));
    NUMBER(UuidEqual(&one, nullptr, &status));
    showCount("status", status);

    scene("the nil identifier");
    UUID sample = SAMPLE;
    NUMBER(UuidIsNil(&sample, &status));
    NUMBER(UuidCreateNil(&sample));
    NUMBER(UuidIsNil(&sample, &status));
    NUMBER(UuidIsNil(nullptr, &status));
    showCount("status", status);
}

void showNewOnes()
{
    scene("new ones");
    constexpr int COUNT = 100;
    std::vector<std::string> texts;
    int form = 0, differing = 0, hashes = 0;
    for (int i = 0; i < COUNT; ++i) {
        UUID uuid{};
        if (UuidCreate(&uuid) != RPC_S_OK)
            break;
        form += uuid.Data3 >> 12 == 4 && uuid.Data4[0] >> 6 == 2;
        texts.push_back(textOf(uuid));
        bool isUnique = true;
        for (int k = 0; k < i; ++k)
            isUnique = isUnique && texts[static_cast<std::size_t>(k)] != texts.back();
        differing += isUnique;
        UUID copy = uuid;
        RPC_STATUS first = -1, second = -1;
        hashes += UuidHash(&uuid, &first) == UuidHash(&copy, &second) && first == RPC_S_OK &&
                  second == RPC_S_OK;
    }
    showCount("of the random form, of 100", form);
    showCount("that differ", differing);
    showCount("whose copies have their hash", hashes);
}

} // namespace

void showIdentifiers()
{
    table("identifier");
    showTextsLife();
    showTexts();
    showOrder();
    showNewOnes();
}

} // namespace Conformance
