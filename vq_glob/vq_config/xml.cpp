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

// Characters that no tag name may hold. Besides these, blanks and other
// control characters become "_" as well: the library's own tables name
// fields with blanks, and "_" keeps such names readable as one word.
constexpr char kIllegalChars[] = "][!$*+,;=@{}()|~<>?/&\\'\"#%^`";
// The same set as the comment shows it.
constexpr char kIllegalCharsShown[] = "] [ ! $ * + , ; = @ { } ( ) | ~ < > ? / & \\ ' \" # % ^ ` and blanks";

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

bool is_illegal_char(char c) {
    auto byte = static_cast<unsigned char>(c);
    return byte <= 0x20 || byte == 0x7F || std::strchr(kIllegalChars, c) != nullptr;
}

bool starts_with_xml(const std::string &name) {
    if (name.size() < 3) {
        return false;
    }
    return (name[0] | 0x20) == 'x' && (name[1] | 0x20) == 'm' && (name[2] | 0x20) == 'l';
}

// The name as a comment may hold it: "--" ends a comment early in XML, so
// each such pair is split by a blank.
std::string shown_in_comment(const std::string &name) {
    std::string shown;
    for (char c : name) {
        if (c == '-' && !shown.empty() && shown.back() == '-') {
            shown += ' ';
        }
        shown += c;
    }
    return shown;
}

// A legal tag for name, with the comments that tell each repair.
struct Tag {
    std::string name;
    std::string comments;
};

Tag legal_tag(const std::string &name) {
    Tag tag{name, {}};
    bool replaced = tag.name.empty();
    if (replaced) {
        tag.name = "_";
    }
    for (char &c : tag.name) {
        if (is_illegal_char(c)) {
            c = '_';
            replaced = true;
        }
    }
    // "-" and "." may stand in a name, but not first.
    if (tag.name[0] == '-' || tag.name[0] == '.') {
        tag.name[0] = '_';
        replaced = true;
    }
    std::string shown = shown_in_comment(name);
    if (replaced) {
        appendf(tag.comments, kIllegalCharsComment, shown.c_str(), kIllegalCharsShown, kReplacedSentence);
    }
    if (tag.name[0] >= '0' && tag.name[0] <= '9') {
        tag.name.insert(0, 1, '_');
        appendf(tag.comments, kLeadingDigitComment, shown.c_str());
    } else if (starts_with_xml(tag.name)) {
        tag.name.insert(0, 1, '_');
        appendf(tag.comments, kLeadingXmlComment, shown.c_str());
    }
    return tag;
}

void append_escaped(std::string &out, const std::string &value) {
    for (char c : value) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '\'':
                out += "&apos;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
                break;
        }
    }
}

// A scalar as "\t<name>value</name>\n"; a multi-line value as "\t<name>\n",
// "\t   <line>element</line>\n" per element and "\t</name>\n".
bool format_field(Handle &h, const Section &s, const Field &f, std::string &xml) {
    std::vector<std::string> texts;
    if (!field_output_texts(h, s, f, texts)) {
        return false;
    }
    Tag tag = legal_tag(f.name);
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
    Tag tag = legal_tag(s.name);
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
        return raise_params("conf_set_XML_root", "root_name");
    }
    return with_handle(vh, "conf_set_XML_root", __LINE__, [root_name](Handle &h) {
        h.xml_root = root_name;
        return 1;
    });
}

}  // extern "C"
