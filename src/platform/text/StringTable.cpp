#include "platform/text/StringTable.h"

#include <fstream>
#include <iterator>
#include <system_error>

namespace vexo::text {

namespace {

constexpr std::uintmax_t kMaxFileBytes = 1u << 20;

bool isBareWordCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("_$+/:.-").find(c) != std::string_view::npos;
}

void appendUtf8(std::string& out, char32_t code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

// Strict UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValidUtf8(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size()) {
        auto byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x80) {
            ++i;
            continue;
        }
        int length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC2 ? 2 : 0;
        if (length == 0 || byte > 0xF4 || i + length > text.size())
            return false;
        char32_t code = byte & (0x7F >> length);
        for (int k = 1; k < length; ++k) {
            auto next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80)
                return false;
            code = (code << 6) | (next & 0x3F);
        }
        if ((length == 3 && code < 0x800) || (length == 4 && (code < 0x10000 || code > 0x10FFFF)) ||
            (code >= 0xD800 && code <= 0xDFFF))
            return false;
        i += length;
    }
    return true;
}

class Parser {
public:
    explicit Parser(std::string_view text)
        : m_text(text) {}

    bool run(StringTable& table) {
        while (skipSpaceAndComments()) {
            std::string key, value;
            if (!readString(key))
                return false;
            if (!skipSpaceAndComments())
                return fail("expected '=' or ';' after the key");
            if (peek() == ';') {
                ++m_position;
                table.set(key, key);
                continue;
            }
            if (peek() != '=')
                return fail("expected '=' after the key");
            ++m_position;
            if (!skipSpaceAndComments())
                return fail("expected a value after '='");
            if (!readString(value))
                return false;
            if (!skipSpaceAndComments() || peek() != ';')
                return fail("expected ';' after the value");
            ++m_position;
            table.set(std::move(key), std::move(value));
        }
        return m_error.empty();
    }

    [[nodiscard]] std::string error() const { return m_error; }

private:
    char peek() const { return m_text[m_position]; }

    bool fail(std::string_view why) {
        if (m_error.empty())
            m_error = "line " + std::to_string(m_line) + ": " + std::string(why);
        return false;
    }

    // Moves past blanks and comments; false at the end of the text or on an unclosed comment.
    bool skipSpaceAndComments() {
        while (m_position < m_text.size()) {
            char c = peek();
            if (c == '\n') {
                ++m_line;
                ++m_position;
            } else if (c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v') {
                ++m_position;
            } else if (m_text.substr(m_position, 2) == "//") {
                while (m_position < m_text.size() && peek() != '\n')
                    ++m_position;
            } else if (m_text.substr(m_position, 2) == "/*") {
                std::size_t end = m_text.find("*/", m_position + 2);
                if (end == std::string_view::npos)
                    return fail("comment is not closed");
                for (std::size_t i = m_position; i < end; ++i)
                    m_line += m_text[i] == '\n';
                m_position = end + 2;
            } else {
                return true;
            }
        }
        return false;
    }

    bool readString(std::string& out) {
        if (peek() != '"') {
            std::size_t start = m_position;
            while (m_position < m_text.size() && isBareWordCharacter(peek()))
                ++m_position;
            if (m_position == start)
                return fail("expected a quoted string");
            out.assign(m_text.substr(start, m_position - start));
            return true;
        }
        ++m_position;
        while (m_position < m_text.size()) {
            char c = m_text[m_position++];
            if (c == '"')
                return true;
            if (c == '\n')
                ++m_line;
            if (c != '\\') {
                out += c;
                continue;
            }
            if (m_position >= m_text.size())
                break;
            if (!readEscape(out))
                return false;
        }
        return fail("string is not closed");
    }

