#include "platform/plist/XmlPropertyList.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>
#include <vector>

#include "platform/plist/Base64.h"
#include "platform/plist/BinaryPropertyListWriter.h"
#include "platform/plist/KeyedArchiveFormat.h"
#include "platform/plist/Utf.h"

namespace vexo::plist {
namespace {

using Reference = BinaryPropertyListWriter::Reference;

constexpr std::string_view kUidKey = "CF$UID";
// Seconds from 1970-01-01 to the platform's reference date 2001-01-01.
constexpr double kReferenceDateUnixSeconds = 978307200.0;

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

// Days from 1970-01-01 to the given civil date (proleptic Gregorian calendar).
std::int64_t daysFromCivil(std::int64_t year, unsigned month, unsigned day) {
    year -= month <= 2;
    const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
    const auto yearOfEra = static_cast<unsigned>(year - era * 400);
    const unsigned dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + static_cast<std::int64_t>(dayOfEra) - 719468;
}

template <typename T> bool parseDecimal(std::string_view text, T& value) {
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

// "YYYY-MM-DDTHH:MM:SSZ", as property lists write dates.
std::optional<double> parseDate(std::string_view text) {
    text = trimmed(text);
    if (text.size() != 20 || text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' ||
        text[16] != ':' || text[19] != 'Z')
        return std::nullopt;
    int year = 0;
    unsigned month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (!parseDecimal(text.substr(0, 4), year) || !parseDecimal(text.substr(5, 2), month) ||
        !parseDecimal(text.substr(8, 2), day) || !parseDecimal(text.substr(11, 2), hour) ||
        !parseDecimal(text.substr(14, 2), minute) || !parseDecimal(text.substr(17, 2), second))
        return std::nullopt;
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60)
        return std::nullopt;
    const double unixSeconds =
        static_cast<double>(daysFromCivil(year, month, day)) * 86400.0 + hour * 3600.0 + minute * 60.0 + second;
    return unixSeconds - kReferenceDateUnixSeconds;
}

std::optional<Integer> parseInteger(std::string_view text) {
    text = trimmed(text);
    bool negative = false;
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    std::uint64_t magnitude = 0;
    if (text.empty() || !parseDecimal(text, magnitude))
        return std::nullopt;
    if (!negative)
        return Integer::fromUnsigned(magnitude);
    if (magnitude > std::uint64_t{1} << 63)
        return std::nullopt;
    return Integer::fromSigned(static_cast<std::int64_t>(0 - magnitude));
}

std::optional<double> parseReal(std::string_view text) {
    text = trimmed(text);
    bool negative = false;
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    double value = 0;
    if (text == "inf" || text == "infinity")
        value = std::numeric_limits<double>::infinity();
    else if (text == "nan")
        value = std::numeric_limits<double>::quiet_NaN();
    else if (text.empty() || !parseDecimal(text, value))
        return std::nullopt;
    return negative ? -value : value;
}

// Abandons a parse from anywhere in the reader; caught in toBinary(), never escapes it.
struct ParseError {
    std::string reason;
    ErrorKind kind;
};

[[noreturn]] void fail(std::string reason, ErrorKind kind = ErrorKind::InvalidData) {
    throw ParseError{std::move(reason), kind};
}

// The XML subset that property lists use: elements without meaningful attributes, character
// data with the five predefined entities and numeric character references, CDATA sections,
// comments, processing instructions and a document type declaration.
class Reader {
public:
    explicit Reader(std::string_view text)
        : m_text(text) {}

    // Drives the reader: closing tags of containers are handled here, everything else by
    // the element handlers.
    Data run() {
        Reference top = 0;
        bool haveTop = false;
        auto deliver = [&](Reference object) {
            if (m_frames.empty()) {
                if (haveTop)
                    fail("more than one top-level value");
                top = object;
                haveTop = true;
            } else {
                addToFrame(object);
            }
        };
        while (skipToTag()) {
            const Tag tag = readTag();
            if (tag.name == "plist")
                continue;
            if (tag.closing) {
                if ((tag.name != "array" && tag.name != "dict") || m_frames.empty() ||
                    m_frames.back().isDictionary != (tag.name == "dict"))
                    fail("unexpected </" + std::string(tag.name) + ">");
                closeFrame();
            } else if (const auto value = openElement(tag)) {
                deliver(*value);
            }
            while (!m_finished.empty()) {
                const Reference finished = m_finished.back();
                m_finished.pop_back();
                deliver(finished);
            }
        }
        if (!m_frames.empty())
            fail("unclosed container");
        if (!haveTop)
            fail("no value in the property list");
        return m_writer.finish(top);
    }

private:
    struct Tag {
        std::string_view name;
        bool closing = false;
        bool empty = false;
    };

