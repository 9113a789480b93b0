#include "host/query/predicate.h"

#include <algorithm>
#include <fmt/format.h>

#include "host/error.h"

namespace host {

comparison turned_round(comparison op) {
    constexpr comparison turned[] = {comparison::eq, comparison::ne, comparison::gt,
                                     comparison::ge, comparison::lt, comparison::le};
    return turned[static_cast<int>(op)];
}

namespace {

enum class token_kind { end, word, quoted, name, op, open, close, comma };

struct token {
    token_kind kind = token_kind::end;
    std::string text;
    std::size_t at = 0, end = 0;
};

bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

class parser {
public:
    explicit parser(std::string_view text) : source_(std::make_shared<const std::string>(text)), text_(*source_) {
        advance();
    }

    predicate whole() {
        predicate p = either();
        if (now_.kind == token_kind::close)
            fail("there is no '(' for this ')'");
        if (now_.kind != token_kind::end)
            fail("expected 'and', 'or' or the end (a value with spaces stands in 'quotes')");
        return p;
    }

private:
    [[noreturn]] void fail(const std::string &what) const { fail_at(text_, now_.at, what); }

    bool at_keyword(std::string_view keyword) const {
        return now_.kind == token_kind::word &&
               std::equal(now_.text.begin(), now_.text.end(), keyword.begin(), keyword.end(),
                          [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a - 'A' + 'a' : a) == b; });
    }
    bool take_keyword(std::string_view keyword) {
        const bool there = at_keyword(keyword);
        if (there)
            advance();
        return there;
    }
    void expect_keyword(std::string_view keyword) {
        if (!take_keyword(keyword))
            fail(fmt::format("expected '{}'", keyword));
    }
    bool at_any_keyword() const {
        for (const char *keyword : {"and", "or", "not", "between", "in", "is", "null"})
            if (at_keyword(keyword))
                return true;
        return false;
    }

    // Reads the next token into now_.
    void advance() {
        behind_ = now_.end;
        std::size_t i = now_.end;
        while (i < text_.size() && is_space(text_[i]))
            i++;
        now_ = {token_kind::end, "", i, i};
        if (i == text_.size())
            return;
        const char c = text_[i];
        auto single = [&](token_kind kind, std::size_t length) {
            now_ = {kind, std::string(text_.substr(i, length)), i, i + length};
        };
        if (c == '(')
            return single(token_kind::open, 1);
        if (c == ')')
            return single(token_kind::close, 1);
        if (c == ',')
            return single(token_kind::comma, 1);
        // What other languages write.
        for (const auto &[written, meant] : {std::pair("===", "="),
                                             {"==", "="},
                                             {"=>", ">="},
                                             {"=<", "<="},
                                             {"=!", "<>"},
                                             {"&&", "and"},
                                             {"||", "or"}})
            if (text_.substr(i).starts_with(written))
                fail(fmt::format("'{}' is written '{}' here", written, meant));
        for (const char *op : {"<=", ">=", "<>", "!=", "<", ">", "="})
            if (text_.substr(i).starts_with(op))
                return single(token_kind::op, std::string_view(op).size());
        if (c == '\'' || c == '"') {
            now_.kind = c == '"' ? token_kind::name : token_kind::quoted;
            for (std::size_t j = i + 1; j < text_.size(); j++) {
                if (text_[j] != c) {
                    now_.text += text_[j];
                } else if (j + 1 < text_.size() && text_[j + 1] == c) {
                    now_.text += c;
                    j++;
                } else {
                    now_.end = j + 1;
                    return;
                }
            }
            fail("this quote is never closed");
        }
        std::size_t j = i;
        while (j < text_.size() && !is_space(text_[j]) &&
               std::string_view("(),<>=!'\"").find(text_[j]) == std::string_view::npos)
            j++;
        if (j == i)
            fail("expected a column, a value or an operator");
        now_ = {token_kind::word, std::string(text_.substr(i, j - i)), i, j};
    }

