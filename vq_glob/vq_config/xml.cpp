// Writing a handle as XML, for tools that read XML (it is never read back):
// an optional header, the root element, one element per section and, inside
// it, one element per field, a multi-line value as one <line> element per
// element. Values are escaped; names are made legal tag names, and every
// repair is told by a comment before the element that gives the name as it
// was.
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "vq_config/conf_state.h"

namespace vq::conf {

namespace {

constexpr char kHeaderFormat[] =
    "<?xml version='1.0'?>\n<!-- This XML file was produced by Velquist Inc.-->\n"
    "<!-- XML Processor Built at %s %s -->\n";

constexpr char kIllegalCharsComment[] =
    "<!--The specified xml text was in original not well-formed.\n"
    "The original name [%s] contained invalid characters.\n"
    "A name which contains one of the characters: {  %s  } is illegal.\n%s -->\n";
constexpr char kReplacedSentence[] = "Those characters were replaced by ' _ '.";
constexpr char kLeadingDigitComment[] =
    "<!--The specified xml text was in original not well-formed.\n"
    "The original name [%s] started with a number.\n"
    "To avoid that, a character ' _ ' was added at the beginning.-->\n";
constexpr char kLeadingXmlComment[] =
    "<!--The specified xml text was in original not well-formed.\n"
    "The original name [%s] contained the name \"xml\", which is reserved and must be lowercase.\n"
    "To avoid that, a character ' _ ' was added at the beginning.-->\n";

// Tag names hold only what an XML name may: the characters below, the
// blanks, the controls, ":" (a namespace prefix nobody declared) and every
// other character outside XML's name ranges become "_". The library's own
// tables name fields with blanks, and "_" keeps such names readable as one
// word. The comment before a repaired element names the set.
constexpr char kIllegalCharsShown[] =
    "] [ ! $ * + , ; = @ { } ( ) | ~ < > ? / & \\ ' \" # % ^ ` : and blanks";

// U+FFFD, what stands for a character that XML cannot carry.
constexpr char kReplacement[] = "\xEF\xBF\xBD";

void appendf(std::string &out, const char *format, ...) VQ_PRINTF(2, 3);

void appendf(std::string &out, const char *format, ...) {
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    int size = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    if (size > 0) {
        size_t at = out.size();
        out.resize(at + static_cast<size_t>(size) + 1);
        std::vsnprintf(out.data() + at, static_cast<size_t>(size) + 1, format, again);
        out.resize(at + static_cast<size_t>(size));
    }
    va_end(again);
}

// ---- Characters -----------------------------------------------------------------

constexpr char32_t kNotUtf8 = 0xFFFFFFFF;

// One character of text taken as UTF-8.
struct Char {
    char32_t code;  // kNotUtf8 for a byte that begins no valid sequence
    size_t length;  // bytes taken: 1 for such a byte, so that decoding resumes after it
};

bool is_continuation(std::string_view text, size_t at) {
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
}

// The character at text[at]. Overlong forms, surrogates, values past
// U+10FFFF, stray continuation bytes and sequences cut short are not UTF-8.
Char next_char(std::string_view text, size_t at) {
    auto byte = [&](size_t i) { return static_cast<unsigned char>(text[at + i]); };
    unsigned char lead = byte(0);
    if (lead < 0x80) {
        return {lead, 1};
    }
    size_t length = lead >= 0xC2 && lead <= 0xDF ? 2 : lead >= 0xE0 && lead <= 0xEF ? 3 : lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;
    for (size_t i = 1; i < length; ++i) {
        if (!is_continuation(text, at + i)) {
            return {kNotUtf8, 1};
        }
    }
    switch (length) {
        case 2:
            return {static_cast<char32_t>((lead & 0x1F) << 6 | (byte(1) & 0x3F)), 2};
        case 3: {
            char32_t code = static_cast<char32_t>((lead & 0x0F) << 12 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F));
            bool valid = code >= 0x800 && (code < 0xD800 || code > 0xDFFF);
            return valid ? Char{code, 3} : Char{kNotUtf8, 1};
        }
        case 4: {
            char32_t code = static_cast<char32_t>((lead & 0x07) << 18 | (byte(1) & 0x3F) << 12 | (byte(2) & 0x3F) << 6 |
                                                  (byte(3) & 0x3F));
            bool valid = code >= 0x10000 && code <= 0x10FFFF;
            return valid ? Char{code, 4} : Char{kNotUtf8, 1};
        }
        default:
            return {kNotUtf8, 1};
    }
}

// XML's Char production: what a document may hold at all.
bool is_xml_char(char32_t c) {
    return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) || (c >= 0xE000 && c <= 0xFFFD) ||
           (c >= 0x10000 && c <= 0x10FFFF);
}