    struct Frame {
        bool isDictionary = false;
        std::vector<Reference> keys;
        std::vector<Reference> values;
        bool expectingKey = true;
        // Enough to recognise {"CF$UID": n}, which stands for a UID.
        bool firstKeyIsUid = false;
        std::optional<std::uint64_t> firstValueInteger;
    };

    // Advances to the next element tag, skipping character data between elements, comments,
    // processing instructions and the document type. False at the end of the text.
    bool skipToTag() {
        while (true) {
            const auto open = m_text.find('<', m_position);
            if (open == std::string_view::npos) {
                m_position = m_text.size();
                return false;
            }
            m_position = open;
            if (skipMarkup())
                continue;
            return true;
        }
    }

    // Skips a comment, processing instruction or declaration at m_position; false when the
    // markup there is an element tag.
    bool skipMarkup() {
        const std::string_view rest = m_text.substr(m_position);
        if (rest.starts_with("<!--"))
            return skipPast("-->");
        if (rest.starts_with("<?"))
            return skipPast("?>");
        if (rest.starts_with("<![CDATA["))
            fail("character data outside an element");
        if (rest.starts_with("<!")) {
            // A document type may carry an internal subset in brackets.
            const auto bracket = rest.find('[');
            const auto close = rest.find('>');
            if (bracket != std::string_view::npos && bracket < close)
                return skipPast("]>");
            return skipPast(">");
        }
        return false;
    }

    bool skipPast(std::string_view terminator) {
        const auto end = m_text.find(terminator, m_position);
        if (end == std::string_view::npos)
            fail("unterminated markup");
        m_position = end + terminator.size();
        return true;
    }

    Tag readTag() {
        const auto close = m_text.find('>', m_position);
        if (close == std::string_view::npos)
            fail("unterminated tag");
        std::string_view inside = m_text.substr(m_position + 1, close - m_position - 1);
        m_position = close + 1;
        Tag tag;
        if (!inside.empty() && inside.front() == '/') {
            tag.closing = true;
            inside.remove_prefix(1);
        }
        if (!inside.empty() && inside.back() == '/') {
            tag.empty = true;
            inside.remove_suffix(1);
        }
        std::size_t nameEnd = 0;
        while (nameEnd < inside.size() && !isBlank(inside[nameEnd]))
            ++nameEnd;
        tag.name = inside.substr(0, nameEnd);
        if (tag.name.empty())
            fail("empty tag");
        return tag;
    }

    // Handles an opening tag. A leaf element is read whole and its object returned; a
    // container pushes a frame (or, when empty, is finished at once).
    std::optional<Reference> openElement(const Tag& tag) {
        const std::string_view name = tag.name;
        if (name == "array" || name == "dict") {
            if (m_frames.size() >= archive::kMaxNestingDepth)
                fail("nesting deeper than " + std::to_string(archive::kMaxNestingDepth), ErrorKind::TooLarge);
            Frame frame;
            frame.isDictionary = name == "dict";
            m_frames.push_back(std::move(frame));
            if (tag.empty)
                closeFrame();
            return std::nullopt;
        }
        if (name == "true" || name == "false") {
            if (!tag.empty)
                readText(name);
            return m_writer.addBoolean(name == "true");
        }
        const std::string text = tag.empty ? std::string() : readText(name);
        if (name == "key") {
            noteKey(text);
            return m_writer.addString(text);
        }
        if (name == "string")
            return m_writer.addString(text);
        if (name == "integer") {
            const auto integer = parseInteger(text);
            if (!integer)
                fail("malformed integer '" + text + "'");
            noteInteger(*integer);
            return m_writer.addInteger(*integer);
        }
        if (name == "real") {
            const auto real = parseReal(text);
            if (!real)
                fail("malformed real '" + text + "'");
            return m_writer.addReal(Real{*real, false});
        }
        if (name == "date") {
            const auto date = parseDate(text);
            if (!date)
                fail("malformed date '" + text + "'");
            return m_writer.addDate(Date{*date});
        }
        if (name == "data") {
            const auto bytes = base64::decode(text);
            if (!bytes)
                fail("malformed base64 data");
            return m_writer.addData(*bytes);
        }
        if (name == "/array" || name == "/dict")
            fail("stray closing tag");
        fail("unknown element <" + std::string(name) + ">");
    }

    // Reads the character data of a leaf element up to its closing tag.
    std::string readText(std::string_view name) {
        std::string text;
        while (true) {
            const auto open = m_text.find('<', m_position);
            if (open == std::string_view::npos)
                fail("unterminated <" + std::string(name) + ">");
            appendDecoded(text, m_text.substr(m_position, open - m_position));
            m_position = open;
            const std::string_view rest = m_text.substr(m_position);
            if (rest.starts_with("<![CDATA[")) {
                const auto end = rest.find("]]>");
                if (end == std::string_view::npos)
                    fail("unterminated CDATA section");
                text.append(rest.substr(9, end - 9));
                m_position += end + 3;
                continue;
            }
            if (rest.starts_with("<!--")) {
                skipPast("-->");
                continue;
            }
            const Tag tag = readTag();
            if (!tag.closing || tag.name != name)
                fail("<" + std::string(name) + "> holds markup");
            return text;
        }
    }

