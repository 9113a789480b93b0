#include "tests/vector/text_model.h"

#include <cmath>

#include "frame/tavo_status.h"
#include "frame/tavo_vector.h"

namespace tavo::test {
namespace {

// -?digits[.digits][e[sign]digits], found well-formed before.
struct parts {
    bool negative = false;
    std::u16string mantissa;
    std::u16string before, behind;
    bool has_exponent = false;
    ub4 exponent = 0;
};
parts take_apart(const std::u16string &s) {
    parts p;
    std::size_t at = 0;
    if (s[at] == '+' || s[at] == '-')
        p.negative = s[at++] == '-';
    const std::size_t letter = s.find_first_of(u"eE");
    p.mantissa = s.substr(at, letter == s.npos ? s.npos : letter - at);
    const std::size_t point = p.mantissa.find(u'.');
    p.before = p.mantissa.substr(0, point);
    if (point != p.mantissa.npos)
        p.behind = p.mantissa.substr(point + 1);
    if (letter != s.npos) {
        p.has_exponent = true;
        std::size_t digit = letter + 1;
        const bool negative = s[digit] == '-';
        digit += s[digit] == '-' || s[digit] == '+';
        for (; digit < s.size(); digit++)
            p.exponent = p.exponent * 10 + (s[digit] - u'0');
        if (negative)
            p.exponent = -p.exponent;
    }
    return p;
}

} // namespace

double text_value(const std::u16string &number, std::size_t units) {
    const parts p = take_apart(number);
    double v = 0;
    if (units < 8) {
        static const double before[] = {1, 10, 100, 1000, 10000, 100000, 1000000};
        static const double behind[] = {0.1, 0.01, 0.001, 0.0001, 0.00001, 0.000001, 0.0000001};
        double t[8] = {};
        for (std::size_t i = 0; i < p.before.size(); i++)
            t[i] = (p.before[i] - u'0') * before[p.before.size() - 1 - i];
        for (std::size_t i = 0; i < p.behind.size(); i++)
            t[p.before.size() + 1 + i] = (p.behind[i] - u'0') * behind[i];
        v = ((t[0] + t[4]) + (t[2] + t[6])) + ((t[1] + t[5]) + (t[3] + t[7]));
    } else {
        for (const char16_t d : p.before)
            v = std::fma(v, 10.0, static_cast<double>(d - u'0'));
        double power = 10;
        for (const char16_t d : p.behind) {
            v = v + static_cast<double>(d - u'0') / power;
            power = power * 10;
        }
    }
    if (p.has_exponent)
        v *= std::pow(10.0, static_cast<double>(static_cast<sb4>(p.exponent)));
    return p.negative ? -v : v;
}

parsed_row text_model(const std::u16string &text, ub4 type, ub4 dims, ub8 room) {
    parsed_row out{TAVO_DONE, {}, 0};
    const auto failed = [&](ub4 status) {
        out.status = status;
        return out;
    };
    std::size_t at = 0;
    const auto more = [&] { return at < text.size(); };
    const auto is = [&](const char *of) {
        return more() && text[at] != 0 && text[at] < 128 && std::string(of).find(static_cast<char>(text[at])) < 80;
    };
    const auto run = [&](const char *of) {
        const std::size_t first = at;
        while (is(of))
            at++;
        return at - first;
    };
    run(" ");
    if (!is("["))
        return failed(TAVO_BAD_SHAPE);
    at++;
    for (;;) {
        const std::size_t start = at;
        run(" ");
        const std::size_t first = at;
        if (is("+-"))
            at++;
        std::size_t digits = run("0123456789");
        if (is(".")) {
            at++;
            digits += run("0123456789");
        }
        if (digits == 0)
            return failed(TAVO_BAD_NUMBER);
        if (is("eE")) {
            at++;
            if (is("+-"))
                at++;
            if (run("0123456789") == 0)
                return failed(TAVO_BAD_NUMBER);
        }
        const std::size_t last = at;
        run(" ");
        if (!more())
            return failed(TAVO_BAD_SHAPE);
        if (!is(",]"))
            return failed(TAVO_BAD_NUMBER);
        double v = text_value(text.substr(first, last - first), at - start);
        const float narrow = static_cast<float>(v);
        if (type == TAVO_ELEM_FLOAT    ? !std::isfinite(narrow)
            : type == TAVO_ELEM_DOUBLE ? !std::isfinite(v)
                                       : narrow < -128 || narrow > 127)
            return failed(TAVO_BAD_NUMBER);
        if (type == TAVO_ELEM_INT8)
            v = std::round(v);
        if (out.values.size() == room)
            return failed(TAVO_TEXT_FULL);
        out.values.push_back(v);
        out.squares = std::fma(v, v, out.squares);
        const bool closing = text[at++] == ']';
        if (dims == 0 ? closing : out.values.size() == dims) {
            if (!closing)
                return failed(TAVO_BAD_SHAPE);
            break;
        }
    }
    run(" ");
    return more() ? failed(TAVO_BAD_SHAPE) : out;
}

} // namespace tavo::test