// Characters a value shows as a reference: the white space that a parser
// would otherwise normalise, and the controls, which XML allows but nobody
// wants to meet as they are.
bool is_referenced(char32_t c) { return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x7F && c <= 0x9F); }

// XML's NameStartChar, without ":".
bool is_name_start(char32_t c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || (c >= 0xC0 && c <= 0xD6) ||
           (c >= 0xD8 && c <= 0xF6) || (c >= 0xF8 && c <= 0x2FF) || (c >= 0x370 && c <= 0x37D) ||
           (c >= 0x37F && c <= 0x1FFF) || (c >= 0x200C && c <= 0x200D) || (c >= 0x2070 && c <= 0x218F) ||
           (c >= 0x2C00 && c <= 0x2FEF) || (c >= 0x3001 && c <= 0xD7FF) || (c >= 0xF900 && c <= 0xFDCF) ||
           (c >= 0xFDF0 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0xEFFFF);
}

// XML's NameChar, without ":".
bool is_name_char(char32_t c) {
    return is_name_start(c) || c == '-' || c == '.' || (c >= '0' && c <= '9') || c == 0xB7 ||
           (c >= 0x300 && c <= 0x36F) || (c >= 0x203F && c <= 0x2040);
}

// Text that a comment may hold: characters XML cannot carry become U+FFFD,
// and "--", which would end the comment early, is split by a blank.
std::string shown_in_comment(std::string_view name) {
    std::string shown;
    for (size_t at = 0; at < name.size();) {
        Char c = next_char(name, at);
        if (c.code == kNotUtf8 || !is_xml_char(c.code)) {
            shown += kReplacement;
        } else {
            if (c.code == '-' && !shown.empty() && shown.back() == '-') {
                shown += ' ';
            }
            shown.append(name.substr(at, c.length));
        }
        at += c.length;
    }
    return shown;
}

// A legal tag for name, with the comments that tell each repair.
struct Tag {
    std::string name;
    std::string comments;
};

Tag legal_tag(std::string_view name) {
    Tag tag;
    bool replaced = name.empty();
    for (size_t at = 0; at < name.size();) {
        Char c = next_char(name, at);
        // A digit first is its own repair below; "-", "." and the other
        // name characters that may not begin a name are replaced.
        bool first = tag.name.empty();
        bool legal = c.code != kNotUtf8 && (first ? is_name_start(c.code) || (c.code >= '0' && c.code <= '9')
                                                  : is_name_char(c.code));
        if (legal) {
            tag.name.append(name, at, c.length);
        } else {
            tag.name += '_';
            replaced = true;
        }
        at += c.length;
    }
    if (tag.name.empty()) {
        tag.name = "_";
    }
    std::string shown = shown_in_comment(name);
    if (replaced) {
        appendf(tag.comments, kIllegalCharsComment, shown.c_str(), kIllegalCharsShown, kReplacedSentence);
    }
    if (ascii::is_digit(tag.name[0])) {
        tag.name.insert(0, 1, '_');
        appendf(tag.comments, kLeadingDigitComment, shown.c_str());
    } else if (ascii::starts_with_nocase(tag.name, "xml")) {
        tag.name.insert(0, 1, '_');
        appendf(tag.comments, kLeadingXmlComment, shown.c_str());
    }
    return tag;
}