    int hexDigits(std::size_t count) {
        if (m_position + count > m_text.size())
            return -1;
        int value = 0;
        for (std::size_t i = 0; i < count; ++i) {
            char c = m_text[m_position + i];
            int digit = c >= '0' && c <= '9'   ? c - '0'
                        : c >= 'a' && c <= 'f' ? c - 'a' + 10
                        : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                               : -1;
            if (digit < 0)
                return -1;
            value = value * 16 + digit;
        }
        m_position += count;
        return value;
    }

    bool readEscape(std::string& out) {
        char c = m_text[m_position++];
        switch (c) {
        case 'n':
            out += '\n';
            return true;
        case 't':
            out += '\t';
            return true;
        case 'r':
            out += '\r';
            return true;
        case 'a':
            out += '\a';
            return true;
        case 'b':
            out += '\b';
            return true;
        case 'f':
            out += '\f';
            return true;
        case 'v':
            out += '\v';
            return true;
        case 'U':
        case 'u': {
            int unit = hexDigits(4);
            if (unit < 0)
                return fail("\\U needs four hexadecimal digits");
            char32_t code = static_cast<char32_t>(unit);
            if (code >= 0xD800 && code <= 0xDBFF) {
                if (m_text.substr(m_position, 2) != "\\U" && m_text.substr(m_position, 2) != "\\u")
                    return fail("unpaired UTF-16 surrogate");
                m_position += 2;
                int low = hexDigits(4);
                if (low < 0xDC00 || low > 0xDFFF)
                    return fail("unpaired UTF-16 surrogate");
                code = 0x10000 + ((code - 0xD800) << 10) + (static_cast<char32_t>(low) - 0xDC00);
            } else if (code >= 0xDC00 && code <= 0xDFFF) {
                return fail("unpaired UTF-16 surrogate");
            }
            if (code == 0)
                return fail("NUL in a string");
            appendUtf8(out, code);
            return true;
        }
        default:
            if (c >= '0' && c <= '7') {
                int value = c - '0';
                for (int i = 0; i < 2 && m_position < m_text.size() && peek() >= '0' && peek() <= '7'; ++i)
                    value = value * 8 + (m_text[m_position++] - '0');
                if (value == 0)
                    return fail("NUL in a string");
                appendUtf8(out, static_cast<char32_t>(value));
                return true;
            }
            // \" \\ \' and any other escaped character stand for themselves.
            out += c;
            if (c == '\n')
                ++m_line;
            return true;
        }
    }

    std::string_view m_text;
    std::size_t m_position = 0;
    int m_line = 1;
    std::string m_error;
};

} // namespace

Expected<StringTable> StringTable::parse(std::string_view text) {
    if (text.starts_with("\xEF\xBB\xBF"))
        text.remove_prefix(3);
    if (!isValidUtf8(text))
        return Error(ErrorKind::InvalidData, "not valid UTF-8");
    if (text.find('\0') != std::string_view::npos)
        return Error(ErrorKind::InvalidData, "NUL in the text");
    StringTable table;
    Parser parser(text);
    if (!parser.run(table))
        return Error(ErrorKind::InvalidData, parser.error());
    return table;
}

Expected<StringTable> StringTable::load(const std::filesystem::path& path) {
    std::error_code code;
    std::uintmax_t size = std::filesystem::file_size(path, code);
    if (code) {
        return Error(code == std::errc::no_such_file_or_directory ? ErrorKind::NotFound : ErrorKind::SystemFailure,
                     code.message());
    }
    if (size > kMaxFileBytes)
        return Error(ErrorKind::TooLarge, "file is too large");
    std::ifstream file(path, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (!file && !file.eof())
        return Error(ErrorKind::SystemFailure, "cannot be read");
    return parse(text);
}

const std::string* StringTable::find(std::string_view key) const {
    auto found = m_entries.find(key);
    return found == m_entries.end() ? nullptr : &found->second;
}

void StringTable::set(std::string key, std::string value) {
    m_entries.insert_or_assign(std::move(key), std::move(value));
}

} // namespace vexo::text