    predicate join(predicate_kind kind, const char *keyword, predicate (parser::*operand)()) {
        const std::size_t begin = now_.at;
        predicate first = (this->*operand)();
        if (!at_keyword(keyword))
            return first;
        predicate all;
        all.kind = kind;
        all.operands.push_back(std::move(first));
        while (take_keyword(keyword))
            all.operands.push_back((this->*operand)());
        all.text = text_.substr(begin, behind_ - begin);
        return all;
    }
    predicate either() { return join(predicate_kind::or_, "or", &parser::both); }
    predicate both() { return join(predicate_kind::and_, "and", &parser::factor); }

    predicate factor() {
        if (depth_ == 200)
            fail("this is nested too deeply");
        depth_++;
        predicate p;
        const std::size_t begin = now_.at;
        if (take_keyword("not")) {
            p.kind = predicate_kind::not_;
            p.operands.push_back(factor());
            p.text = text_.substr(begin, behind_ - begin);
        } else if (now_.kind == token_kind::open) {
            advance();
            p = either();
            if (now_.kind != token_kind::close)
                fail("expected ')'");
            advance();
        } else {
            p = condition();
            p.text = text_.substr(begin, behind_ - begin);
        }
        depth_--;
        return p;
    }

    static literal literal_of(token t) {
        return {std::move(t.text), t.at,
                t.kind == token_kind::quoted ? word_kind::quoted
                : t.kind == token_kind::name ? word_kind::name
                                             : word_kind::plain};
    }
    // A word or quoted text that may turn out to be a column or a value.
    literal operand(const char *what) {
        if (now_.kind != token_kind::word && now_.kind != token_kind::quoted && now_.kind != token_kind::name)
            fail(fmt::format("expected {}", what));
        literal l = literal_of(now_);
        advance();
        return l;
    }
    // What can only be a column, or the left side of a comparison.
    literal left_side() {
        if (at_any_keyword())
            fail(fmt::format("expected a column; '{}' has a meaning here, a column of that name stands in \"double "
                             "quotes\"",
                             now_.text));
        return operand("a column");
    }
    // A value, or the right side of a comparison: a keyword is a text if what follows can follow a value.
    literal right_side() {
        if (at_keyword("null"))
            fail("nothing compares with null: write 'is null' or 'is not null' (the text stands in 'quotes')");
        if (at_any_keyword()) {
            const token keyword = now_;
            const std::size_t behind = behind_;
            advance();
            const bool value = now_.kind == token_kind::end || now_.kind == token_kind::close ||
                               now_.kind == token_kind::comma || at_keyword("and") || at_keyword("or");
            if (value)
                return literal_of(keyword);
            now_ = keyword;
            behind_ = behind;
            fail(fmt::format("expected a value; '{}' has a meaning here, as a text it stands in 'quotes'", now_.text));
        }
        return operand("a value");
    }
    literal value() {
        if (now_.kind == token_kind::name)
            fail("a value stands in 'single quotes', \"double quotes\" are for columns");
        return right_side();
    }
    void set_column(predicate &p, literal column) const {
        p.source = source_;
        p.column = std::move(column);
    }

    static comparison comparison_of(const std::string &op) {
        return op == "="    ? comparison::eq
               : op == "<"  ? comparison::lt
               : op == "<=" ? comparison::le
               : op == ">"  ? comparison::gt
               : op == ">=" ? comparison::ge
                            : comparison::ne;
    }