// The value as character data: the five markup characters as entities, the
// characters of is_referenced as references, and whatever XML cannot carry
// (other controls, bytes that are not UTF-8, U+FFFE and U+FFFF) as U+FFFD.
void append_escaped(std::string &out, std::string_view value) {
    for (size_t at = 0; at < value.size();) {
        Char c = next_char(value, at);
        switch (c.code) {
            case '&': out += "&amp;"; break;
            case '\'': out += "&apos;"; break;
            case '>': out += "&gt;"; break;
            case '<': out += "&lt;"; break;
            case '"': out += "&quot;"; break;
            default:
                if (c.code == kNotUtf8 || !is_xml_char(c.code)) {
                    out += kReplacement;
                } else if (is_referenced(c.code)) {
                    appendf(out, "&#%u;", static_cast<unsigned>(c.code));
                } else {
                    out.append(value.substr(at, c.length));
                }
                break;
        }
        at += c.length;
    }
}

// A scalar as "\t<name>value</name>\n"; a multi-line value as "\t<name>\n",
// "\t   <line>element</line>\n" per element and "\t</name>\n".
bool format_field(Handle &h, const Section &s, const Field &f, std::string &xml) {
    std::vector<std::string> texts;
    if (!field_output_texts(h, s, f, texts)) {
        return false;
    }
    Tag tag = legal_tag(f.name());
    xml += tag.comments;
    if (!is_multi_line(f.type)) {
        xml += "\t<" + tag.name + ">";
        append_escaped(xml, texts.empty() ? std::string() : texts.front());
        xml += "</" + tag.name + ">\n";
        return true;
    }
    xml += "\t<" + tag.name + ">\n";
    for (const std::string &element : texts) {
        xml += "\t   <line>";
        append_escaped(xml, element);
        xml += "</line>\n";
    }
    xml += "\t</" + tag.name + ">\n";
    return true;
}

bool format_section(Handle &h, Section &s, std::string &xml) {
    Tag tag = legal_tag(s.name());
    xml += tag.comments;
    xml += "<" + tag.name + ">\n";
    for (Field &f : s.fields) {
        if (!skipped_on_write(h, s, &f) && !format_field(h, s, f, xml)) {
            return false;
        }
    }
    xml += "</" + tag.name + ">\n";
    return true;
}

// Appends text to out, each "\n" as "\r\n" when crlf, as a text-mode file
// on Windows would store it.
void append_lines(std::string &out, const std::string &text, bool crlf) {
    if (!crlf) {
        out += text;
        return;
    }
    out.reserve(out.size() + text.size() + text.size() / 16);
    for (char c : text) {
        if (c == '\n') {
            out += '\r';
        }
        out += c;
    }
}

}  // namespace

bool format_handle_xml(Handle &h, std::string &out, bool crlf) {
    std::string xml;
    if (h.xml_header) {
        appendf(xml, kHeaderFormat, __DATE__, __TIME__);
    }
    Tag root = legal_tag(h.xml_root);
    xml += root.comments;
    xml += "<" + root.name + ">\n";
    for (Section &s : h.sections) {
        if (skipped_on_write(h, s, nullptr)) {
            continue;
        }
        if (!format_section(h, s, xml)) {
            return false;
        }
    }
    xml += "</" + root.name + ">\n";
    append_lines(out, xml, crlf);
    return true;
}

}  // namespace vq::conf

using namespace vq::conf;

extern "C" {

VQ_API int conf_set_use_write_to_XML(void *vh, int32_t on) {
    return with_handle(vh, "conf_set_use_write_to_XML", __LINE__, [on](Handle &h) {
        h.write_xml = on != 0;
        return 1;
    });
}

VQ_API int conf_is_write_to_XML(void *vh) {
    return with_handle(vh, "conf_is_write_to_XML", __LINE__, [](Handle &h) { return h.write_xml ? 1 : 0; });
}

VQ_API int conf_set_write_XML_header(void *vh, int32_t on) {
    return with_handle(vh, "conf_set_write_XML_header", __LINE__, [on](Handle &h) {
        h.xml_header = on != 0;
        return 1;
    });
}

VQ_API int conf_set_XML_root(void *vh, const char *root_name) {
    if (vh != nullptr && (root_name == nullptr || root_name[0] == '\0')) {
        return VQ_PARAMS(Report::fresh, "root_name");
    }
    return with_handle(vh, "conf_set_XML_root", __LINE__, [root_name](Handle &h) {
        h.xml_root = root_name;
        return 1;
    });
}

}  // extern "C"
