// Reader of JSON for tests. It refuses everything that the grammar of RFC 8259 does.
#pragma once

#include <charconv>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace ZvTest {

/// A value. What a test asks for must be there, or `std::runtime_error` is thrown.
class Json
{
public:
    using Array = std::vector<Json>;
    using Object = std::map<std::string, Json, std::less<>>;

    static Json parse(std::string_view text);

    bool isNumber() const { return std::holds_alternative<double>(_value); }
    bool isString() const { return std::holds_alternative<std::string>(_value); }
    bool isObject() const { return std::holds_alternative<Object>(_value); }
    double getNumber() const { return get<double>("a number"); }
    bool getBool() const { return get<bool>("true or false"); }
    std::string const &getString() const { return get<std::string>("a string"); }
    Array const &getArray() const { return get<Array>("an array"); }
    Object const &getObject() const { return get<Object>("an object"); }
    bool has(std::string_view key) const { return getObject().contains(key); }
    Json const &operator[](std::string_view key) const
    {
        auto const entry = getObject().find(key);
        if (entry == getObject().end())
            throw std::runtime_error("no key \"" + std::string(key) + "\"");
        return entry->second;
    }

private:
    class Parser;

    template <class T>
    T const &get(char const *what) const
    {
        if (auto const * const value = std::get_if<T>(&_value))
            return *value;
        throw std::runtime_error("not " + std::string(what));
    }

    std::variant<std::nullptr_t, bool, double, std::string, Array, Object> _value;
};

class Json::Parser
{
public:
    explicit Parser(std::string_view text) : _whole(text), _rest(text) {}

    Json parseAll()
    {
        Json json = parseValue();
        skipBlanks();
        if (!_rest.empty())
            fail("text behind the value");
        return json;
    }

private:
    [[noreturn]] void fail(std::string const &what) const
    {
        std::size_t const place = _whole.size() - _rest.size();
        throw std::runtime_error("JSON, byte " + std::to_string(place) + ": " + what);
    }
    void skipBlanks()
    {
        _rest.remove_prefix(std::min(_rest.find_first_not_of(" \t\r\n"), _rest.size()));
    }
    bool take(std::string_view token)
    {
        skipBlanks();
        if (!_rest.starts_with(token))
            return false;
        _rest.remove_prefix(token.size());
        return true;
    }
    void expect(std::string_view token)
    {
        if (!take(token))
            fail("expected " + std::string(token));
    }
    Json parseValue()
    {
        Json json;
        skipBlanks();
        if (_rest.starts_with('{'))
            json._value = parseObject();
        else if (_rest.starts_with('['))
            json._value = parseArray();
        else if (_rest.starts_with('"'))
            json._value = parseString();
        else if (take("true"))
            json._value = true;
        else if (take("false"))
            json._value = false;
        else if (take("null"))
            json._value = nullptr;
        else
            json._value = parseNumber();
        return json;
    }
    Object parseObject()
    {
        Object object;
        expect("{");
        if (take("}"))
            return object;
        do {
            skipBlanks();
            std::string key = parseString();
            expect(":");
            if (!object.emplace(std::move(key), parseValue()).second)
                fail("a key appears twice");
        } while (take(","));
        expect("}");
        return object;
    }
    Array parseArray()
    {
        Array array;
        expect("[");
        if (take("]"))
            return array;
        do
            array.push_back(parseValue());
        while (take(","));
        expect("]");
        return array;
    }
    char takeCharacter()
    {
        if (_rest.empty())
            fail("the text ends");
        char const character = _rest[0];
        _rest.remove_prefix(1);
        return character;
    }
    std::string parseString()
    {
        std::string text;
        expect("\"");
        for (;;) {
            char const character = takeCharacter();
            if (character == '"')
                return text;
            if (static_cast<unsigned char>(character) < 0x20)
                fail("a control character");
            text += character == '\\' ? parseEscape() : character;
        }
    }
    /// The writers that are tested escape characters of one byte only.
    char parseEscape()
    {
        static constexpr std::string_view NAMES = "\"\\/bfnrt", VALUES = "\"\\/\b\f\n\r\t";
        char const name = takeCharacter();
        if (auto const place = NAMES.find(name); place != NAMES.npos)
            return VALUES[place];
        unsigned code = 0;
        if (name != 'u' || _rest.size() < 4 ||
            std::from_chars(_rest.data(), _rest.data() + 4, code, 16).ptr != _rest.data() + 4 ||
            code > 0x7F)
            fail("a wrong escape");
        _rest.remove_prefix(4);
        return static_cast<char>(code);
    }
    double parseNumber()
    {
        double value = 0;
        bool const isNumber =
            !_rest.empty() && (_rest[0] == '-' || (_rest[0] >= '0' && _rest[0] <= '9')) &&
            !(_rest.size() > 1 && _rest[0] == '0' && _rest[1] >= '0' && _rest[1] <= '9');
        auto const end = std::from_chars(_rest.data(), _rest.data() + _rest.size(), value).ptr;
        if (!isNumber || end == _rest.data() || end[-1] == '.')
            fail("no value");
        _rest.remove_prefix(static_cast<std::size_t>(end - _rest.data()));
        return value;
    }

    std::string_view _whole;
    std::string_view _rest;
};

inline Json Json::parse(std::string_view text)
{
    return Parser(text).parseAll();
}

} // namespace ZvTest