    predicate condition() {
        const literal first = left_side();
        predicate p;
        if (now_.kind == token_kind::op)
            return comparison_behind(first);
        if (first.kind == word_kind::quoted)
            fail_at(text_, first.at, "a column stands here, plain or in \"double quotes\"");
        set_column(p, first);
        if (take_keyword("is")) {
            const bool negated = take_keyword("not");
            expect_keyword("null");
            p.kind = predicate_kind::is_null;
            return negated ? negation(std::move(p), first.at) : p;
        }
        const bool negated = take_keyword("not");
        if (take_keyword("between")) {
            p.kind = predicate_kind::range;
            p.values.push_back(value());
            expect_keyword("and");
            p.values.push_back(value());
        } else if (take_keyword("in")) {
            p.kind = predicate_kind::in;
            if (now_.kind != token_kind::open)
                fail("expected '(' and a list of values");
            do {
                advance();
                p.values.push_back(value());
            } while (now_.kind == token_kind::comma);
            if (now_.kind != token_kind::close)
                fail("expected ',' or ')'");
            advance();
        } else {
            fail(negated ? "expected 'between' or 'in'"
                         : "expected a comparison, 'between', 'in' or 'is' behind the column");
        }
        return negated ? negation(std::move(p), first.at) : p;
    }
    predicate negation(predicate p, std::size_t begin) const {
        predicate n;
        n.kind = predicate_kind::not_;
        p.text = n.text = text_.substr(begin, behind_ - begin);
        n.operands.push_back(std::move(p));
        return n;
    }

    // At the operator behind `first`: `left op right`, or `value op column op value` with both ops the same way round.
    predicate comparison_behind(const literal &first) {
        const comparison op = comparison_of(now_.text);
        advance();
        literal second = right_side();
        predicate p;
        if (now_.kind != token_kind::op) {
            set_column(p, first);
            p.op = op;
            p.values.push_back(std::move(second));
            return p;
        }
        const comparison upper = comparison_of(now_.text);
        const bool rising = op == comparison::lt || op == comparison::le;
        const bool falling = op == comparison::gt || op == comparison::ge;
        if (!(rising && (upper == comparison::lt || upper == comparison::le)) &&
            !(falling && (upper == comparison::gt || upper == comparison::ge)))
            fail("only < and <=, or > and >=, can stand on both sides of a column");
        if (first.kind == word_kind::name)
            fail_at(text_, first.at, "the column stands between the two operators");
        if (second.kind == word_kind::quoted)
            fail_at(text_, second.at, "a column stands here, plain or in \"double quotes\"");
        advance();
        p.kind = predicate_kind::range;
        set_column(p, std::move(second));
        p.values = {first, value()};
        p.low_open = op == comparison::lt || op == comparison::gt;
        p.high_open = upper == comparison::lt || upper == comparison::gt;
        if (falling) {
            std::swap(p.values[0], p.values[1]);
            std::swap(p.low_open, p.high_open);
        }
        return p;
    }

    std::shared_ptr<const std::string> source_;
    std::string_view text_;
    token now_;
    std::size_t behind_ = 0; // where the token before now_ ended
    unsigned depth_ = 0;
};

} // namespace

void fail_at(std::string_view text, std::size_t at, const std::string &what, const std::string &behind) {
    std::string shown(text);
    for (char &c : shown)
        if (is_space(c))
            c = ' '; // one line, so that the mark stands under its place
    // The mark goes by characters: continuation bytes of UTF-8 take no room.
    const auto before = std::count_if(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(at),
                                      [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; });
    throw error(
        fmt::format("{}\n  {}\n  {}^{}", what, shown, std::string(static_cast<std::size_t>(before), ' '), behind));
}

predicate parse_predicate(std::string_view text) { return parser(text).whole(); }

std::vector<std::string> columns_of(const predicate &p) {
    if (p.operands.empty()) {
        if (p.kind == predicate_kind::columns && p.other.text != p.column.text)
            return {p.column.text, p.other.text};
        return {p.column.text};
    }
    std::vector<std::string> all;
    for (const predicate &operand : p.operands)
        for (std::string &name : columns_of(operand))
            if (std::find(all.begin(), all.end(), name) == all.end())
                all.push_back(std::move(name));
    return all;
}

} // namespace host