    static void appendDecoded(std::string& out, std::string_view raw) {
        while (!raw.empty()) {
            const auto amp = raw.find('&');
            out.append(raw.substr(0, amp));
            if (amp == std::string_view::npos)
                return;
            raw.remove_prefix(amp);
            const auto semicolon = raw.find(';');
            if (semicolon == std::string_view::npos)
                fail("unterminated entity");
            appendEntity(out, raw.substr(1, semicolon - 1));
            raw.remove_prefix(semicolon + 1);
        }
    }

    static void appendEntity(std::string& out, std::string_view entity) {
        if (entity == "lt")
            out.push_back('<');
        else if (entity == "gt")
            out.push_back('>');
        else if (entity == "amp")
            out.push_back('&');
        else if (entity == "quot")
            out.push_back('"');
        else if (entity == "apos")
            out.push_back('\'');
        else if (entity.starts_with("#")) {
            const bool hex = entity.size() > 1 && (entity[1] == 'x' || entity[1] == 'X');
            const std::string_view digits = entity.substr(hex ? 2 : 1);
            std::uint32_t code = 0;
            const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), code, hex ? 16 : 10);
            if (digits.empty() || result.ec != std::errc() || result.ptr != digits.data() + digits.size() ||
                code == 0 || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
                fail("malformed character reference");
            utf::appendUtf8(out, code);
        } else {
            fail("unknown entity &" + std::string(entity) + ";");
        }
    }

    void noteKey(const std::string& key) {
        if (!m_frames.empty() && m_frames.back().isDictionary && m_frames.back().keys.empty())
            m_frames.back().firstKeyIsUid = key == kUidKey;
        m_pendingKey = true;
    }

    void noteInteger(Integer integer) {
        if (!m_frames.empty() && m_frames.back().isDictionary && m_frames.back().keys.size() == 1 &&
            m_frames.back().values.empty() && !integer.isUnsigned && integer.asSigned() >= 0)
            m_frames.back().firstValueInteger = integer.bits;
    }

    void addToFrame(Reference object) {
        Frame& frame = m_frames.back();
        if (!frame.isDictionary) {
            if (m_pendingKey)
                fail("<key> inside an array");
            frame.values.push_back(object);
            return;
        }
        if (frame.expectingKey) {
            if (!m_pendingKey)
                fail("a dictionary value without a key");
            frame.keys.push_back(object);
        } else {
            if (m_pendingKey)
                fail("two keys in a row");
            frame.values.push_back(object);
        }
        frame.expectingKey = !frame.expectingKey;
        m_pendingKey = false;
    }

    // Handles a closing </array> or </dict>: turns the innermost frame into an object.
    void closeFrame() {
        Frame frame = std::move(m_frames.back());
        m_frames.pop_back();
        if (frame.isDictionary && !frame.expectingKey)
            fail("a dictionary key without a value");
        Reference object;
        if (!frame.isDictionary)
            object = m_writer.addArray(frame.values);
        else if (frame.keys.size() == 1 && frame.firstKeyIsUid && frame.firstValueInteger)
            object = m_writer.addUid(*frame.firstValueInteger);
        else
            object = m_writer.addDictionary(frame.keys, frame.values);
        m_finished.push_back(object);
    }

private:
    std::string_view m_text;
    std::size_t m_position = 0;
    std::vector<Frame> m_frames;
    std::vector<Reference> m_finished;
    bool m_pendingKey = false;
    BinaryPropertyListWriter m_writer;
};

std::string_view afterBomAndBlanks(std::span<const std::uint8_t> bytes) {
    std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (text.starts_with("\xEF\xBB\xBF"))
        text.remove_prefix(3);
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    return text;
}

} // namespace

bool XmlPropertyList::hasSignature(std::span<const std::uint8_t> bytes) {
    const std::string_view text = afterBomAndBlanks(bytes);
    return text.starts_with("<?xml") || text.starts_with("<!DOCTYPE plist") || text.starts_with("<plist");
}

Expected<Data> XmlPropertyList::toBinary(std::span<const std::uint8_t> bytes) {
    try {
        return Reader(afterBomAndBlanks(bytes)).run();
    } catch (const ParseError& parseError) {
        return Error(parseError.kind, "XML property list: " + parseError.reason);
    }
}

} // namespace vexo::plist
