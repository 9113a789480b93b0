// The arguments of CREATE VIRTUAL TABLE ... USING tavo(...).
#include <fmt/format.h>

#include "host/column/names.h"
#include "host/error.h"
#include "host/sqlite/relation.h"

namespace host::sqlite {

namespace {

// The text of 'a text', "one", or a plain word.
std::string unquoted(std::string_view text) {
    text = trimmed(text);
    if (text.size() < 2 || (text[0] != '\'' && text[0] != '"') || text.back() != text[0])
        return std::string(text);
    std::string out;
    for (std::size_t i = 1; i + 1 < text.size(); i++) {
        out += text[i];
        if (text[i] == text[0] && i + 2 < text.size() && text[i + 1] == text[0])
            i++;
    }
    return out;
}

std::vector<std::string> list_of(const std::string &text) {
    std::vector<std::string> parts;
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find(',', at), text.size());
        parts.emplace_back(trimmed(std::string_view(text).substr(at, end - at)));
        at = end + 1;
    }
    return parts;
}

bool switched_on(const std::string &name, const std::string &value) {
    if (value == "yes" || value == "on" || value == "1" || value == "true")
        return true;
    if (value == "no" || value == "off" || value == "0" || value == "false")
        return false;
    throw error(fmt::format("{}='{}': it is 'yes' or 'no'", name, value));
}

} // namespace

relation_source source_of(int count, const char *const *arguments) {
    static const std::vector<std::string> names = {"file", "select", "encode", "type", "null", "delimiter", "header"};
    relation_source source;
    for (int i = 3; i < count; i++) { // behind the module's, the database's and the table's name
        const std::string_view argument = trimmed(arguments[i]);
        const std::size_t equals = argument.find('=');
        if (equals == argument.npos)
            throw error(fmt::format("'{}' is no argument of tavo: they are written name='value'", argument));
        const auto name = find_name(trimmed(argument.substr(0, equals)), names);
        if (!name)
            throw error(fmt::format("tavo has no argument {}{}", trimmed(argument.substr(0, equals)),
                                    instead_of(argument.substr(0, equals), names, "arguments")));
        const std::string value = unquoted(argument.substr(equals + 1));
        switch (*name) {
        case 0: source.file = value; break;
        case 1: source.select = value; break;
        case 2: source.encode = list_of(value); break;
        case 3: source.types = list_of(value); break;
        case 4: source.options.null_texts = list_of(value); break;
        case 5:
            if (value != "tab" && (value.size() != 1 || value == "\"" || value == "\n" || value == "\r"))
                throw error(fmt::format(
                    "delimiter='{}': a single character that neither quotes nor ends a line, or tab", value));
            source.csv.delimiter = value == "tab" ? '\t' : value[0];
            break;
        default: source.csv.header = switched_on("header", value); break;
        }
        source.as_written += fmt::format("{}={}\n", names[*name], value);
    }
    if (source.file.empty() == source.select.empty())
        throw error("tavo needs either file='a.csv' or select='SELECT ...'");
    if (source.file == "-")
        throw error("file='-': standard input cannot be read again when the database is opened again");
    return source;
}

} // namespace host::sqlite
